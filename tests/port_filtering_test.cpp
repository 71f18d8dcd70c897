/*
 * port_filtering_test.cpp - storm control, protected ports and loop protection through the real program, and what the
 * virtual switch makes of them.
 */
#include <gmock/gmock.h>

#include "tests/support/driver.h"

/* The rows of a family tell its endpoints and operations without what they all start with. */
class FamilyTest : public SwitchTest {
protected:
    FamilyTest(std::string familyPath, std::string operationStart)
        : path(std::move(familyPath)), start(std::move(operationStart))
    {
    }

    std::string send(const std::string &method, const std::string &endpoint, const std::string &body = "")
    {
        return SwitchTest::send(method, path + endpoint, body);
    }

    void fault(const std::string &operation,
        const std::string &words) { tell("fault " + start + operation + " " + words); }

    void expectRow(const Exchange &row)
    {
        std::string asked = row.asked.empty() || row.asked.starts_with("rpcclt") ? row.asked : start + row.asked;
        expect({row.method, path + row.target, row.body, asked, row.answered});
    }

    void expectRows(const std::vector<Exchange> &rows)
    {
        for (const Exchange &row : rows)
            expectRow(row);
    }

private:
    const std::string path, start;
};

class StormControl : public FamilyTest {
protected:
    StormControl() : FamilyTest("storm-control/", "rpcclt_openapiStormControl") {}
    static std::string data(const std::string &members) { return success("\"stormControl\":{" + members + "}"); }

    std::string threshold(const std::string &type) { return send("GET", "threshold?stormCtrlMode=" + type); }
};

TEST_F(StormControl, holdsForTheSwitchAndForAPort)
{
    expectRows({
        {"PUT", "mode", R"({"STORMCTRLMODE":"broadcast","state":"enable"})", "ModeSet type=2 state=1 -> 0",
         successLine()},
        {"GET", "mode?xstormCtrlMode=broadcast", "", "ModeGet type=2 state=0 -> 0 state=1",
         data(R"("stormCtrlMode":"broadcast","state":"enable")")},
        {"GET", "mode?stormCtrlMode=unicast", "", "ModeGet type=1 state=0 -> 0 state=0",
         data(R"("stormCtrlMode":"unicast","state":"disable")")},
        {"PUT", "intf-mode", R"({"stormCtrlMode":"multicast","interface":7.9,"state":"enable"})",
         "IntfModeSet type=3 ifNum=7 state=1 -> 0", successLine()},
        {"GET", "intf-mode?stormCtrlMode=multicast&interface=7", "", "IntfModeGet type=3 ifNum=7 state=0 -> 0 state=1",
         data(R"("stormCtrlMode":"multicast","interface":7,"state":"enable")")},
        {"GET", "intf-mode?interface=7&stormCtrlMode=broadcast", "", "IntfModeGet type=2 ifNum=7 state=0 -> 0 state=0",
         data(R"("stormCtrlMode":"broadcast","interface":7,"state":"disable")")},
        {"PUT", "mode", R"({"stormCtrlMode":"broadcast","state":"Enable"})", "ModeSet type=2 state=0 -> 0",
         successLine()},
        {"GET", "mode?stormCtrlMode=broadcast", "", "ModeGet type=2 state=0 -> 0 state=0",
         data(R"("stormCtrlMode":"broadcast","state":"disable")")},

        {"PUT", "action", R"({"stormCtrlMode":"multicast","action":"trap"})", "ActionSet type=3 action=3 -> 0",
         successLine()},
        {"GET", "action?stormCtrlMode=multicast", "", "ActionGet type=3 action=0 -> 0 action=3",
         data(R"("stormCtrlMode":"multicast","action":"trap")")},
        {"GET", "action?stormCtrlMode=unicast", "", "ActionGet type=1 action=0 -> 0 action=0",
         data(R"("stormCtrlMode":"unicast","action":"none")")},
        {"PUT", "action-intf", R"({"interface":9,"action":"ratelimit"})",
         "rpcclt_openapiSwDevCtrlBcastStormControlActionIntfSet ifNum=9 action=2 -> 0", successLine()},
        {"GET", "action-intf?interface=9", "",
         "rpcclt_openapiSwDevCtrlBcastStormControlActionIntfGet ifNum=9 action=0 -> 0 action=2",
         data(R"("interface":9,"action":"ratelimit")")},
        {"PUT", "action", R"({"stormCtrlMode":"multicast","action":1})", "ActionSet type=3 action=0 -> 0",
         successLine()},
        {"GET", "action?stormCtrlMode=multicast", "", "ActionGet type=3 action=0 -> 0 action=0",
         data(R"("stormCtrlMode":"multicast","action":"none")")},
    });
}

