/*
 * port_filtering_test.cpp - storm control, protected ports and loop protection through the real program, and what the
 * virtual switch makes of them.
 */
#include "tests/support/family_rows.h"

#define OP "rpcclt_openapi"

static const Family storm = {"storm-control/", OP "StormControl", "stormControl"};
static const Family stormAction = {"storm-control/", OP "SwDevCtrlBcastStormControlAction", "stormControl"};
static const Family groups = {"protectedport/", OP "ProtectedPort", "protectedport"};
static const Family loop = {"loop-protect/", OP "LoopProtect", "loopProtect"};

class StormControl : public SwitchTest {};

/* The kind of traffic follows the target, and is said again before the data. */
static Exchange stormGet(Text target, Text type, Text asked, Text data)
{
    return storm.get(target + "stormCtrlMode=" + type, asked, member("stormCtrlMode", "\"" + type + "\"") + "," + data);
}

TEST_F(StormControl, holdsForTheSwitchAndForAPort)
{
    expectAll({
        storm.put("mode", R"({"stormCtrlMode":"broadcast","state":"enable"})", "ModeSet type=2 state=1 -> 0"),
        stormGet("mode?x", "broadcast", "ModeGet type=2 state=0 -> 0 state=1", R"("state":"enable")"),
        storm.put("intf-mode", R"({"stormCtrlMode":"multicast","interface":7,"state":"enable"})",
                  "IntfModeSet type=3 ifNum=7 state=1 -> 0"),
        stormGet("intf-mode?xinterface=7&x", "multicast", "IntfModeGet type=3 ifNum=7 state=0 -> 0 state=1",
                 R"("interface":7,"state":"enable")"),
        stormGet("mode?", "multicast", "ModeGet type=3 state=0 -> 0 state=0", R"("state":"disable")"),
        storm.put("action", R"({"stormCtrlMode":"multicast","action":"shutdown"})", "ActionSet type=3 action=1 -> 0"),
        stormGet("action?x", "multicast", "ActionGet type=3 action=0 -> 0 action=1", R"("action":"shutdown")"),
        stormGet("action?", "unicast", "ActionGet type=1 action=0 -> 0 action=0", R"("action":"none")"),
    });
    for (const auto &[code, word] : {std::pair<std::string, std::string>("2", "ratelimit"), {"3", "trap"}}) {
        std::string data = R"("interface":9,"action":")" + word + "\"";
        expect(stormAction.put("action-intf", "{" + data + "}", "IntfSet ifNum=9 action=" + code + " -> 0"));
        expect(stormAction.get("action-intf?xinterface=9", "IntfGet ifNum=9 action=0 -> 0 action=" + code, data));
    }
}

TEST_F(StormControl, keepsThresholdsInEachUnit)
{
    const struct { std::string word, sent, said, lowest, highest; } rows[] = {
        {"percent", "1", "percent", "0", "100"},
        {"percentage", "1", "percent", "0", "100"},
        {"2", "2", "pps", "0", "1488095"}, /* no word, but the number of one */
        {"pps", "2", "pps", "0", "1488095"},
        {"kbps", "3", "kbps", "64", "1000000"},
        {std::string(30, '0') + "34", "3", "kbps", "64", "1000000"}, /* 31 characters of it are read */
    };
    const std::string onPort = "intf-threshold?xinterface=7&x", port = R"("interface":7,)";
    for (const auto &[word, sent, said, lowest, highest] : rows) {
        std::string query = "?x=1&rateUnit=" + word + "&y=1", unit = R"("rateUnit":")" + said + "\",";
        std::string set = "unit=" + sent + " threshold=" + highest, threshold = member("threshold", highest);
        std::string get = "unit=0 threshold=0 -> 0 " + set, range = "min=" + lowest + " max=" + highest;
        expectAll({
            storm.get("threshold-min-max" + query, "ThresholdMinMaxGet unit=" + sent + " min=0 max=0 -> 0 " + range,
                      unit + member("minThreshold", lowest) + "," + member("maxThreshold", highest)),
            storm.put("threshold" + query, R"({"stormCtrlMode":"unicast",)" + threshold + "}",
                      "ThresholdSet type=1 " + set + " -> 0"),
            stormGet("threshold?x", "unicast", "ThresholdGet type=1 " + get, unit + threshold),
            storm.put("intf-threshold" + query, R"({"stormCtrlMode":"broadcast","interface":7,)" + threshold + "}",
                      "IntfThresholdSet type=2 ifNum=7 " + set + " -> 0"),
            stormGet(onPort, "broadcast", "IntfThresholdGet type=2 ifNum=7 " + get, port + unit + threshold),
        });
    }
    const std::string get = "unit=0 threshold=0 -> 0 unit=1 threshold=5";
    const std::string data = R"("rateUnit":"percent","threshold":5)";
    expectAll({
        storm.put("threshold-default", R"({"stormCtrlMode":"unicast"})", "ThresholdDefaultSet type=1 -> 0"),
        stormGet("threshold?", "unicast", "ThresholdGet type=1 " + get, data),
        storm.put("intf-threshold-default", R"({"stormCtrlMode":"broadcast","interface":7})",
                  "IntfThresholdDefaultSet type=2 ifNum=7 -> 0"),
        stormGet(onPort, "broadcast", "IntfThresholdGet type=2 ifNum=7 " + get, port + data),
        storm.put("threshold?rateUnit=pps", R"({"stormCtrlMode":"unicast","threshold":1488096})",
                  "ThresholdSet type=1 unit=2 threshold=1488096 -> -22"),
    });
}

