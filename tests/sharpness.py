#!/usr/bin/python3
"""sharpness.py BUILD [--count N] [--seed N] - tests the proof: does it find a wrong description?

Makes N (700) wrong descriptions, each with one random change in one operation. Prints how many of them the proof finds,
and each that it does not. (mutants.py plants faults in the handlers.)
"""
import copy
import json
import os
import random
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE + "/proof", HERE + "/../tools"]
import proof  # noqa: E402
from described import Operation, inlined  # noqa: E402
from description import load, operations_of  # noqa: E402
from arguments import PROGRAM, build_with, parser  # noqa: E402
from switch import Switch  # noqa: E402

FOR_PEOPLE = {"summary", "description", "tags", "operationId", "title", "example", "format", "encoding", "403"}


def leaves(node, path=()):
    """Paths of everything in the description of an operation that is not for people alone."""
    for name, item in list(node.items()) if isinstance(node, dict) else list(enumerate(node)):
        if name in FOR_PEOPLE and path != () and path[-1] != "properties" or (path == () and name in FOR_PEOPLE):
            continue
        yield (*path, name)
        if isinstance(item, (dict, list)):
            yield from leaves(item, (*path, name))


def changed(entry, rng):
    """A copy of the operation's description with one random change, and a text that says which."""
    entry = copy.deepcopy(entry)
    path = rng.choice(list(leaves(entry)))
    node = entry
    for step in path[:-1]:
        node = node[step]
    name, value = path[-1], node[path[-1]]
    how = rng.choice(["remove", "value", "value"])
    if how == "remove":
        del node[name]
    elif isinstance(value, bool):
        node[name] = not value
    elif isinstance(value, (int, float)):
        node[name] = value + rng.choice([-1, 1])
    elif isinstance(value, str):
        node[name] = value + "x"
    elif isinstance(node, dict):  # an object or a list gets another name
        node[name + "x"] = node.pop(name)
    else:
        node.append(value)
    return entry, f"{how} {'/'.join(map(str, path))} ({json.dumps(value):.60})"


def is_found(switch, scene, make_operation):
    found = []
    try:
        operation = make_operation()
        proof.prove_all(switch, [operation], lambda result: found.append(result[1]))
        if not any(found):
            proof.prove_examples(switch, scene, [operation], lambda result: found.append(result[1]))
    except Exception as error:  # a wrong description can lead to anything
        found.append(repr(error))
    return any(found)


def try_descriptions(build, description, count, rng):
    operations = list(operations_of(inlined(description, description)))
    missed = 0
    with Switch(build) as switch:
        for _ in range(count):
            path, method, entry = rng.choice(operations)
            wrong, what = changed(entry, rng)
            if not is_found(switch, description["x-scene"], lambda: Operation(path, method, wrong)):
                missed += 1
                print(f"not found: {method} {path}: {what}", flush=True)
    print(f"{count - missed} of {count} wrong descriptions found")


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    arguments.add_argument("--count", type=int, default=700)
    arguments.add_argument("--seed", type=int, default=1)
    options = arguments.parse_args()
    proof.require_jsonschema()
    try_descriptions(options.build, load(), options.count, random.Random(options.seed))


if __name__ == "__main__":
    main()