TEST_F(StormControl, keepsThresholdsInEachUnit)
{
    const std::string unset = data(R"("stormCtrlMode":"unicast","rateUnit":"percent","threshold":5)");
    expectRows({
        {"PUT", "threshold?rateUnit=percentage", R"({"stormCtrlMode":"broadcast","threshold":100})",
         "ThresholdSet type=2 unit=1 threshold=100 -> 0", successLine()},
        {"GET", "threshold?stormCtrlMode=broadcast", "",
         "ThresholdGet type=2 unit=0 threshold=0 -> 0 unit=1 threshold=100",
         data(R"("stormCtrlMode":"broadcast","rateUnit":"percent","threshold":100)")},
        {"PUT", "threshold?x=1&rateUnit=pps&y=1", R"({"stormCtrlMode":"multicast","threshold":1200.9})",
         "ThresholdSet type=3 unit=2 threshold=1200 -> 0", successLine()},
        {"GET", "threshold?stormCtrlMode=multicast", "",
         "ThresholdGet type=3 unit=0 threshold=0 -> 0 unit=2 threshold=1200",
         data(R"("stormCtrlMode":"multicast","rateUnit":"pps","threshold":1200)")},
        {"PUT", "intf-threshold?rateUnit=kbps", R"({"stormCtrlMode":"multicast","interface":7,"threshold":64})",
         "IntfThresholdSet type=3 ifNum=7 unit=3 threshold=64 -> 0", successLine()},
        {"GET", "intf-threshold?stormCtrlMode=multicast&interface=7", "",
         "IntfThresholdGet type=3 ifNum=7 unit=0 threshold=0 -> 0 unit=3 threshold=64",
         data(R"("stormCtrlMode":"multicast","interface":7,"rateUnit":"kbps","threshold":64)")},
        {"GET", "intf-threshold?stormCtrlMode=multicast&interface=8", "",
         "IntfThresholdGet type=3 ifNum=8 unit=0 threshold=0 -> 0 unit=1 threshold=5",
         data(R"("stormCtrlMode":"multicast","interface":8,"rateUnit":"percent","threshold":5)")},
        {"PUT", "intf-threshold-default", R"({"stormCtrlMode":"multicast","interface":7})",
         "IntfThresholdDefaultSet type=3 ifNum=7 -> 0", successLine()},
        {"GET", "intf-threshold?stormCtrlMode=multicast&interface=7", "",
         "IntfThresholdGet type=3 ifNum=7 unit=0 threshold=0 -> 0 unit=1 threshold=5",
         data(R"("stormCtrlMode":"multicast","interface":7,"rateUnit":"percent","threshold":5)")},
        {"PUT", "threshold-default", R"({"stormCtrlMode":"broadcast"})", "ThresholdDefaultSet type=2 -> 0",
         successLine()},
    });
    EXPECT_EQ(threshold("broadcast"), data(R"("stormCtrlMode":"broadcast","rateUnit":"percent","threshold":5)"));
    EXPECT_EQ(threshold("multicast"), data(R"("stormCtrlMode":"multicast","rateUnit":"pps","threshold":1200)"));
    EXPECT_EQ(threshold("unicast"), unset);

    /* The ends of each unit's range are allowed, and nothing beyond. */
    const struct { const char *unit; long long lowest, highest; } ranges[] = {
        {"percent", 0, 100}, {"pps", 0, 1488095}, {"kbps", 64, 1000000}};
    for (auto [unit, lowest, highest] : ranges) {
        std::string query = std::string("?rateUnit=") + unit, number;
        EXPECT_EQ(send("GET", "threshold-min-max" + query),
                  data("\"rateUnit\":\"" + std::string(unit) + "\",\"minThreshold\":" + std::to_string(lowest) +
                       ",\"maxThreshold\":" + std::to_string(highest)));
        for (long long value : {lowest - 1, lowest, highest, highest + 1}) {
            number = "\"threshold\":" + std::to_string(value);
            bool allowed = value < 0 || (value >= lowest && value <= highest); /* what is negative arrives as 0 */
            EXPECT_EQ(send("PUT", "threshold" + query, R"({"stormCtrlMode":"unicast",)" + number + "}"),
                      allowed ? successLine() : failureLine(10003)) << unit << value;
        }
    }
}

