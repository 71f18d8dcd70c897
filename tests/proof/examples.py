"""examples.py - what is proved with the virtual switch as it is, without simulated answers: the examples, and what the
description says of numbers (x-range, x-means).
"""
import json
import re

from described import Wrong, same
from description import example_answer, example_request, set_scene
from switch import Switch

VLAN, INTERFACE = 3999, 40  # no VLAN of the scene; on a switch with 28 ports no interface, on one with 48 a port
# Keys that say from where a walk goes on, or that the switch refuses for other reasons as well, whether the number exists
# or not. A frame of loop protection may have the tag of a VLAN that does not exist.
EXISTENCE_UNSEEN = re.compile(r"fdb/entry-next fdbIfNum|protectedport/next-group ifNum|port-vlan-properties vlanId|"
                              r"pvlan-intf-\w+(-trunk)?-assoc(-next)? intf|private-vlan-assoc vlanId|intf-pvlan-\w+-assoc \w+Vlan")


def prove_examples(switch, scene, operations, report):
    """Sends every example to a switch in the state of the scene, and compares the answer with the example's."""
    set_scene(switch, scene)
    for operation in sorted(operations, key=lambda operation: operation.method != "GET"):
        if operation.method != "GET" and operation.calls:
            set_scene(switch, scene)
        answer, wrong = switch.request(operation.method, *example_request(operation.path, operation.entry)), None
        described = example_answer(operation.entry)["example"]
        try:
            same("the example", json.loads(answer), described)
            same("whether the example succeeds", described["resp"]["respCode"] == 0, bool(operation.calls))
            prove_ranges(switch, operation)
            prove_member_ranges(operation, json.loads(answer))
        except (Wrong, ValueError) as error:
            wrong = f"{error} in {answer!r:.300}"
        report((operation.name, wrong, 1))


def prove_ranges(switch, operation):
    """A write refuses the numbers beside their range, where they can reach the switch."""
    example = operation.example_values()
    asks = operation.method == "GET" or operation.members
    for key in [key for key in operation.keys if "x-range" in key.schema and not asks]:
        least, largest = key.schema["x-range"]
        for value in (least - 1, largest + 1):
            if key.schema["minimum"] <= value <= key.schema["maximum"] and not least <= key.reached(value) <= largest:
                query, body = operation.request({**example, key: value})
                answer = json.loads(switch.request(operation.method, f"{operation.path}?{query}", body))
                same(f"whether {key.name}={value} is refused", answer["resp"]["respCode"] != 0, True)


def prove_member_ranges(operation, answer):
    for path, schema in operation.members:
        value = answer
        for step in path.split("."):
            value = value.get(step, {})
        if "x-range" in schema and not schema["x-range"][0] <= value <= schema["x-range"][1]:
            raise Wrong(f"{path}: {value} is not in the range {schema['x-range']}")


def wrong_meanings(build, workers, scene, operations):
    """(name, what is wrong) of operations whose x-means is wrong: a key means an interface exactly if it matters how many
    ports the switch has. A key that means a VLAN depends on whether that exists."""
    def answers(switch, operation, key, value):
        query, body = operation.request({**operation.example_values(), key: value})
        return switch.request(operation.method, f"{operation.path}?{query}", body)

    def depends_on_vlan(switch, operation, key):
        seen = []
        for method, target in ("DELETE", "delete"), ("POST", "create"):
            switch.request(method, f"/api/v2/switching/vlan/{target}?vlanNum={VLAN}")
            seen.append(answers(switch, operation, key, VLAN))
        return seen[0] != seen[1]

    with Switch(build, workers=workers) as small, Switch(build, "--ports", "48", workers=workers) as large:
        set_scene(small, scene)
        set_scene(large, scene)
        for operation, key in [(one, key) for one in operations for key in one.keys if one.calls and key.kind == "integer"]:
            means, name = key.schema.get("x-means"), f"{operation.name} {key.name}"
            depends = answers(small, operation, key, INTERFACE) != answers(large, operation, key, INTERFACE)
            hidden = EXISTENCE_UNSEEN.search(name)
            if depends != (means == "interface") and not hidden:
                yield operation.name, f"{key.name} means {means}, and {'depends' if depends else 'does not depend'} on the ports"
            if means == "vlan" and not hidden and not depends_on_vlan(small, operation, key):
                yield operation.name, f"{key.name} means {means}, and does not depend on whether that exists"


def left_behind_reset(switch, scene, operations):
    """Names of the reads that answer otherwise after writes and a reset than they did at the start."""
    reads = [operation for operation in operations if operation.method == "GET" and operation.calls]

    def send(operation):
        return switch.request(operation.method, *example_request(operation.path, operation.entry))

    def answers():
        set_scene(switch, [])
        return [send(read) for read in reads]

    at_start = answers()
    set_scene(switch, scene)
    for operation in operations:
        if operation.method in ("PUT", "POST") and operation.calls:
            send(operation)
    return [read.name for read, before, behind in zip(reads, at_start, answers()) if before != behind]