TEST_F(StormControl, leavesUnknownWordsToTheSwitch)
{
    /* Unknown words, negative numbers, and what stands in the query for the body or the other way round: all are 0. */
    const std::string query = "?interface=3&xrateUnit=pps&stormCtrlMode=unicast";
    const std::string body = R"({"stormCtrlMode":"Broadcast","state":1,"action":1,"interface":-4,"threshold":-5,)"
                             R"("rateUnit":"pps"})";
    const struct { const Family &family; std::string target, asked; } setters[] = {
        {storm, "mode", "ModeSet type=0 state=0"},
        {storm, "intf-mode", "IntfModeSet type=0 ifNum=0 state=0"},
        {storm, "threshold", "ThresholdSet type=0 unit=0 threshold=0"},
        {storm, "threshold-default", "ThresholdDefaultSet type=0"},
        {storm, "intf-threshold", "IntfThresholdSet type=0 ifNum=0 unit=0 threshold=0"},
        {storm, "intf-threshold-default", "IntfThresholdDefaultSet type=0 ifNum=0"},
        {storm, "action", "ActionSet type=0 action=0"},
        {stormAction, "action-intf", "IntfSet ifNum=0 action=0"},
    };
    for (const auto &[family, target, asked] : setters) {
        expect(family.put(target + query, body, asked + " -> -22"));
        expect(family.put(target + query, "{", ""));
    }
    expectAll({
        storm.get("mode?stormCtrlMode=Unicast", "ModeGet type=0 state=0 -> -22"),
        storm.get("intf-mode", "IntfModeGet type=0 ifNum=0 state=0 -> -22"),
        storm.get("threshold", "ThresholdGet type=0 unit=0 threshold=0 -> -22"),
        storm.get("intf-threshold", "IntfThresholdGet type=0 ifNum=0 unit=0 threshold=0 -> -22"),
        storm.get("threshold-min-max?xrateUnit=pps", "ThresholdMinMaxGet unit=0 min=0 max=0 -> -22"),
        storm.get("threshold-min-max?rateUnit=Kbps", "ThresholdMinMaxGet unit=0 min=0 max=0 -> -22"),
        storm.get("action", "ActionGet type=0 action=0 -> -22"),
        stormAction.get("action-intf", "IntfGet ifNum=0 action=0 -> -22"),
    });
    tell("fault " OP "StormControlModeGet code=0 state=2");
    tell("fault " OP "StormControlThresholdGet code=0 unit=4 threshold=4294967293");
    tell("fault " OP "StormControlThresholdMinMaxGet code=0 min=4294967295 max=4294967294");
    tell("fault " OP "StormControlActionGet code=0 action=4");
    expectAll({
        storm.get("mode", "ModeGet type=0 state=0 -> 0 state=2", R"("stormCtrlMode":"none","state":"disable")"),
        stormGet("threshold?", "unicast", "ThresholdGet type=1 unit=0 threshold=0 -> 0 unit=4 threshold=4294967293",
                 R"("rateUnit":"none","threshold":4294967293)"),
        storm.get("threshold-min-max?rateUnit=7",
                  "ThresholdMinMaxGet unit=7 min=0 max=0 -> 0 min=4294967295 max=4294967294",
                  R"("rateUnit":"none","minThreshold":4294967295,"maxThreshold":4294967294)"),
        stormGet("action?", "unicast", "ActionGet type=1 action=0 -> 0 action=4", R"("action":"none")"),
    });
}

