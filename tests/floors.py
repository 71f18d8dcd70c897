#!/usr/bin/python3
"""floors.py BUILD - checks by the object files in BUILD that no source file calls upwards, and no files call in a loop.

FLOORS has the highest floor first. A file may call files of its floor and of the floors behind it. What a file calls
is what its object file leaves undefined and another one defines (nm), functions and data alike.
"""
import json
import os
import re
import subprocess
import sys
from graphlib import CycleError, TopologicalSorter

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.insert(0, ROOT + "/tools")
from arguments import build_with, parser  # noqa: E402

FLOORS = [("api/",), ("main/",), ("switching/",), ("httpd/",), ("common/",), ("log/",),
          ("vswitch/main", "vswitch/client"), ("vswitch/server/",), ("vswitch/frames/",), ("vswitch/switch/",),
          ("vswitch/base/",), ("platform/",)]


def floor(source):
    return next(number for number, parts in enumerate(FLOORS) if source.startswith(parts))


def symbols(path):
    """The symbols that an object file defines, and those that it needs."""
    listed = subprocess.run(["nm", "-P", "-g", path], check=True, capture_output=True, text=True).stdout
    names = [line.split()[:2] for line in listed.splitlines()]
    return {name for name, kind in names if kind in "TDBRC"}, {name for name, kind in names if kind == "U"}


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with("compile_commands.json"))
    with open(arguments.parse_args().build + "/compile_commands.json", encoding="utf-8") as file:
        commands = json.load(file)
    objects = [one["directory"] + "/" + re.search(r" -o (\S+)", one["command"])[1] for one in commands]
    compiled = {os.path.relpath(one["file"], ROOT): path for one, path in zip(commands, objects)}
    found = {source: symbols(path) for source, path in compiled.items()
             if not source.startswith(("tests/", "build")) and os.path.exists(path)}
    owner = {name: source for source, (names, _) in found.items() if not source.startswith("api/") for name in names}
    calls = {source: {owner[name] for name in needs & owner.keys()} - {source} for source, (_, needs) in found.items()}
    upwards = [f"{a} calls {b}, which lies above it" for a in calls for b in calls[a] if floor(b) < floor(a)]
    print(f"{len(calls)} files, {sum(map(len, calls.values()))} calls from file to file", *upwards, sep="\n")
    try:
        TopologicalSorter(calls).prepare()
    except CycleError as loop:
        sys.exit("A loop: " + ", called by ".join(loop.args[1]))
    sys.exit(bool(upwards))


if __name__ == "__main__":
    main()
