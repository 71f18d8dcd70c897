#!/usr/bin/python3
"""refusals.py BUILD [--write] - how the virtual switch answers every example of the description with one value changed to a
number or a name that there is nothing for. Compared with refusals.txt; --write writes it: look at what has changed, as
clients notice it.
"""
import difflib
import json
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE + "/../proof", HERE + "/../../tools"]
from proof import ROOT, operations_of, set_scene  # noqa: E402
from switch import Switch  # noqa: E402

ODD = {"integer": (0, 9999), "string": ("nobody",)}


def refusals(switch, scene, operation):
    """A line a key: the values it is given, and the code of the answer to each."""
    example = operation.example_values()
    for key in operation.keys:
        codes = []
        for value in ODD.get(key.kind, ()):
            answer = switch.ask(operation.method, operation.path, *operation.request({**example, key: value}))[0]
            codes.append(f"{value}: {json.loads(answer.partition(bytes([13, 10, 13, 10]))[2])['resp']['respCode']}")
            if operation.method != "GET" and codes[-1].endswith(" 0"):
                set_scene(switch, scene)
        if codes:
            yield f"{operation.name.replace('/api/v2/switching/', '')} {key.name} {', '.join(codes)}\n"


def main():
    if sys.argv[2:] not in ([], ["--write"]) or len(sys.argv) < 2:
        sys.exit(__doc__)
    with open(ROOT + "/api/openapi.json", encoding="utf-8") as file:
        description = json.load(file)
    with Switch(sys.argv[1]) as switch:
        set_scene(switch, description["x-scene"])
        lines = [line for operation in operations_of(description) if operation.calls
                 for line in refusals(switch, description["x-scene"], operation)]
    if sys.argv[2:]:
        with open(HERE + "/refusals.txt", "w", encoding="utf-8") as file:
            file.writelines(lines)
        return
    with open(HERE + "/refusals.txt", encoding="utf-8") as file:
        changes = list(difflib.unified_diff(file.readlines(), lines, "refusals.txt", "the virtual switch", n=0))
    sys.stdout.writelines(changes)
    sys.exit(bool(changes))


if __name__ == "__main__":
    main()