class ProtectedPort : public SwitchTest {};

TEST_F(ProtectedPort, namesGroups)
{
    expectAll({
        groups.post("max-groups", "", "MaxGroups maxGroups=0 -> 0 maxGroups=3", R"("maxGroupNum":3)"),
        groups.put("group-name?xgroupId=1&groupId=2", R"({"groupName":"north","groupId":3})",
                   R"(GroupNameSet groupId=2 name=[6]"north" -> 0 name=[6]"north")"),
        groups.get("group-name?xgroupId=1&groupId=2", R"(GroupNameGet groupId=2 name=[49]"" -> 0 name=[49]"north")",
                   R"("groupName":"north")"),
        groups.get("group-name", R"(GroupNameGet groupId=0 name=[49]"" -> -22)"),
        groups.put("group-name?groupId=3", R"({"groupName":")" + std::string(99, 'n') + "\"}", /* not cut */
                   "GroupNameSet groupId=3 name=[100]\"" + std::string(99, 'n') + "\" -> -22"),
    });
    for (const char *body : {R"({"groupName":7})", R"({"name":"x"})", "north"})
        expect(groups.put("group-name?groupId=2", body, ""));
    tell("fault " OP "ProtectedPortMaxGroups code=-28"); /* answers a success as readers do, a failure as writers do */
    expect(groups.post("max-groups", "", "MaxGroups maxGroups=0 -> -28"));
}

TEST_F(ProtectedPort, keepsMembers)
{
    auto next = [](Text ifNum, Text groupId, Text outcome, Text data = "") {
        std::string asked = "NextGroupGet ifNum=" + ifNum + " groupId=" + groupId + " nextIfNum=0 nextGroupId=0 -> ";
        std::string target = "next-group?xifNum=8&xgroupId=8&groupId=" + groupId + "&ifNum=" + ifNum;
        return groups.get(target, asked + outcome, data);
    };
    expectAll({
        groups.post("group-intf?xifNum=8&ifNum=9&xgroupId=8&groupId=2", "", "GroupIntfAdd ifNum=9 groupId=2 -> 0"),
        groups.post("group-intf?groupId=2&ifNum=4", "", "GroupIntfAdd ifNum=4 groupId=2 -> 0"),
        groups.post("group-intf?groupId=1&ifNum=5", "", "GroupIntfAdd ifNum=5 groupId=1 -> 0"),
        groups.post("group-intf?ifNum=9&groupId=2", "", "GroupIntfAdd ifNum=9 groupId=2 -> -24"),
        groups.post("group-intf?ifNum=9&groupId=3", "", "GroupIntfAdd ifNum=9 groupId=3 -> -1"),
        groups.post("group-intf", R"({"ifNum":3,"groupId":1})", "GroupIntfAdd ifNum=0 groupId=0 -> -22"),
        groups.get("group?xifNum=4&ifNum=5", "GroupGet ifNum=5 groupId=0 -> 0 groupId=1", R"("groupId":1)"),
        groups.get("group?ifNum=6", "GroupGet ifNum=6 groupId=0 -> -1"),
        groups.get("group-intf-count?xgroupId=1&groupId=2", "GroupIntfCountGet groupId=2 count=0 -> 0 count=2",
                   R"("intfCount":2)"),
        groups.get("group-intf-count", "GroupIntfCountGet groupId=0 count=0 -> -22"),
        next("0", "0", "0 nextIfNum=4 nextGroupId=2", R"("nextIfNum":4,"nextGroupId":2)"),
        next("4", "2", "0 nextIfNum=5 nextGroupId=1", R"("nextIfNum":5,"nextGroupId":1)"),
        next("9", "2", "-1"),
        groups.del("group-intf?ifNum=9&groupId=1", "GroupIntfDelete ifNum=9 groupId=1 -> -1"),
        groups.del("group-intf?xifNum=4&ifNum=9&xgroupId=1&groupId=2", "GroupIntfDelete ifNum=9 groupId=2 -> 0"),
    });
}