TEST_F(StormControl, readsTheUnitFromTheQuery)
{
    const std::string digits(40, '1');
    expectRows({
        {"GET", "threshold-min-max?rateUnit=kbps&x=1", "",
         "ThresholdMinMaxGet unit=3 min=0 max=0 -> 0 min=64 max=1000000",
         data(R"("rateUnit":"kbps","minThreshold":64,"maxThreshold":1000000)")},
        {"GET", "threshold-min-max?rateUnit=2", "", "ThresholdMinMaxGet unit=2 min=0 max=0 -> 0 min=0 max=1488095",
         data(R"("rateUnit":"pps","minThreshold":0,"maxThreshold":1488095)")},
        {"GET", "threshold-min-max?xrateUnit=pps", "", "ThresholdMinMaxGet unit=0 min=0 max=0 -> -22", failure(10003)},
        {"GET", "threshold-min-max?rateUnit=Kbps", "", "ThresholdMinMaxGet unit=0 min=0 max=0 -> -22", failure(10003)},
        {"GET", "threshold-min-max?rateUnit=kbps0123456789012345678901234567890123456789", "",
         "ThresholdMinMaxGet unit=0 min=0 max=0 -> -22", failure(10003)},
        {"GET", "threshold-min-max?rateUnit=" + std::string(30, '0') + "34", "", /* 31 characters of it are read */
         "ThresholdMinMaxGet unit=3 min=0 max=0 -> 0 min=64 max=1000000",
         data(R"("rateUnit":"kbps","minThreshold":64,"maxThreshold":1000000)")},
        {"PUT", "threshold", R"({"stormCtrlMode":"unicast","rateUnit":"pps","threshold":9})",
         "ThresholdSet type=1 unit=0 threshold=9 -> -22", failureLine(10003)},
    });
    fault("ThresholdMinMaxGet", "code=0 min=4294967295 max=4294967294");
    EXPECT_EQ(send("GET", "threshold-min-max?rateUnit=7"),
              data(R"("rateUnit":"none","minThreshold":4294967295,"maxThreshold":4294967294)"));
    fault("ThresholdGet", "code=0 unit=4");
    EXPECT_EQ(threshold("unicast"), data(R"("stormCtrlMode":"unicast","rateUnit":"none","threshold":0)"));
}

TEST_F(StormControl, leavesUnknownWordsToTheSwitch)
{
    for (const char *name : {"mode", "threshold-default", "intf-mode", "intf-threshold-default", "action",
        "action-intf",
                             "threshold", "intf-threshold"})
        expectRow({"PUT", name, "{", "", failureLine(10003)});
    expectRows({
        {"PUT", "intf-mode", R"({"stormCtrlMode":"Broadcast","interface":-4,"state":1})",
         "IntfModeSet type=0 ifNum=0 state=0 -> -22", failureLine(10003)},
        {"PUT", "intf-threshold?interface=3", R"({"stormCtrlMode":2,"threshold":-5,"interface":"3"})",
         "IntfThresholdSet type=0 ifNum=0 unit=0 threshold=0 -> -22", failureLine(10003)},
        {"PUT", "intf-threshold-default", R"({"stormCtrlMode":"unicast","interface":5000000000})",
         "IntfThresholdDefaultSet type=1 ifNum=4294967295 -> -22", failureLine(10003)},
        {"PUT", "threshold-default", "{}", "ThresholdDefaultSet type=0 -> -22", failureLine(10003)},
        {"GET", "mode", "", "ModeGet type=0 state=0 -> -22", failure(10003)},
        {"GET", "intf-mode?stormCtrlMode=unicast&interface=29", "", "IntfModeGet type=1 ifNum=29 state=0 -> -22",
         failure(10003)},
        {"GET", "threshold?stormCtrlMode=none", "", "ThresholdGet type=0 unit=0 threshold=0 -> -22", failure(10003)},
        {"GET", "intf-threshold?stormCtrlMode=unicast", "", "IntfThresholdGet type=1 ifNum=0 unit=0 threshold=0 -> -22",
         failure(10003)},
        {"GET", "action?stormCtrlMode=", "", "ActionGet type=0 action=0 -> -22", failure(10003)},
        {"GET", "action-intf", "", "rpcclt_openapiSwDevCtrlBcastStormControlActionIntfGet ifNum=0 action=0 -> -22",
         failure(10003)},
        {"PUT", "action-intf?interface=3", R"({"action":"shutdown"})",
         "rpcclt_openapiSwDevCtrlBcastStormControlActionIntfSet ifNum=0 action=1 -> -22", failureLine(10003)},
    });
    fault("ModeGet", "code=0 state=2");
    EXPECT_EQ(send("GET", "mode"), data(R"("stormCtrlMode":"none","state":"disable")"));
    fault("ActionGet", "code=0 action=4");
    EXPECT_EQ(send("GET", "action?stormCtrlMode=multicast"), data(R"("stormCtrlMode":"multicast","action":"none")"));
}

