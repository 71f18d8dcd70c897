"""Tests of the client, against a virtual switch. SWITCHING_BUILD is the build that is served."""
import json
import os
import re
import subprocess
import sys
import urllib.request

import pytest

from switching import CommandFailed, NoAnswer, Refused, Switch, Wrong
from switching.switch import CHECKOUT, COMMANDS

FRAME = bytes.fromhex("ffffffffffff 020000000001 0800") + bytes(46)


@pytest.fixture(scope="session")
def serving():
    return {"ports": 28, "stations": 8}


def asked(switch, method, path, keys, sent):
    """What the switch was asked, whether it refused or not: the values of `sent`, as others are returned as well."""
    with switch.traced() as calls:
        try:
            switch.call(method, path, keys)
        except Refused:
            pass
    return [(call.name, {name: call.sent.get(name) for name in sent}) for call in calls]


@pytest.mark.parametrize("method, path, keys, call, sent", [
    ("PUT", "vlan/if-participation", {"participationMode": "exclude", "interface": 3, "vlan": 9},
     "VlanIfParticipationSet", {"vlanId": 9, "ifNum": 3, "mode": 2}),
    ("DELETE", "vlan/mac", {"mac": "a b+c/%&=", "vlanId": 5}, "VlanMacDelete", {"mac": "a b c/%&=", "vlanId": 5}),
    ("DELETE", "voip/oui", {"voipOui": "a/ &#\"b"}, "VoipOuiRemove", {"oui": 'a/ &#"b'}),
    ("DELETE", "vlan/dot1q-api-private-vlan-assoc", {"vlanId": 5, "vidList": [6, 7]}, "Dot1qApiPrivateVlanAssocRemove",
     {"primaryVid": 5, "secondaryVidList": [6, 7]}),
    ("GET", "macal/rule-next", {"macalName": "macalRulePrio", "macalRulePrio": 4}, "MacalRuleNextGet",
     {"macalName": "macalRulePrio", "priority": 4}),
    ("GET", "macal/rule-next", {"macalName": "macalRulePrio"}, "MacalRuleNextGet",
     {"macalName": "macalRulePrio", "priority": 0}),
])
def test_a_key_reaches_the_switch(switch, method, path, keys, call, sent):
    assert asked(switch, method, path, keys, sent) == [(call, sent)]


@pytest.mark.parametrize("method, path, keys, says", [
    ("GET", "vlan/next-vlam", {}, r"close to it: vlan/next-vlan"),
    ("GET", "vlan/create", {}, r"there is no GET vlan/create, but POST"),
    ("POST", "vlan/create", {"vid": 1}, r'has no key "vid"; its keys are vlanNum$'),
    ("POST", "vlan/create", {"vlanNum": 1 << 32}, r"vlanNum takes a number from 0 to 4294967295, not 4294967296"),
    ("PUT", "vlan/if-participation", {"participationMode": "out"}, r"or one of auto, include, exclude, not 'out'"),
    ("GET", "fdb/entry-next", {"mac": "1/2"}, r"mac takes text that is sent raw and matches .*, not '1/2'"),
    ("GET", "fdb/entry-next", {"mac": "1 2"}, r"a query is sent raw and cannot hold ' '"),
    ("GET", "fdb/entry-next", {"mac": "x" * 18}, r"mac takes at most 17 bytes"),
    ("PUT", "storm-control/mode", {"stormCtrlMode": "all"}, r"one of unicast, "),
    ("DELETE", "vlan/dot1q-api-private-vlan-assoc", {"vidList": [4000] * 2000}, r"the switch reads 8192"),
])
def test_what_does_not_fit_the_description_is_not_sent(switch, method, path, keys, says):
    with switch.traced() as calls, pytest.raises(Wrong, match=says):
        switch.call(method, path, keys)
    assert calls == []


def test_a_refusal_says_what_was_sent_and_asked(switch):
    switch.fault("VlanCreate", code=-1, times=1)
    with pytest.raises(Refused) as refused:
        switch.post("vlan/create", vlanNum=10)
    assert str(refused.value) == ("POST vlan/create vlanNum=10: 10000 General Failed; "
                                  "the switch was asked: VlanCreate vlanId=10 -> -1")


def test_a_walk_ends_where_the_switch_ends_or_stands_still(switch):
    assert [one["fdbIfNum"] for one in switch.walk("fdb/entry-next", vlanId=1)] == [1, 2, 3, 4, 5, 6, 7, 8, 0]
    assert [one["nextIfNum"] for one in switch.walk("loop-protect/valid-intf-next")] == [*range(1, 29)]
    assert len(list(switch.walk("bridge/dot1d-instance-member-get-next"))) >= 28  # a POST that only reads
    switch.fault("NextVlanGet", "vlanId==7", code=0, nextVlanId=5)
    switch.fault("NextVlanGet", "vlanId==5", code=0, nextVlanId=7)
    assert [one["nextVid"] for one in switch.walk("vlan/next-vlan", vid=7)] == [5, 7]
    with pytest.raises(Wrong, match="does not walk"):
        next(switch.walk("vlan/type"))
    with pytest.raises(Refused, match="403"):
        list(Switch(switch.url, "nobody").walk("vlan/next-vlan"))


