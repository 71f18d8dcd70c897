#!/usr/bin/python3
"""refusals.py BUILD [--write | --resident] - sends every example of the description with one value replaced by a number or a name
that does not exist, and compares the result codes with refusals.txt. --write writes that file: read the difference, as
clients will notice it. --resident: sends them to one worker of a resident program.
"""
import difflib
import json
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE + "/../proof", HERE + "/../../tools"]
from described import described_operations  # noqa: E402
from description import load, set_scene  # noqa: E402
from arguments import PROGRAM, build_with, parser  # noqa: E402
from switch import Switch  # noqa: E402

ODD = {"integer": (0, 9999), "string": ("nobody",)}


def refusals(switch, scene, operation):
    """One line for each key: the values it gets, and the result code of each."""
    example = operation.example_values()
    for key in operation.keys:
        codes = []
        for value in ODD.get(key.kind, ()):
            query, body = operation.request({**example, key: value})
            answer = json.loads(switch.request(operation.method, f"{operation.path}?{query}", body))
            code = answer["resp"]["respCode"]
            codes.append(f"{value}: {code}")
            if operation.method != "GET" and code == 0:
                set_scene(switch, scene)
        if codes:
            yield f"{operation.name.replace('/api/v2/switching/', '')} {key.name} {', '.join(codes)}\n"


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    arguments.add_argument("--write", action="store_true")
    arguments.add_argument("--resident", action="store_true", help="through one worker of a resident program")
    options = arguments.parse_args()
    description = load()
    scene = description["x-scene"]
    with Switch(options.build, workers=int(options.resident)) as switch:
        set_scene(switch, scene)
        lines = [line for operation in described_operations(description) if operation.calls
                 for line in refusals(switch, scene, operation)]
    if options.write:
        with open(HERE + "/refusals.txt", "w", encoding="utf-8") as file:
            file.writelines(lines)
        return
    with open(HERE + "/refusals.txt", encoding="utf-8") as file:
        changes = list(difflib.unified_diff(file.readlines(), lines, "refusals.txt", "the virtual switch", n=0))
    sys.stdout.writelines(changes)
    sys.exit(bool(changes))


if __name__ == "__main__":
    main()