class ProtectedPort : public FamilyTest {
protected:
    ProtectedPort() : FamilyTest("protectedport/", "rpcclt_openapiProtectedPort") {}
    static std::string data(const std::string &members) { return success("\"protectedport\":{" + members + "}"); }
};

TEST_F(ProtectedPort, namesGroups)
{
    const std::string longest(32, 'n');
    expectRows({
        {"POST", "max-groups", "", "MaxGroups maxGroups=0 -> 0 maxGroups=3", data(R"("maxGroupNum":3)")},
        {"PUT", "group-name?groupId=2", R"({"groupName":"north","groupId":3})",
         R"(GroupNameSet groupId=2 name=[6]"north" -> 0 name=[6]"north")", successLine()},
        {"GET", "group-name?xgroupId=1&groupId=2", "", R"(GroupNameGet groupId=2 name=[49]"" -> 0 name=[49]"north")",
         data(R"("groupName":"north")")},
        {"GET", "group-name?groupId=3", "", R"(GroupNameGet groupId=3 name=[49]"" -> 0 name=[49]"")",
         data(R"("groupName":"")")},
        {"GET", "group-name", "", R"(GroupNameGet groupId=0 name=[49]"" -> -22)", failure(10003)},
        {"PUT", "group-name?groupId=3", R"({"GROUPNAME":")" + longest + "\"}",
         "GroupNameSet groupId=3 name=[33]\"" + longest + "\" -> 0 name=[33]\"" + longest + "\"", successLine()},
        {"PUT", "group-name?groupId=3", R"({"groupName":"x)" + longest + "\"}",
         "GroupNameSet groupId=3 name=[34]\"x" + longest + "\" -> -22", failureLine(10003)},
        {"PUT", "group-name?groupId=4", R"({"groupName":""})", R"(GroupNameSet groupId=4 name=[1]"" -> -22)",
         failureLine(10003)},
        {"PUT", "group-name?groupId=2", R"({"groupName":7})", "", failureLine(10003)},
        {"PUT", "group-name?groupId=2", R"({"name":"x"})", "", failureLine(10003)},
        {"PUT", "group-name?groupId=2", "north", "", failureLine(10003)},
    });
    EXPECT_EQ(send("GET", "group-name?groupId=3"), data("\"groupName\":\"" + longest + "\""));
    fault("MaxGroups", "code=-28"); /* answers a success as readers do, a failure as writers do */
    EXPECT_EQ(send("POST", "max-groups"), failureLine(17002));
}

