#!/usr/bin/python3
"""How sharp the proof is: makes wrong descriptions, each with one thing in one operation changed at random, and a dozen
wrong handlers, and prints how many of them the proof finds, and all that it does not.
"""
import argparse
import copy
import json
import os
import random
import sys
import tempfile

from mutants import Tree

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE + "/proof", HERE + "/../tools"]
import proof  # noqa: E402
from described import Operation, inlined  # noqa: E402
from switch import Switch  # noqa: E402

FOR_PEOPLE = {"summary", "description", "tags", "operationId", "title", "example", "format", "encoding", "403"}

# A family, what its file says, and what it is made to say.
WRONG_HANDLERS = [
    ("garp", "answerResult(rpcclt_openapiGarpGmrpEnableSet(&openClient, flag))",
     "answerOutcomeFixed(openResult(rpcclt_openapiGarpGmrpEnableSet(&openClient, flag)))"),
    ("macal", "answerResult(rpcclt_openapiMacalActivate(&openClient, bufferSized(list)))",
     "answerOutcome(invalidUnlessOk(rpcclt_openapiMacalActivate(&openClient, bufferSized(list))))"),
    ("vlan", "VlanIfParticipationSet(&openClient, vlanId, ifNum", "VlanIfParticipationSet(&openClient, ifNum, vlanId"),
    ("macal", 'number("packets", packets), number("bytes", bytes)', 'number("packets", bytes), number("bytes", packets)'),
    ("mvrp", 'MvrpIntfModeGet(&openClient, queryUintExact("intIfNum")',
     'MvrpIntfModeGet(&openClient, queryUintExact("ifNum")'),
    ("garp", 'readBody({integerMember("joinTime", &time)})',
     'readBody({integerMember("joinTime", &time), integerMember("dscp", &time)})'),
    ("fdb", 'uint32_t fdbId = 1;\n    readParams({uintParam("fdbId", &fdbId)});\n    uint32_t timeOut',
     'uint32_t fdbId = 0;\n    readParams({uintParam("fdbId", &fdbId)});\n    uint32_t timeOut'),
    ("fdb", '{4, "self"}', '{14, "self"}'),
    ("fdb", 'openapiFdbFlushByVlan(&openClient, queryUintExact("vlanId"))',
     'openapiFdbFlushByVlan(&openClient, (uint16_t)queryUintExact("vlanId"))'),
    ("bridge", "rpcclt_openapiDot1dStpRootCostGet(&openClient, &cost);", "rpcclt_openapiDot1dStpRootCostGet(&openClient, &cost) & 0;"),
    ("static-filter", "FilterCreate(&openClient, lengthSized(filter.mac)", "FilterCreate(&openClient, bufferSized(filter.mac)"),
    ("mmrp", '{3, "tx"},\n    {4, "tx_failure"}', '{4, "tx"},\n    {3, "tx_failure"}'),
    ("voice-vlan", "signedNumber(key, value)", "number(key, value)"),
    ("vlan", 'number("numOfElements", count), vlanIds("vidList", list)',
     'number("numOfElements", list.count), vlanIds("vidList", list)'),
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


def try_handlers(tree, operations):
    found = 0
    for family, before, after in WRONG_HANDLERS:
        path = f"switching/{family.replace('-', '_')}.cpp"
        with open(f"{tree.source}/{path}", encoding="utf-8") as file:
            text = file.read()
        tree.plant(path, text.replace(before, after, 1))
        wrong = []
        if before in text and tree.make():
            with Switch(tree.build) as switch:
                mine = [one for one in operations if f"/{family}/" in one.path]
                proof.prove_all(switch, mine, lambda result: wrong.append(result[1]))
        found += any(wrong)
        if not any(wrong):
            print(f"not found{'' if before in text else ' in the file'}: {path}: {after}", flush=True)
        tree.plant(path, text)
    print(f"{found} of {len(WRONG_HANDLERS)} wrong handlers found")


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("build")
    arguments.add_argument("--count", type=int, default=700)
    arguments.add_argument("--seed", type=int, default=1)
    options = arguments.parse_args()
    with open(proof.ROOT + "/api/openapi.json", encoding="utf-8") as file:
        description = json.load(file)
    try_descriptions(options.build, description, options.count, random.Random(options.seed))
    with tempfile.TemporaryDirectory(prefix="sharpness-") as directory:
        try_handlers(Tree(directory, "switching_v2.cgi", "vswitch", "sandbox"), proof.operations_of(description))


if __name__ == "__main__":
    main()