def test_every_command_of_the_virtual_switch_has_a_method(switch):
    listed = subprocess.run([os.path.join(build(), "vswitch"), "--help"], capture_output=True, text=True, check=True).stdout
    commands = re.findall(r"^    ([a-z]+)\b", listed[listed.index("Commands:"):], re.MULTILINE)
    assert set(commands) - {"operations"} == set(COMMANDS)
    switch.link(3, "down")
    assert switch.get("bridge/dot1d-stp-port-state", port=3)["portState"] == 1
    with pytest.raises(CommandFailed, match="link"):
        switch.link(3, "sideways")


def test_users_raw_requests_and_what_does_not_answer(switch):
    with pytest.raises(Refused) as refused:
        switch.as_user("reader").post("vlan/create", vlanNum=10)
    assert refused.value.code == 403 and refused.value.calls == []
    with switch.traced() as calls:
        status, text = switch.send("GET", "vlan/next-vlan?xvid=1&vid=%37&vid=9")
    assert (status, json.loads(text)["resp"]["respCode"], calls[0].sent["vlanId"]) == (200, 0, 0)
    with pytest.raises(NoAnswer, match="does not answer"):
        Switch("http://127.0.0.1:1/api/v2/switching", "token").get("vlan/next-vlan")
    switch.fault("*", "hangup")
    with pytest.raises(Refused):
        switch.get("vlan/next-vlan")


def test_one_connection_serves_many_requests(switch):
    switch.get("vlan/next-vlan")
    kept = switch.kept.connection.sock
    switch.get("vlan/next-vlan")
    assert switch.kept.connection.sock is kept
    kept.shutdown(2)  # as a server does that ends it
    assert switch.get("vlan/next-vlan") == {"nextVid": 1}


def test_a_resident_program_with_hosts_and_a_console_leaves_nothing(tmp_path):
    os.environ["TMPDIR"] = str(tmp_path)
    with Switch.serve(sockets=3, resident=True) as switch:
        console = switch.url.replace("/api/v2/switching", "/console/")
        with urllib.request.urlopen(console + "openapi.json") as answer:
            assert json.load(answer)["servers"][0]["url"] == switch.url
        door = urllib.request.Request(console + "vswitch", b"link 3 up", {"Session": switch.session})
        assert urllib.request.urlopen(door).status == 200
        one, two = switch.port(1), switch.port(2)
        one.send(FRAME)
        assert (two.received(), one.received(), two.receive(0)) == ([FRAME], [], None)
        assert [entry["fdbIfNum"] for entry in switch.walk("fdb/entry-next", vlanId=1)] == [1, 0]
        with pytest.raises(CommandFailed, match="port 4 is no socket"):
            switch.port(4)
        switch.server.stdin.close()  # as when this process is killed
        assert switch.server.wait(20) == 0
    assert os.listdir(tmp_path) == []
    with pytest.raises(NoAnswer, match="there is no option"):
        Switch.serve(what=1)


def build():
    return os.environ["SWITCHING_BUILD"]


def command_line(switch, tmp_path, *words):
    (tmp_path / "served").write_text(json.dumps(switch.served))
    done = subprocess.run([sys.executable, "-m", "switching", *words], capture_output=True, text=True,
                          env={**os.environ, "SWITCHING_SERVED": str(tmp_path / "served")})
    return done.returncode, done.stdout or done.stderr


def test_the_command_line(switch, tmp_path):
    run = lambda *words: command_line(switch, tmp_path, *words)
    assert run("get", "vlan/next-vlan", "vid=0") == (0, '{"nextVid": 1}\n')
    assert run("walk", "vlan/next-vlan") == (0, '{"nextVid": 1}\n')
    assert run("trace", "post", "vlan/create", "vlanNum=10") == (0, "VlanCreate vlanId=10 -> 0\n")
    assert run("post", "vlan/create", "vlanNum=10")[0] == 1
    assert run("post", "vlan/create", "vid=10") == (2, 'switching: POST vlan/create has no key "vid"; its keys are vlanNum\n')
    assert run("fault", "VlanDelete", "code=-1") == (0, "") and "VlanDelete" in run("faults")[1]
    assert run("complete", "get", "vlan/next-vlan") == (0, "vid=\n")
    assert "vlan/create" in run("complete", "trace", "post")[1].split()
    assert subprocess.run(["bash", "-c", 'eval "$(cat)"; COMP_WORDS=(switching get vlan/next-v); COMP_CWORD=2; _switching; '
                           'echo "${COMPREPLY[@]}"'], input=run("completion")[1], capture_output=True, text=True,
                          ).stdout == "vlan/next-vlan\n"


def test_the_example_of_the_readme():
    with open(os.path.join(CHECKOUT, "README.md"), encoding="utf-8") as file:
        section = file.read().split("\n## Python\n")[1]
    example = section[section.index("    from switching import"):section.index("\n`Switch(")]
    exec(re.sub("(?m)^    ", "", example), {})