TEST_F(ProtectedPort, keepsMembers)
{
    expectRows({
        {"POST", "group-intf?ifNum=9&groupId=2", R"({"ifNum":3,"groupId":1})", "GroupIntfAdd ifNum=9 groupId=2 -> 0",
         successLine()},
        {"POST", "group-intf?groupId=2&ifNum=4", "", "GroupIntfAdd ifNum=4 groupId=2 -> 0", successLine()},
        {"POST", "group-intf?groupId=1&ifNum=5", "", "GroupIntfAdd ifNum=5 groupId=1 -> 0", successLine()},
        {"POST", "group-intf?ifNum=9&groupId=2", "", "GroupIntfAdd ifNum=9 groupId=2 -> -24", failureLine(10011)},
        {"POST", "group-intf?ifNum=9&groupId=3", "", "GroupIntfAdd ifNum=9 groupId=3 -> -1", failureLine(10000)},
        {"POST", "group-intf?ifNum=9&groupId=4", "", "GroupIntfAdd ifNum=9 groupId=4 -> -22", failureLine(10003)},
        {"POST", "group-intf", R"({"ifNum":3,"groupId":1})", "GroupIntfAdd ifNum=0 groupId=0 -> -22",
         failureLine(10003)},
        {"GET", "group?ifNum=5", "", "GroupGet ifNum=5 groupId=0 -> 0 groupId=1", data(R"("groupId":1)")},
        {"GET", "group?ifNum=6", "", "GroupGet ifNum=6 groupId=0 -> -1", failure(10000)},
        {"GET", "group?groupId=1", "", "GroupGet ifNum=0 groupId=0 -> -22", failure(10003)},
        {"GET", "group-intf-count?groupId=2", "", "GroupIntfCountGet groupId=2 count=0 -> 0 count=2",
         data(R"("intfCount":2)")},
        {"GET", "group-intf-count", "", "GroupIntfCountGet groupId=0 count=0 -> -22", failure(10003)},

        {"GET", "next-group", "",
         "NextGroupGet ifNum=0 groupId=0 nextIfNum=0 nextGroupId=0 -> 0 nextIfNum=4 nextGroupId=2",
         data(R"("nextIfNum":4,"nextGroupId":2)")},
        {"GET", "next-group?ifNum=4&groupId=2", "",
         "NextGroupGet ifNum=4 groupId=2 nextIfNum=0 nextGroupId=0 -> 0 nextIfNum=5 nextGroupId=1",
         data(R"("nextIfNum":5,"nextGroupId":1)")},
        {"GET", "next-group?groupId=1&ifNum=5", "",
         "NextGroupGet ifNum=5 groupId=1 nextIfNum=0 nextGroupId=0 -> 0 nextIfNum=9 nextGroupId=2",
         data(R"("nextIfNum":9,"nextGroupId":2)")},
        {"GET", "next-group?ifNum=9&groupId=2", "", "NextGroupGet ifNum=9 groupId=2 nextIfNum=0 nextGroupId=0 -> -1",
         failure(10000)},

        {"DELETE", "group-intf?ifNum=9&groupId=1", "", "GroupIntfDelete ifNum=9 groupId=1 -> -1", failureLine(10000)},
        {"DELETE", "group-intf?ifNum=9&groupId=2", "", "GroupIntfDelete ifNum=9 groupId=2 -> 0", successLine()},
        {"DELETE", "group-intf?xifNum=4&groupId=2", "", "GroupIntfDelete ifNum=0 groupId=2 -> -22", failureLine(10003)},
        {"GET", "group-intf-list?groupId=2", "",
         std::string("rpcclt_openapiProtectedPortGroupIntfCountGet groupId=2 count=0 -> 0 count=1\n") +
         R"(rpcclt_openapiProtectedPortGroupIntfListGet groupId=2 intfList=[1024]"" -> 0 intfList=[1024]"4")",
         data(R"("intfList":"4")")},
    });
}

TEST_F(ProtectedPort, listsAnyNumberOfMembers)
{
    startSwitch({"--ports", "128"});
    for (int port = 2; port <= 128; port += 2)
        send("POST", "group-intf?groupId=3&ifNum=" + std::to_string(port));
    std::string ports;
    for (int port = 2; port <= 128; port += 2)
        ports += (ports.empty() ? "" : ",") + std::to_string(port);
    const std::string count = "rpcclt_openapiProtectedPortGroupIntfCountGet groupId=3 count=0 -> ",
                      list = "rpcclt_openapiProtectedPortGroupIntfListGet groupId=3 intfList=";
    expectRow({"GET", "group-intf-list?groupId=3", "",
               count + "0 count=64\n" + list + "[1025]\"\" -> 0 intfList=[1025]\"" + ports + "\"",
               data("\"intfList\":\"" + ports + "\"")});

    /* 16 bytes for each member and one more, 1024 at least; a list longer than can be stated is not asked for. */
    for (auto [members, size] : {std::pair("63", "1024"), {"100", "1601"}}) {
        fault("GroupIntfCountGet", std::string("code=0 count=") + members);
        fault("GroupIntfListGet", "code=0 intfList=1-3");
        expectRow({"GET", "group-intf-list?groupId=3", "",
                   count + "0 count=" + members + "\n" + list + "[" + size + "]\"\" -> 0 intfList=[" + size +
                       "]\"1-3\"",
                   data(R"("intfList":"1-3")")});
    }
    fault("GroupIntfListGet", "code=-22");
    EXPECT_EQ(send("GET", "group-intf-list?groupId=3"), failure(10003));
    fault("GroupIntfCountGet", "code=0 count=4294967295");
    expectRow({"GET", "group-intf-list?groupId=3", "", count + "0 count=4294967295", failure(10000)});
    fault("GroupIntfCountGet", "code=-24");
    expectRow({"GET", "group-intf-list?groupId=3", "", count + "-24", failure(10011)});
}