TEST_F(ProtectedPort, listsAnyNumberOfMembers)
{
    const std::string target = "group-intf-list?xgroupId=1&groupId=2", get = "GroupIntfCountGet groupId=2 count=0 -> ";
    auto list = [&](Text count, Text size, Text ports) {
        std::string asked = "\n" OP "ProtectedPortGroupIntfListGet groupId=2 intfList=[" + size + "]\"\" -> ";
        return groups.get(target, get + "0 count=" + count + asked + "0 intfList=[" + size + "]\"" + ports + "\"",
                          R"("intfList":")" + ports + "\"");
    };
    send("POST", "protectedport/group-intf?ifNum=28&groupId=2");
    send("POST", "protectedport/group-intf?ifNum=4&groupId=2");
    expect(list("2", "1024", "4,28"));

    /* 16 bytes for each member and one more, 1024 at least; a list longer than can be stated is not asked for. */
    for (auto [members, size] : {std::pair("63", "1024"), {"64", "1025"}, {"100", "1601"}}) {
        tell(std::string("fault " OP "ProtectedPortGroupIntfCountGet code=0 count=") + members);
        expect(list(members, size, "4,28"));
    }
    tell("fault " OP "ProtectedPortGroupIntfListGet code=-22");
    EXPECT_EQ(send("GET", "protectedport/" + target), failure(10003));
    tell("fault " OP "ProtectedPortGroupIntfCountGet code=0 count=4294967295");
    Exchange tooMany = groups.get(target, get + "0 count=4294967295");
    tooMany.answered = failure(10000);
    expect(tooMany);
    tell("fault " OP "ProtectedPortGroupIntfCountGet code=-24");
    expect(groups.get(target, get + "-24"));
}

class LoopProtect : public SwitchTest {};

TEST_F(LoopProtect, keepsNumbers)
{
    const struct { std::string target, operation, port, output, key, value; } rows[] = {
        {"admin-mode", "AdminMode", "", "mode=", "adminMode", "0"},
        {"tx-timer", "TxTimer", "", "timer=", "timerVal", "7"},
        {"max-pdu-receive", "MaxPduReceive", "", "frames=", "val", "8"},
        {"disable-timer", "DisableTimer", "", "timer=", "val", "604800"},
        {"port-tx-mode?xifNum=5&ifNum=7", "PortTxMode", "ifNum=7 ", "mode=", "mode", "0"},
        {"port-admin-mode?xifNum=5&ifNum=7", "PortAdminMode", "ifNum=7 ", "mode=", "mode", "1"},
        {"port-action?xifNum=5&ifNum=7", "PortAction", "ifNum=7 ", "action=", "mode", "3"},
    };
    for (const auto &[target, operation, port, output, key, value] : rows) {
        std::string get = operation + "Get " + port + output + "0 -> ", set = operation + "Set " + port + output;
        auto body = [&, &name = key](Text number) { return R"({"ifNum":5,)" + member(name, number) + "}"; };
        expectAll({
            loop.put(target, body(value), set + value + " -> 0"),
            loop.get(target, get + "0 " + output + value, member(key, value)),
            loop.put(target, body("-1"), set + "4294967295 -> -22"),
            loop.put(target, "{", ""),
        });
        tell("fault " OP "LoopProtect" + operation + "Set code=-24");
        tell("fault " OP "LoopProtect" + operation + "Get code=-28 times=1");
        expect(loop.put(target, body("true"), set + "0 -> -24")); /* no number */
        expect(loop.get(target, get + "-28"));
        tell("fault " OP "LoopProtect" + operation + "Get code=0 " + output + "4294967295");
        expect(loop.get(target, get + "0 " + output + "4294967295", member(key, "4294967295")));
    }

    const std::string target = "port-vlan-properties?xvlanId=4&vlanId=4094&xifNum=5&ifNum=7";
    const std::string get = "PortVlanPropertiesGet ifNum=7 tpid=0 vlanId=0 -> 0 ";
    const std::string set = "PortVlanPropertiesSet ifNum=7 ";
    expectAll({
        loop.get(target, get + "tpid=33024 vlanId=0", R"("tpid":33024,"vlanId":0)"),
        loop.put(target, R"({"tpid":34984,"vlanId":5,"ifNum":6})", set + "tpid=34984 vlanId=4094 -> 0"),
        loop.get(target, get + "tpid=34984 vlanId=4094", R"("tpid":34984,"vlanId":4094)"),
        loop.put(target, R"({"tpid":true})", set + "tpid=0 vlanId=4094 -> -22"),
        loop.put(target, R"({"tpid":-1})", set + "tpid=4294967295 vlanId=4094 -> -22"),
        loop.put(target, "", ""),
        loop.get("port-vlan-properties", "PortVlanPropertiesGet ifNum=0 tpid=0 vlanId=0 -> -22"),
    });
}

