"""examples.py - what is proved with the virtual switch as it is, without simulated answers: the examples, and what the
description says of numbers (x-range, x-means).
"""
import json
import re

from described import Wrong, same
from description import example_answer, example_request, set_scene
from switch import Switch

NEW = {"interface": 40, "vlan": 3999}  # what only a switch with 48 ports, and this VLAN, has
# Keys that only say from where a walk goes on; that may have the number of what does not exist; or with which the switch
# refuses the request for another reason, too: what the comparison has set before is among these.
EXISTENCE_UNSEEN = re.compile(r"/(entry-next fdbIfNum|next-group ifNum|port-vlan-properties vlanId|\S+ dataValue|\S+ portNum|"
                              r"pvlan-intf-\S+-assoc\S* intf|\S+private-vlan-assoc vlanId|\S+pvlan-\S+-assoc \w+Vlan)")


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
            prove_ranges(switch, operation, next(iter(json.loads(answer).values())))
        except (Wrong, ValueError) as error:
            wrong = f"{error} in {answer!r:.300}"
        report((operation.name, wrong, 1))


def prove_ranges(switch, operation, data):
    """The answer's members are in their ranges. A write refuses the numbers beside a range that can reach the switch."""
    for path, (least, largest) in [(path, schema["x-range"]) for path, schema in operation.members if "x-range" in schema]:
        same(f"whether {path} is from {least} to {largest}", least <= data[path.split(".")[-1]] <= largest, True)
    example = operation.example_values()
    asks = operation.method == "GET" or operation.members
    for key in [key for key in operation.keys if "x-range" in key.schema and not asks]:
        least, largest = key.schema["x-range"]
        for value in (least - 1, largest + 1):
            if key.schema["minimum"] <= value <= key.schema["maximum"] and not least <= key.reached(value) <= largest:
                query, body = operation.request({**example, key: value})
                answer = json.loads(switch.request(operation.method, f"{operation.path}?{query}", body))
                same(f"whether {key.name}={value} is refused", answer["resp"]["respCode"] != 0, True)


def wrong_meanings(build, workers, scene, operations):
    """(name, what is wrong) of operations whose x-means is wrong. A second switch has more ports, and VLAN 3999: a key means
    an interface, or a VLAN, exactly if the two answer differently when it is one that only the second has."""
    with Switch(build, workers=workers) as small, Switch(build, "--ports", "48", workers=workers) as large:
        set_scene(small, scene)
        set_scene(large, scene)
        for operation, key in [(one, key) for one in operations for key in one.keys if one.calls and key.kind == "integer"]:
            if EXISTENCE_UNSEEN.search(f"{operation.name} {key.name}"):
                continue
            for one, method, name in (small, "DELETE", "delete"), (large, "DELETE", "delete"), (large, "POST", "create"):
                one.request(method, f"/api/v2/switching/vlan/{name}?vlanNum={NEW['vlan']}")
            for meaning, value in NEW.items():
                query, body = operation.request({**operation.example_values(), key: value})
                answers = {one.request(operation.method, f"{operation.path}?{query}", body) for one in (small, large)}
                if (len(answers) == 2) != (key.schema.get("x-means") == meaning):
                    yield operation.name, f"whether {key.name} means {meaning}: {key.schema.get('x-means')}, and {answers}"


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