class LoopProtect : public FamilyTest {
protected:
    LoopProtect() : FamilyTest("loop-protect/", "rpcclt_openapiLoopProtect") {}
    static std::string data(const std::string &members) { return success("\"loopProtect\":{" + members + "}"); }

    /* What port 3, which has the loop, counts: frames sent, received, loops. */
    std::string counters()
    {
        std::string text;
        for (const char *name : {"port-packet-tx-count", "port-packet-rx-count", "portloop-detect-count"}) {
            std::string answer = send("GET", std::string(name) + "?ifNum=3");
            size_t at = answer.find("ount\":\t") + 7;
            text += (text.empty() ? "" : " ") + answer.substr(at, answer.find('\n', at) - at);
        }
        return text;
    }
};

TEST_F(LoopProtect, keepsTheNumbersOfTheSwitch)
{
    const struct { const char *endpoint, *operation, *parameter, *key, *value; } rows[] = {
        {"admin-mode", "AdminMode", "mode", "adminMode", "0"},
        {"tx-timer", "TxTimer", "timer", "timerVal", "7"},
        {"max-pdu-receive", "MaxPduReceive", "frames", "val", "8"},
        {"disable-timer", "DisableTimer", "timer", "val", "604800"},
    };
    for (auto [endpoint, operation, parameter, key, value] : rows) {
        std::string get = operation + std::string("Get ") + parameter,
            set = operation + std::string("Set ") + parameter;
        std::string capitals = key;
        capitals[0] = (char)toupper(capitals[0]);
        auto body = [&](const std::string &number) { return "{\"" + capitals + "\":" + number + "}"; };
        expectRows({
            {"PUT", endpoint, body(value), set + "=" + value + " -> 0", successLine()},
            {"GET", endpoint, "", get + "=0 -> 0 " + parameter + "=" + value,
             data(std::string("\"") + key + "\":" + value)},
            {"PUT", endpoint, body("-1"), set + "=4294967295 -> -22", failureLine(10003)},
            {"PUT", endpoint, body("5000000000"), set + "=2147483647 -> -22", failureLine(10003)},
            {"PUT", endpoint, "", "", failureLine(10003)},
        });
        fault(operation + std::string("Set"), "code=-24");
        for (std::string wrong : {body("\"5\""), body("true"), std::string("{}")})
            expectRow({"PUT", endpoint, wrong, set + "=0 -> -24", failureLine(10011)});
        fault(operation + std::string("Get"), "code=-28");
        EXPECT_EQ(send("GET", endpoint), failure(17002));
        fault(operation + std::string("Get"), "code=0 " + std::string(parameter) + "=4294967295");
        EXPECT_EQ(send("GET", endpoint), data(std::string("\"") + key + "\":4294967295"));
    }
}

