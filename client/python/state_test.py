"""Tests of the switch's state: the table, the file, and a proof by random writes. SWITCHING_BUILD is the build that is
served, SWITCHING_SEED the first seed (else one that is printed), SWITCHING_SECONDS how long the proof takes (20)."""
import json
import os
import random
import time

import pytest

from switching import Incomplete, Refused, Wrong, description, diff, dump, state_table
from switching.apply import Apply, elements
from switching.state import Place, State

TABLE = state_table.load()
KNOWN = description.load()
CLASSES = TABLE.toml["other"]


@pytest.fixture(scope="session")
def serving():
    return {"ports": 5, "stations": 2, "resident": True}


def test_every_operation_is_in_the_table_once():
    stated = sorted([*TABLE.writing(), *(name for names in CLASSES.values() for name in names)])
    described = sorted(f"{method} {path}" for (method, path), entry in KNOWN.operations.items()
                       if method != "GET" and not entry.get("deprecated"))
    assert stated == described


# The proof

POOLS = {"vlan": [1, 10, 20, 30, 100, 101, 102, 3001], "macAddress": ["02:00:00:00:0A:01", "02:00:00:00:0a:02", "03-00-00-00-00-07"],
         "oui": ["2A:5D:02", "2A:5D:03", "7e-40-91"], "interfaces": ["", "1", "1,3", "2-4", "5-7"], "rulePriority": [1, 2, 3],
         "rulePriorityOrNext": [1, 2, 65535], "protocolGroup": [1, 2, 128], "ouiIndex": [1, 2, 3, 4, 32],
         "etherType": [1536, 2048, 34525, 65535], "ipv4Address": ["192.0.2.0", "255.255.255.0", "10.0.0.0"], "voiceValue": [0, 5, 10, 20],
         "stormThreshold": [0, 5, 64, 100, 1000]}
NAMES = {"macalName": ["lab", "mgmt"], "groupName": ["x", "a b/c&d"], "vrfName": ["", "management"], "ouiDesc": ["", "lab phones"]}


def value_of(key, chance):
    if key.means == "interface":
        return chance.randint(1, 13)
    if key.means == "vlans":
        return chance.sample(POOLS["vlan"], chance.randint(0, 3))
    if key.means in POOLS or key.name in NAMES:
        return chance.choice(POOLS.get(key.means) or NAMES[key.name])
    if key.names or "enum" in key.schema:
        return chance.choice(list(key.names) or key.schema["enum"])
    if key.schema["type"] == "boolean":
        return chance.random() < 0.5
    low, high = key.schema["x-range"]
    return chance.choice([low, high, chance.randint(low, high)])


def write(switch, operation, chance, left_out=0.02):
    """A random write. Returns its keys, or None if it is refused."""
    keys = {key.name: value_of(key, chance) for key in operation.keys if key.required or chance.random() >= left_out}
    try:
        switch.call(operation.method, operation.path, keys)
        return keys
    except (Refused, Wrong):
        return None


ALL = [KNOWN.operation(*name.split()) for name in sorted([*TABLE.writing(), *CLASSES["same"], *CLASSES["unreadable"]])]
MADE = [table.make for table in TABLE.tables.values() if table.make]
RELATED = {name for setting in TABLE.settings.values() for name in (*setting.follows, *(other for words in setting.sent.values()
           for other in words.values()))}
PLAIN = [setting for setting in TABLE.settings.values() if not (setting.elements or setting.sent or setting.when or setting.needs)
         and setting.name not in RELATED]


def prepare(switch, chance):
    """Entries to which random writes can refer."""
    for vlan in chance.sample(POOLS["vlan"][1:], 5):
        switch.post("vlan/create", vlanNum=vlan)
    switch.post("macal/list", macalName="mgmt")
    switch.post("macal/activate", macalName="mgmt")  # or it would not be seen beside another
    for operation in MADE * 3:
        write(switch, operation, chance)


def write_many(switch, chance, count):
    for _ in range(count):
        write(switch, chance.choice(ALL), chance)


def plain_writes(switch, chance, count):
    """Writes settings that change nothing else. Returns {place: value} of what succeeded last."""
    written = {}
    for _ in range(count):
        setting = chance.choice(PLAIN)
        keys = write(switch, setting.set, chance, left_out=0)
        named = lambda word: next((value for name, value in keys.items() if word in (name, setting.set.key_for(name, {}).means)), 0)
        if keys:
            entity = setting.table.entity(named(word) for word in setting.table.keys)
            part = named("interface") if setting.per else next((part for part, words in setting.parts.items() if all(
                keys.get(name) == word for name, word in words.items() if name != "member")), None)
            value = setting.plain({key.name: state_table.canonical(key, keys[key.name]) for key in setting.keys})
            written[Place(setting.table.name, entity, setting.name, part)] = value
    return written


def same(first, second):
    return [str(one) for one in diff(first, second)]


def prove(switch, seed):
    chance = random.Random(seed)
    switch.reset()
    prepare(switch, chance)
    before = switch.snapshot()
    written = plain_writes(switch, chance, 60)
    named = {one.place: one.second for one in diff(before, switch.snapshot())
             if not TABLE.settings.get(one.place.setting, PLAIN[0]).when}
    first = State.of(before).facts
    assert named == {place: value for place, value in written.items() if first.get(place) != value}
    write_many(switch, chance, 250)
    wanted = switch.snapshot()
    assert same(json.loads(dump(wanted)), wanted) == []
    switch.reset()
    switch.apply(wanted, exact=True)
    assert same(wanted, switch.snapshot()) == []
    assert switch.apply(wanted, exact=True).done == []
    switch.reset()
    prepare(switch, chance)
    write_many(switch, chance, 250)
    switch.apply(wanted, exact=True)
    assert same(wanted, switch.snapshot()) == []


def test_random_states_are_read_and_set(switch):
    seed = int(os.environ.get("SWITCHING_SEED", random.randrange(1 << 30)))
    end, runs = time.monotonic() + float(os.environ.get("SWITCHING_SECONDS", "20")), 0
    while time.monotonic() < end:
        print(f"SWITCHING_SEED={seed + runs}")
        prove(switch, seed + runs)
        runs += 1
    print(f"{runs} random states")
