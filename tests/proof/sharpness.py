#!/usr/bin/python3
"""How sharp the proof is: sharpness.py BUILD [COUNT [SEED]]

Makes COUNT (700) wrong descriptions, each with one thing in one operation changed at random, and a dozen wrong handlers,
and prints how many of them the proof finds, and all that it does not.
"""
import copy
import json
import os
import random
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools"))
import proof  # noqa: E402
from described import Operation, inlined  # noqa: E402
from mutants import Tree  # noqa: E402
from switch import Switch  # noqa: E402

FOR_PEOPLE = {"summary", "description", "tags", "operationId", "title", "example", "format", "encoding", "403"}

# A file of switching/, what it says, what it is made to say, the operations whose proof must fail.
WRONG_HANDLERS = [
    ("garp", "answerOutcome(openResult(rpcclt_openapiGarpGmrpEnableSet", "answerOutcomeFixed(openResult(rpcclt_openapiGarpGmrpEnableSet"),
    ("macal", "openResult(rpcclt_openapiMacalActivate(&openClient, &desc))", "invalidUnlessOk(rpcclt_openapiMacalActivate(&openClient, &desc))"),
    ("vlan", "VlanIfParticipationSet(&openClient, vlanId, ifNum", "VlanIfParticipationSet(&openClient, ifNum, vlanId"),
    ("macal", 'number("packets", packets), number("bytes", bytes)', 'number("packets", bytes), number("bytes", packets)'),
    ("mvrp", 'MvrpIntfModeGet(&openClient, queryUintExact("intIfNum")', 'MvrpIntfModeGet(&openClient, queryUintExact("ifNum")'),
    ("garp", "readBody({integerMember(\"joinTime\", &time)})", "readBody({integerMember(\"joinTime\", &time), integerMember(\"time\", &time)})"),
    ("fdb", "uint32_t fdbId = 1;\n    readParams({uintParam(\"fdbId\", &fdbId)});\n    uint32_t timeOut", "uint32_t fdbId = 0;\n    readParams({uintParam(\"fdbId\", &fdbId)});\n    uint32_t timeOut"),
    ("fdb", '{4, "self"}', '{14, "self"}'),
    ("fdb", 'openapiFdbFlushByVlan(&openClient, queryUintExact("vlanId"))', 'openapiFdbFlushByVlan(&openClient, (uint16_t)queryUintExact("vlanId"))'),
    ("bridge", "int rc = rpcclt_openapiDot1dStpRootCostGet(&openClient, &cost);", "int rc = rpcclt_openapiDot1dStpRootCostGet(&openClient, &cost) & 0;"),
    ("static_filter", "OpenBufferDesc desc = lengthSized(mac);\n    answerOutcome(openResult(rpcclt_openapiFilterCreate", "OpenBufferDesc desc = bufferSized(mac);\n    answerOutcome(openResult(rpcclt_openapiFilterCreate"),
    ("mmrp", '{3, "tx"},\n    {4, "tx_failure"}', '{4, "tx"},\n    {3, "tx_failure"}'),
    ("voice_vlan", "number(key, (int32_t)value)", "number(key, value)"),
    ("vlan", '{number("numOfElements", count), vlanIds("vidList", list)}', '{number("numOfElements", list.count), vlanIds("vidList", list)}'),
]


def leaves(node, path=()):
    """Paths of all that says something to a program."""
    for name, item in list(node.items()) if isinstance(node, dict) else list(enumerate(node)):
        if name in FOR_PEOPLE and path != () and path[-1] != "properties" or (path == () and name in FOR_PEOPLE):
            continue
        yield (*path, name)
        if isinstance(item, (dict, list)):
            yield from leaves(item, (*path, name))


def changed(entry, rng):
    """A copy in which one thing is another, and what it was."""
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
    elif isinstance(node, dict):  # another name for an object or a list
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
    except Exception as error:  # whatever a wrong description leads to
        found.append(repr(error))
    return any(found)


def try_descriptions(build, description, count, rng):
    base = description["servers"][0]["url"]
    operations = [(base + path, method, entry) for path, methods in inlined(description, description["paths"]).items()
                  for method, entry in methods.items()]
    missed = 0
    with Switch(build) as switch:
        for _ in range(count):
            path, method, entry = rng.choice(operations)
            wrong, what = changed(entry, rng)
            if not is_found(switch, description["x-scene"], lambda: Operation(path, method, wrong)):
                missed += 1
                print(f"not found: {method.upper()} {path}: {what}", flush=True)
    print(f"{count - missed} of {count} wrong descriptions found")


def try_handlers(operations):
    tree = Tree(tempfile.mkdtemp(prefix="sharpness-"))
    found = 0
    for family, before, after in WRONG_HANDLERS:
        path = f"switching/{family}.cpp"
        with open(f"{tree.source}/{path}", encoding="utf-8") as file:
            text = file.read()
        tree.plant(path, text.replace(before, after, 1))
        wrong = []
        if before in text and tree.make():
            with Switch(tree.build) as switch:
                mine = [one for one in operations if f"/{family.replace('_', '-').replace('protected-p', 'protectedp')}/" in one.path]
                proof.prove_all(switch, mine, lambda result: wrong.append(result[1]))
        found += any(wrong)
        if not any(wrong):
            print(f"not found{'' if before in text else ' in the file'}: {path}: {after}", flush=True)
        tree.plant(path, text)
    print(f"{found} of {len(WRONG_HANDLERS)} wrong handlers found")


def main():
    build, count, seed = (sys.argv[1:] + [700, 1][len(sys.argv) - 2:])[:3]
    with open("api/openapi.json", encoding="utf-8") as file:
        description = json.load(file)
    try_descriptions(build, description, int(count), random.Random(int(seed)))
    try_handlers(proof.operations_of(description))


if __name__ == "__main__":
    main()