TEST_F(LoopProtect, keepsTheNumbersOfAPort)
{
    const struct { const char *endpoint, *operation, *parameter, *value, *before; } rows[] = {
        {"port-tx-mode", "PortTxMode", "mode", "0", "1"},
        {"port-admin-mode", "PortAdminMode", "mode", "1", "0"},
        {"port-action", "PortAction", "action", "3", "2"},
    };
    for (auto [endpoint, operation, parameter, value, before] : rows) {
        std::string url = endpoint + std::string("?xifNum=5&ifNum="), output = parameter + std::string("=");
        std::string get = operation + std::string("Get ifNum="), set = operation + std::string("Set ifNum=");
        expectRows({
            {"PUT", url + "7", "{\"mode\":" + std::string(value) + R"(,"ifNum":5})",
             set + "7 " + output + value + " -> 0", successLine()},
            {"GET", url + "7", "", get + "7 " + output + "0 -> 0 " + output + value,
             data(std::string("\"mode\":") + value)},
            {"GET", url + "5", "", get + "5 " + output + "0 -> 0 " + output + before,
             data(std::string("\"mode\":") + before)},
            {"PUT", endpoint, R"({"mode":1,"ifNum":5})", set + "0 " + output + "1 -> -22", failureLine(10003)},
            {"PUT", url + "7", R"({"mode":-1.5})", set + "7 " + output + "4294967295 -> -22", failureLine(10003)},
            {"PUT", url + "7", "mode=1", "", failureLine(10003)},
            {"GET", url + "29", "", get + "29 " + output + "0 -> -22", failure(10003)},
        });
        fault(operation + std::string("Set"), "code=0");
        expectRow({"PUT", url + "7", R"({"mode":"1"})", set + "7 " + output + "0 -> 0", successLine()});
    }
    expectRows({
        {"GET", "port-vlan-properties?ifNum=7", "",
         "PortVlanPropertiesGet ifNum=7 tpid=0 vlanId=0 -> 0 tpid=33024 vlanId=0",
         data(R"("tpid":33024,"vlanId":0)")},
        {"PUT", "port-vlan-properties?vlanId=4094&ifNum=7", R"({"tpid":34984,"vlanId":5,"ifNum":6})",
         "PortVlanPropertiesSet ifNum=7 tpid=34984 vlanId=4094 -> 0", successLine()},
        {"GET", "port-vlan-properties?ifNum=7", "",
         "PortVlanPropertiesGet ifNum=7 tpid=0 vlanId=0 -> 0 tpid=34984 vlanId=4094",
         data(R"("tpid":34984,"vlanId":4094)")},
        {"PUT", "port-vlan-properties?ifNum=7", R"({"tpid":"34984","vlanId":5})",
         "PortVlanPropertiesSet ifNum=7 tpid=0 vlanId=0 -> -22", failureLine(10003)},
        {"PUT", "port-vlan-properties?ifNum=7&vlanId=4095", R"({"tpid":34984})",
         "PortVlanPropertiesSet ifNum=7 tpid=34984 vlanId=4095 -> -22", failureLine(10003)},
        {"PUT", "port-vlan-properties?ifNum=7", "", "", failureLine(10003)},
        {"GET", "port-vlan-properties", "", "PortVlanPropertiesGet ifNum=0 tpid=0 vlanId=0 -> -22", failure(10003)},
    });
}

TEST_F(LoopProtect, walksItsPorts)
{
    const std::string yes = data(R"("status":"true")"), no = data(R"("status":"false")");
    expectRows({
        {"GET", "valid-intf-first", "", "ValidIntfFirstGet first=0 -> 0 first=1", data(R"("ifNum":1)")},
        {"GET", "valid-intf-next?ifNum=1", "", "ValidIntfNextGet ifNum=1 next=0 -> 0 next=2", data(R"("nextIfNum":2)")},
        {"GET", "valid-intf-next?nextifNum=3", "", "ValidIntfNextGet ifNum=0 next=0 -> 0 next=1",
         data(R"("nextIfNum":1)")},
        {"GET", "valid-intf-next?ifNum=28", "", "ValidIntfNextGet ifNum=28 next=0 -> -1", failure(10000)},
        {"POST", "is-valid-intf?ifNum=28", R"({"ifNum":29})", "IsValidIntf ifNum=28 flag=0 -> 0 flag=1", yes},
        {"POST", "is-valid-intf", R"({"ifNum":28})", "IsValidIntf ifNum=0 flag=0 -> 0 flag=0", no},
    });
    fault("ValidIntfFirstGet", "code=-1");
    EXPECT_EQ(send("GET", "valid-intf-first"), failure(10000));
}

TEST_F(LoopProtect, readsWhatAPortCounts)
{
    const struct { const char *method, *endpoint, *operation, *output, *key; } rows[] = {
        {"GET", "portloop-detect-count", "PortloopDetectCountGet", "count", "loopCount"},
        {"GET", "port-packet-tx-count", "PortPacketTxCountGet", "count", "count"},
        {"GET", "port-packet-rx-count", "PortPacketRxCountGet", "count", "count"},
        {"GET", "port-time-since-last-loop", "PortTimeSinceLastLoopGet", "time", "timeVal"},
        {"POST", "is-loop-detected", "IsLoopDetected", "flag", nullptr},
        {"POST", "is-port-disabled", "IsPortDisabled", "flag", nullptr},
    };
    long long value = 4294967295;
    for (auto [method, endpoint, operation, output, key] : rows) {
        std::string number = std::to_string(value--), url = endpoint + std::string("?nextifNum=2&ifNum=");
        std::string asked = operation + std::string(" ifNum="), preset = std::string(" ") + output + "=0";
        if (std::string(output) == "time")
            preset += " zero=0";
        if (!key)
            number = "2"; /* only 1 is yes */
        std::string answer = key ? "\"" + std::string(key) + "\":" + number : R"("status":"false")";
        fault(operation, "code=0 times=1 " + std::string(output) + "=" + number);
        expectRow({method, url + "7", R"({"ifNum":8})", asked + "7" + preset + " -> 0 " + output + "=" + number,
                   data(answer)});
        expectRow({method, url + "29", "", asked + "29" + preset + " -> -22",
                   key ? failure(10003) : failureLine(10003)});
    }
}

