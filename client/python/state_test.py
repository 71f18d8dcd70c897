"""Tests of the switch's state: the table, the file, and a proof by random writes. SWITCHING_BUILD is the build that is
served, SWITCHING_SEED the first seed (else one that is printed), SWITCHING_SECONDS how long the proof takes (20)."""
import json
import os
import random
import subprocess
import sys
import time

import pytest

from switching import Incomplete, Refused, Wrong, description, diff, dump, state_table
from switching.apply import Apply
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


def test_what_the_table_names_exists():
    words = {"set", "get", "remove", "members", "sent", "parts", "per", "elements", "walk", "new", "optional", "when",
             "after", "needs", "follows"}
    assert set(TABLE.rows) <= set(TABLE.settings) and all(set(row) <= words for row in TABLE.rows.values())
    for setting in TABLE.settings.values():
        row, read = TABLE.rows.get(setting.name, {}), setting.get and setting.get.success
        assert {*setting.after, *setting.needs, *setting.follows} <= {*TABLE.settings, *TABLE.tables}
        assert all(other in TABLE.settings for words in setting.sent.values() for other in words.values())
        assert {*row.get("members", {}), *setting.sent, *setting.part_keys()} <= {key.name for key in setting.set.keys}
        members = {*row.get("members", {}).values(), *(part.get("member") for part in setting.parts.values())} - {None}
        assert not read or members <= set(read)
        for path, values in setting.when.items():
            operation = KNOWN.operation("GET", path)
            assert set(values) <= set(operation.names_of(next(iter(operation.success))).values())


# Files

@pytest.mark.parametrize("text, says", [
    ("{", r":1: this is not JSON"), ("[]", "not a state of a switch"), ('{"switching state": 2}', "version 2, but"),
    ('{"switching state": 1, "vlan": {}}', 'no section "vlan"; close to it: vlans'),
    ('{"a": 1, "a": 2}', '"a" is there twice'),
    ('{"switching state": 1, "interfaces": {"2-4": {"vlan/if-pvi": 1}}}', 'interfaces 2: there is no setting "vlan/if-pvi"'),
    ('{"switching state": 1, "interfaces": {"2-": {"vlan/if-pvid": 1}}}', r'"2-" is not a list of interfaces'),
    ('{"switching state": 1, "interfaces": {"2,3": {"vlan/if-pvid": 1}, "3-4": {"vlan/if-pvid": 2}}}', "3 has two values"),
    ('{"switching state": 1, "vlans": {"10": {"vlan/if-tagging": {"3": "taged"}}}}', "10 vlan/if-tagging 3: tagging takes"),
    ('{"switching state": 1, "macal/rule-entry": {"a": {"1": {"macal/rule-src-ip-mask": {"ipAddr": "1", "mask": "1"}}}}}',
     "ipAddr takes an IPv4 address"),
    ('{"switching state": 1, "ports": 48}', "48 ports, but this one has 5"),
    ('{"switching state": 1, "switch": {"macal/activate": null}}', "macalName takes text, not None"),
    ('{"switching state": 1, "vlans": {"x": {}}}', "vlans x: vlanNum takes a number"),
    ('{"switching state": 1, "vlan/mac": {"02:00:00:00:00:01": {}}}', "vlanId takes a number"),
])
def test_a_file_that_is_no_state(switch, tmp_path, text, says):
    (tmp_path / "file.json").write_text(text)
    with switch.traced() as calls, pytest.raises(Wrong, match=says):
        switch.apply(tmp_path / "file.json")
    assert all("Get" in call.name for call in calls)


MONDAY = {"switching state": 1, "switch": {"storm-control/mode": {"broadcast": "enable"}}, "vlans": {"10": {
    "vlan/if-participation": {"3-4": "include"}, "vlan/if-tagging": {"4": 1}}}, "interfaces": {
    "1-5": {"vlan/if-default-user-priority": 2}, "4": {"vlan/if-default-user-priority": 7, "vlan/if-pvid": 10}}}


