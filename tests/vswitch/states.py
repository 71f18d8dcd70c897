#!/usr/bin/python3
"""states.py BUILD - shows that the virtual switch can return every value of every enumeration in the description.

It sends each write with every value of its enumerated keys, then the steps of states.txt, and collects the values of all
answers. A value that it does not see must stand in vswitch/DECISIONS.md under "Values that never occur", and only such a value.
It also sends each number with the limits of its range: they are accepted. (The proof sends the numbers beyond.)
"""
import json
import os
import re
import subprocess
import sys
from collections import defaultdict

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE + "/../proof", HERE + "/../../tools"]
from arguments import PROGRAM, build_with, parser  # noqa: E402
from described import described_operations  # noqa: E402
from description import load, set_scene  # noqa: E402
from switch import Switch  # noqa: E402

BASE = "/api/v2/switching/"
NEVER = re.compile(r"- `(\S+)` `(\w+)`: ([\w-]+(?:,\s+[\w-]+)*)\.")


def read_meanings(build):
    """The meaning of each (operation, parameter): a row of `vswitch operations --json`."""
    output = subprocess.run([build + "/vswitch", "operations", "--json"], check=True, capture_output=True, text=True).stdout
    table = json.loads(output)
    return {(operation["name"], row["name"]): table["meanings"][row["meaning"]]
            for operation in table["operations"] for row in operation["parameters"] if "meaning" in row}


def meaning_of(meanings, operation, operands):
    return next((meanings[call, operand] for call in operation.calls for operand in operands
                 if (call, operand) in meanings), {"numbers": []})


def shown(meanings, operation, schema):
    """The values that a member can have, as they stand in an answer; none if it is no enumeration."""
    if schema["type"] == "boolean":
        return {"true", "false"}
    source = schema.get("x-source", {})
    if "code" in source:
        return set(source["code"]) | {source["otherwise"]}
    numbers = [row["value"] for row in meaning_of(meanings, operation, [source.get("operand")])["numbers"]]
    words = {code: word for word, codes in source.get("words", {}).items() for code in codes}
    return {str(words.get(number, source.get("otherwise", number))) for number in numbers}


def values_of(meanings, operation, key):
    """The values of an enumerated key."""
    if key.kind == "boolean":
        return [True, False]
    if key.words:
        return key.schema["enum"]
    return [row["value"] for row in meaning_of(meanings, operation, key.schema["x-operand"])["numbers"]]


class Collector:
    def __init__(self, switch, operations, meanings):
        self.switch, self.meanings = switch, meanings
        self.by_request = {(one.method, one.path): one for one in operations}
        self.members = {one: {name.rpartition(".")[2]: values for name, schema in one.members
                              if (values := shown(meanings, one, schema))} for one in operations}
        self.seen = defaultdict(set)

    def send(self, operation, target, body=""):
        """Sends a request. Returns its result code."""
        answer = json.loads(self.switch.request(operation.method, target, body))
        data = {name: value for key, part in answer.items() if key != "resp" for name, value in part.items()}
        for name in self.members[operation]:
            if name in data and answer["resp"]["respCode"] == 0:
                value = data[name]
                self.seen[operation, name].add(str(value).lower() if isinstance(value, bool) else str(value))
        return answer["resp"]["respCode"]

    def send_with(self, operation, changed):
        query, body = operation.request({**operation.example_values(), **changed})
        return self.send(operation, f"{operation.path}?{query}", body)

    def send_each_value(self, operation):
        """Each value of each enumerated key, and after each what the reader of the same path says."""
        reader = self.by_request.get(("GET", operation.path))
        for key in [None, *operation.keys]:
            for value in values_of(self.meanings, operation, key) if key else [None]:
                self.send_with(operation, {key: value} if key else {})
                if reader and reader is not operation:
                    self.send_with(reader, {one: value for one in reader.keys if key and one.name == key.name})

    def play(self, line):
        """A command, or "[METHOD] path[?query] [body]"."""
        found = re.fullmatch(r"(?:(GET|POST|PUT|DELETE) )?([a-z]+(?:-[a-z]+)?/\S+) ?(.*)", line)
        if not found:
            return self.switch.command(*line.split())
        method, target, body = found.groups()
        operation = self.by_request[method or "GET", BASE + target.partition("?")[0]]
        if self.send(operation, BASE + target, body) != 0 and operation.method != "GET":
            sys.exit(f"states.txt: the switch refuses: {line}")
        return None


def check_ranges(collector, operation):
    """The switch accepts the limits of a range. (A VLAN in the range need not exist.)"""
    for key in operation.keys if operation.method != "GET" else []:
        for value in key.schema.get("x-range", []) if key.schema.get("x-means") != "vlan" else []:
            code = collector.send_with(operation, {key: value})
            if code in (10003, -22):
                yield f"{operation.name} {key.name} {value}: {code}, and the range is {key.schema['x-range']}"


def read_never():
    with open(HERE + "/../../vswitch/DECISIONS.md", encoding="utf-8") as file:
        rows = NEVER.finditer(file.read().partition("## Values that never occur")[2])
        return {(path, member): set(re.findall(r"[\w-]+", values)) for path, member, values in (row.groups() for row in rows)}


def main():
    arguments = parser(__doc__)
    arguments.add_argument("build", metavar="BUILD", type=build_with(*PROGRAM))
    build, description, wrong = arguments.parse_args().build, load(), []
    operations = [one for one in described_operations(description) if one.calls]
    with Switch(build) as switch:
        collector = Collector(switch, operations, read_meanings(build))
        set_scene(switch, description["x-scene"])
        for operation in operations:
            collector.send_each_value(operation)
            wrong += check_ranges(collector, operation)
            if operation.method != "GET" and operation.keys:
                set_scene(switch, description["x-scene"])
        switch.command("reset")
        switch.command("hold")
        with open(HERE + "/states.txt", encoding="utf-8") as file:
            for line in file.read().splitlines():
                if line and not line.startswith("#"):
                    collector.play(line)
    never = read_never()
    for operation in operations:
        for member, values in collector.members[operation].items():
            name = operation.path.removeprefix(BASE)
            missing = values - collector.seen[operation, member]
            listed = never.pop((name, member), set())
            wrong += [f"{operation.method} {name} {member} {value}: states.txt does not bring it about, and DECISIONS.md "
                      "does not say that it never occurs" for value in sorted(missing - listed)]
            wrong += [f"{operation.method} {name} {member} {value}: DECISIONS.md says that it never occurs; it does"
                      for value in sorted(listed - missing)]
    wrong += [f"DECISIONS.md: {' '.join(row)} is no enumeration" for row in never]
    counts = [len(values) for members in collector.members.values() for values in members.values()]
    print(f"{len(counts)} enumerations, {sum(counts)} values", *wrong, sep="\n")
    sys.exit(bool(wrong))


if __name__ == "__main__":
    main()