TEST_F(LoopProtect, countsTheLoopOnPort3)
{
    const std::string yes = data(R"("status":"true")"), no = data(R"("status":"false")");
    send("PUT", "port-tx-mode?ifNum=3", R"({"mode":0})"); /* nothing moves while we look; one went out at the start */
    EXPECT_EQ(counters(), "1 1 1");
    EXPECT_EQ(send("POST", "is-loop-detected?ifNum=3"), yes);
    EXPECT_EQ(send("POST", "is-loop-detected?ifNum=2"), no);
    EXPECT_EQ(send("POST", "is-port-disabled?ifNum=3"), no);
    send("PUT", "tx-timer", R"({"timerVal":10})");
    send("PUT", "port-tx-mode?ifNum=3", R"({"mode":1})");
    tell("pass 41"); /* one at once, and four more */
    send("PUT", "port-tx-mode?ifNum=3", R"({"mode":0})");
    EXPECT_EQ(counters(), "6 6 6");
    EXPECT_THAT(send("GET", "port-time-since-last-loop?ifNum=3"), testing::ContainsRegex("\"timeVal\":\t[1-9]"));

    send("PUT", "port-admin-mode?ifNum=2", R"({"mode":1})"); /* sends one at once */
    expectRows({
        {"DELETE", "port-stats?ifNum=3", "", "PortStatsClear ifNum=3 -> 0", successLine()},
        {"DELETE", "port-stats", R"({"ifNum":3})", "PortStatsClear ifNum=0 -> -22", failureLine(10003)},
    });
    EXPECT_EQ(counters(), "0 0 0");
    EXPECT_EQ(send("POST", "is-loop-detected?ifNum=3"), no);
    EXPECT_EQ(send("GET", "port-packet-tx-count?ifNum=2"), data(R"("count":1)"));
    EXPECT_EQ(send("GET", "port-packet-rx-count?ifNum=2"), data(R"("count":0)"));
    expectRow({"DELETE", "all-stats", "", "AllStatsClear -> 0", successLine()});
    EXPECT_EQ(send("GET", "port-packet-tx-count?ifNum=2"), data(R"("count":0)"));
    fault("AllStatsClear", "code=-22");
    EXPECT_EQ(send("DELETE", "all-stats"), failureLine(10003));
}

TEST_F(LoopProtect, shutsTheLoopedPortDown)
{
    const std::string yes = data(R"("status":"true")"), no = data(R"("status":"false")");
    send("PUT", "port-tx-mode?ifNum=3", R"({"mode":0})");
    send("PUT", "tx-timer", R"({"timerVal":10})");
    send("PUT", "max-pdu-receive", R"({"val":3})");
    send("PUT", "disable-timer", R"({"val":600})");
    send("PUT", "port-action?ifNum=3", R"({"mode":1})");
    send("DELETE", "all-stats");
    send("PUT", "port-tx-mode?ifNum=3", R"({"mode":1})");
    tell("pass 14"); /* two frames: not yet */
    EXPECT_EQ(send("POST", "is-port-disabled?ifNum=3"), no);
    tell("pass 300");
    EXPECT_EQ(counters(), "3 3 1");
    EXPECT_EQ(send("POST", "is-port-disabled?ifNum=3"), yes);
    tell("pass 307"); /* it is up again, and sent one */
    EXPECT_EQ(send("POST", "is-port-disabled?ifNum=3"), no);
    EXPECT_EQ(counters(), "4 4 1");

    send("PUT", "disable-timer", R"({"val":0})");
    tell("pass 1000000"); /* for good */
    EXPECT_EQ(send("POST", "is-port-disabled?ifNum=3"), yes);
    send("PUT", "admin-mode", R"({"adminMode":0})");
    EXPECT_EQ(send("POST", "is-port-disabled?ifNum=3"), no);
    EXPECT_EQ(counters(), "6 6 2");
}