class TestStates:
    @pytest.fixture
    def switch_state(self):
        return MONDAY

    def test_a_fixture_sets_it(self, switch):
        switch.post("vlan/create", vlanNum=11)
        assert [str(one) for one in diff(MONDAY, switch.snapshot()) if one.first] == []
        assert [switch.get("vlan/if-default-user-priority", ifNum=port)["priority"] for port in (3, 4, 6)] == [2, 7, 0]
        follower = switch.get("storm-control/intf-mode", stormCtrlMode="broadcast", interface=2)
        assert follower["state"] == "enable"
        assert [str(one.place) for one in switch.apply(MONDAY).extra] == ["vlans 11"]
        assert len(switch.apply(MONDAY, exact=True).done) == 1

    def test_the_commands(self, switch, tmp_path):
        for name, text in (("monday", dump(MONDAY)), ("served", json.dumps(switch.served)), ("snapshot", "")):
            (tmp_path / name).write_text(text)
        run = lambda *words: subprocess.run([sys.executable, "-m", "switching", *words], capture_output=True, text=True,
                                            cwd=tmp_path, env={**os.environ, "SWITCHING_SERVED": "served"})
        (tmp_path / "snapshot").write_text(run("snapshot").stdout)
        switch.reset()
        assert run("diff", "monday").stdout.splitlines()[-1] == "vlans 10: only in monday"
        plan = run("apply", "--plan", "monday")
        session = f"export session='Session: {switch.session}'\n"
        subprocess.run(["bash", "-c", session + plan.stdout], check=True, capture_output=True)
        assert (run("diff", "monday", "snapshot").returncode, run("diff", "monday").returncode) == (1, 0)  # VLAN 1
        assert run("apply", "monday").stdout == "11 of 11 values are as in monday; 0 requests set them\n"
        assert (run("diff", "snapshot").stdout, run("diff", "no").returncode) == ("", 2)
        switch.fault("VlanCreate", code=-1)
        (tmp_path / "bad").write_text('{"switching state": 1, "vlans": {"11": {}}}')
        done = run("apply", "bad")
        assert (done.returncode, done.stderr.splitlines()[0]) == (1, "vlans 11: only in bad (10000 General Failed)")

    def test_a_session_that_ends(self, switch):
        writer = switch.as_user("writer")
        session = os.path.join(switch.served["files"], "session", writer.session)
        applied = Apply(writer, {**MONDAY, "vlans": {str(vlan): {} for vlan in range(100, 120)}}, jobs=1)
        applied.report = lambda text: len(applied.outcome.done) == 3 and os.rename(session, session + "-")
        try:
            with pytest.raises(Refused, match="403"):
                applied.run()
        finally:
            os.rename(session + "-", session)
        vlans = [one["nextVid"] for one in switch.walk("vlan/next-vlan")]
        assert vlans == [1, 10, *(step.place.entity[0] for step in applied.outcome.done)]


def test_a_read_that_is_refused(switch):
    switch.post("macal/list", macalName="mgmt")
    whole = switch.snapshot()
    for name in ("GarpJoinTimeGet", "VlanIfParticipationGet", "MacalActiveListGet"):
        switch.fault(name, code=-22, times=1)
    assert switch.snapshot() == whole
    switch.fault("VlanIfParticipationGet", code=-22, ifNum=3)
    with pytest.warns(UserWarning, match="vlan/if-participation.*10003"):
        members = switch.snapshot()["vlans"]["1"]["vlan/if-participation"]
    assert members == {port: value for port, value in whole["vlans"]["1"]["vlan/if-participation"].items() if port != "3"}


def test_a_file_does_not_speak_of_the_access_list(switch):
    switch.post("macal/list", macalName="mgmt")
    switch.post("macal/activate", macalName="mgmt")
    switch.apply({"switching state": 1, "switch": {"vlan/global-auto-trunk": "enable"}}, exact=True)
    assert switch.get("macal/active-list")["macalName"] == "mgmt"


# The proof

POOLS = {"vlan": [1, 10, 20, 30, 100, 101, 102, 3001], "oui": ["2A:5D:02", "2A:5D:03", "7e-40-91"],
         "macAddress": ["02:00:00:00:0A:01", "02:00:00:00:0a:02", "03-00-00-00-00-07"], "interface": range(1, 14),
         "interfaces": ["", "1", "1,3", "2-4", "5-7"], "rulePriority": [1, 2], "rulePriorityOrNext": [1, 2, 65535],
         "protocolGroup": [1, 2, 128], "ouiIndex": [1, 2, 3, 4, 32], "etherType": [1536, 2048, 34525, 65535],
         "ipv4Address": ["192.0.2.0", "10.0.0.0"], "voiceValue": [0, 5, 10, 20], "stormThreshold": [0, 5, 64, 100, 1000]}