TEST_F(LoopProtect, walksItsPorts)
{
    expectAll({
        loop.get("valid-intf-first", "ValidIntfFirstGet first=0 -> 0 first=1", R"("ifNum":1)"),
        loop.get("valid-intf-next?xifNum=3&ifNum=1", "ValidIntfNextGet ifNum=1 next=0 -> 0 next=2", R"("nextIfNum":2)"),
        loop.get("valid-intf-next?ifNum=28", "ValidIntfNextGet ifNum=28 next=0 -> -1"),
        loop.post("is-valid-intf?xifNum=29&ifNum=28", R"({"ifNum":29})", "IsValidIntf ifNum=28 flag=0 -> 0 flag=1",
                  R"("status":"true")"),
        loop.post("is-valid-intf", R"({"ifNum":28})", "IsValidIntf ifNum=0 flag=0 -> 0 flag=0", R"("status":"false")"),
    });
    tell("fault " OP "LoopProtectValidIntfFirstGet code=-1");
    tell("fault " OP "LoopProtectIsValidIntf code=-28");
    expect(loop.get("valid-intf-first", "ValidIntfFirstGet first=0 -> -1"));
    expect(loop.post("is-valid-intf", "", "IsValidIntf ifNum=0 flag=0 -> -28"));
}

TEST_F(LoopProtect, readsWhatAPortCounts)
{
    const struct { const char *method; std::string target, operation, preset, output, value, key; } rows[] = {
        {"GET", "portloop-detect-count", "PortloopDetectCountGet", "count=0", "count=", "4294967295", "loopCount"},
        {"GET", "port-packet-tx-count", "PortPacketTxCountGet", "count=0", "count=", "4294967294", "count"},
        {"GET", "port-packet-rx-count", "PortPacketRxCountGet", "count=0", "count=", "4294967293", "count"},
        {"GET", "port-time-since-last-loop", "PortTimeSinceLastLoopGet", "time=0 zero=0", "time=", "4294967292",
         "timeVal"},
        {"POST", "is-loop-detected", "IsLoopDetected", "flag=0", "flag=", "2", "status"}, /* only 1 is yes */
        {"POST", "is-port-disabled", "IsPortDisabled", "flag=0", "flag=", "2", "status"},
    };
    for (const auto &[method, target, operation, preset, output, value, key] : rows) {
        std::string url = target + "?xifNum=2&ifNum=", asked = operation + " ifNum=";
        tell("fault " OP "LoopProtect" + operation + " code=0 times=1 " + output + value);
        expect(loop.row(method, url + "7", R"({"ifNum":8})", asked + "7 " + preset + " -> 0 " + output + value,
                        member(key, key == "status" ? "\"false\"" : value)));
        expect(loop.row(method, url + "29", "", asked + "29 " + preset + " -> -22", ""));
    }
    expect(loop.del("port-stats?xifNum=2&ifNum=3", "PortStatsClear ifNum=3 -> 0"));
    expect(loop.del("port-stats", "PortStatsClear ifNum=0 -> -22"));
    tell("fault " OP "LoopProtectAllStatsClear code=-22");
    expect(loop.del("all-stats", "AllStatsClear -> -22"));
}