NARROWER = {"static-filter/filter": {"vlan": [10], "macAddress": ["02:00:00:00:0A:01", "02:00:00:00:0a:02"]},  # by path
            "private-vlan": {"vlan": [100, 100, 101, 102], "vlans": [101, 102]},
            "pvlan-": {"vlan": [101, 102], "vlans": [101, 102]}, "mac": {"vlan": [10, 20], "interface": [1, 2]},
            "protectedport": {"interface": [1, 2], "protectedGroup": [1, 2]}}
NAMES = {"primaryVlan": [100], "mask": ["255.255.255.0", "255.0.0.0"], "macalName": ["lab", "mgmt"],
         "groupName": ["x", "a b/c&d"], "vrfName": ["", "management"], "ouiDesc": ["", "lab phones"]}


def value_of(path, key, chance):
    narrower = next((pools for part, pools in NARROWER.items() if part in path), {}) if chance.random() < 0.9 else {}
    values = NAMES.get(key.name) or narrower.get(key.means) or POOLS.get(key.means)
    if key.means == "vlans":
        return chance.sample(values or POOLS["vlan"], chance.randint(0, 2))
    if values:
        return chance.choice(values)
    if key.names or "enum" in key.schema:
        return chance.choice(list(key.names) or key.schema["enum"])
    if key.schema["type"] == "boolean":
        return chance.random() < 0.5
    low, high = key.schema["x-range"]
    return chance.choice([low, high, chance.randint(low, high)])


def write(switch, operation, chance, left_out=0.02):
    """A random write. Returns its keys, or None if it is refused."""
    keys = {key.name: value_of(operation.path, key, chance) for key in operation.keys
            if key.required or chance.random() >= left_out}
    try:
        switch.call(operation.method, operation.path, keys)
        return keys
    except (Refused, Wrong):
        return None


ALL = [KNOWN.operation(*name.split()) for name in sorted([*TABLE.writing(), *CLASSES["same"], *CLASSES["unreadable"]])]
OPERATIONS = sorted({name for entry in KNOWN.operations.values() for name in entry.get("x-operations", [])})
MADE = [table.make for table in TABLE.tables.values() if table.make]
RELATED = {"voice-vlan/port-vlan-id", "voice-vlan/port-dot1p-priority",
           *(name for setting in TABLE.settings.values() for name in setting.follows)}
PLAIN = [one for one in TABLE.settings.values()  # those that change nothing else
         if not (one.elements or one.sent or one.when or one.needs) and one.name not in RELATED]


def prepare(switch, chance):
    """Entries to which random writes can refer."""
    for vlan in POOLS["vlan"][1:]:
        switch.post("vlan/create", vlanNum=vlan)
    for vlan, kind in ((100, "primary"), (101, "isolated"), (102, "community")):
        switch.post("vlan/dot1q-private-vlan-enable", vlanId=vlan, pvlanType=kind)
    switch.post("vlan/dot1q-api-private-vlan-assoc", vlanId=100, vidList=[101])
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
        if keys:
            named = {word: value for name, value in keys.items() for word in (setting.set.key_for(name, {}).means, name)}
            entity = setting.table.entity(named[word] for word in setting.table.keys)
            part = named["interface"] if setting.per else next((part for part, words in setting.parts.items() if all(
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
    assert switch.apply(wanted, exact=True).refused == []  # the order is right
    assert same(wanted, switch.snapshot()) == []
    assert switch.apply(wanted, exact=True).done == []
    switch.reset()
    prepare(switch, chance)
    write_many(switch, chance, 250)
    with_faults = chance.random() < 0.5
    for name in chance.sample(OPERATIONS, with_faults * len(OPERATIONS) // 10):
        switch.fault(name, code=-1, times=1)
    try:
        assert with_faults or switch.apply(wanted, exact=True).refused == []
        switch.apply(wanted, exact=True)
    except Incomplete:
        switch.apply(wanted, exact=True)
    switch.clear()
    assert same(wanted, switch.snapshot()) == []


def test_random_states_are_read_and_set(switch):
    seed = int(os.environ.get("SWITCHING_SEED", random.randrange(1 << 30)))
    end, runs = time.monotonic() + float(os.environ.get("SWITCHING_SECONDS", "20")), 0
    while time.monotonic() < end:
        print(f"SWITCHING_SEED={seed + runs}")
        prove(switch, seed + runs)
        runs += 1
    print(f"{runs} random states")
