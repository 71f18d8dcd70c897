/*
 * memory_test.cpp - each allocation of a request fails once.
 */
#include "tests/program/program_test.h"

/* One request, and the call and the answer it leads to. */
struct Exchange {
    const char *method;
    std::string target;   /* below /api/v2/switching/, with its query */
    std::string body;
    std::string asked;    /* the line of the trace */
    std::string answered; /* the body of the answer */
};

class MemoryFault : public ProgramTest {
protected:
    /* Runs the request; its `n`th allocation fails. False: it has fewer. */
    bool failAllocation(int n, const Exchange &exchange)
    {
        put(tmp("session/token"), FILE_OF, "admin\n0\ntoken");
        put(tmp(LEVEL_FILE), FILE_OF, "7");
        std::filesystem::remove(tmp("allocation-failed"));
        takeTrace();
        Environment environment = request(exchange.method, exchange.target, exchange.body);
        environment["SANDBOX_FAIL_ALLOCATION"] = std::to_string(n);
        Outcome outcome = run(environment, exchange.body);
        expectRightOrNothing(outcome, exchange, takeTrace());
        expectSessionIsWhole();
        return exists(tmp("allocation-failed"));
    }

    /*
     * The program answers correctly; or that the body is invalid; or only the header; or nothing, and ends with status 1.
     * The log says why. Or it refuses the request. The switch gets the right call or none.
     */
    void expectRightOrNothing(const Outcome &outcome, const Exchange &exchange, const std::string &asked)
    {
        const std::string &output = outcome.output, right = header + exchange.answered;
        bool invalid = !exchange.body.empty() && output == header + failureLine(10003);
        EXPECT_EQ(outcome.errors, "");
        EXPECT_TRUE(asked == exchange.asked || (asked.empty() && output != right)) << asked;
        bool refusal = asked.empty() && (invalid || output == refused);
        EXPECT_TRUE(output == right || output == header || output == "" || refusal) << output;
        /* the builder with a fixed buffer logs only a failed print: established behaviour */
        bool inFixedBuffer = exchange.answered == success("");
        const std::string logged = log() + readFile(tmp(LOG_FILE ".old"));
        EXPECT_TRUE((output != header && !invalid) || (inFixedBuffer && !asked.empty()) ||
                    logged.find("] [MEM] Failed to ") != std::string::npos) << logged;
        EXPECT_TRUE(outcome.exitStatus == 0 || (outcome.exitStatus == 1 && asked.empty() && output == ""))
            << outcome.exitStatus << ", signal " << outcome.signal;
    }
};

TEST_F(MemoryFault, failsAtEveryAllocation)
{
    const struct { const char *operation, *fault; Exchange exchange; } rows[] = {
        {"Dot1dStpPriorityGet", "value=32768", {"GET", priority, "", "value=0 -> 0 value=32768", priorityData}},
        {"VlanVIDListGet", "numOfElements=3 vidList=10,20,30",
         {"GET", "vlan/vid-list?intfNum=3", "",
          "ifNum=3 vidList=0() numOfElements=0 -> 0 vidList=3(10 20 30) numOfElements=3",
          success(R"("vlan":{"numOfElements":3,"vidList":[10,20,30]})")}},
        {"MvrpVlanArrayGet", "vlans=10,20 count=2",
         {"GET", "mvrp/vlan-array?vlanType=1", "", "vlanType=1 vlans=0() count=0 -> 0 vlans=2(10 20) count=2",
          success(R"("mvrp":{"vlanList":{"numEntries":2,"ids":[10,20]},"count":2})")}},
        {"DbDot1dTpAgingTimeSet", "",
         {"PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingTime": 400})", "seconds=400 -> 0", successLine()}},
        {"Dot1qSwPortTrunkAllowedVlanListSet", "",
         {"PUT", "vlan/dot1q-sw-port-trunk-allowed-vlan-list", R"({"intf": 2, "vidList": [10, 20]})",
          "ifNum=2 vidList=2(10 20) -> 0 vidList=2(10 20)", success("")}},
        /* no default for a parameter that was lost: it would mean another database, or VLAN */
        {"FdbAddrAgingTimeoutGet", "timeOut=77",
         {"GET", "fdb/addr-aging-timeout?a&b&c&d&e&f&g&h&i&j&k&fdbId=2", "", "fdbId=2 timeOut=0 -> 0 timeOut=77",
          success(R"("fdb":{"timeOut":77})")}},
        {"Dot1qApiPrivateVlanAssocRemove", "",
         {"DELETE", R"(vlan/dot1q-api-private-vlan-assoc?{"vidList":[10]})", "",
          "primaryVid=0 secondaryVidList=1(10) -> 0", success("")}},
        {"MacalRuleIsServicePortSet", "flag=1",
         {"PUT", "macal/rule-is-service-port", "macalName=mgmt&macalRulePrio=2",
          R"(macalName=[256]"mgmt" priority=2 flag=0 -> 0 macalName=[256]"mgmt" flag=1)",
          success(R"("macal":{"isRuleForServicePort":true})")}},
        {"ProtectedPortGroupNameSet", "",
         {"PUT", "protectedport/group-name?groupId=2", R"({"groupName":"lab"})",
          R"(groupId=2 name=[4]"lab" -> 0 name=[4]"lab")", successLine()}},
        {"VlanMacOuiVlanNextGet", "nextOui=00:11:22 vlanId=5",
         {"GET", "vlan/mac-oui-vlan-next?oui=00%3A11%3A21", "",
          R"(oui=[8]"00:11:21" nextOui=[64]"" vlanId=0 -> 0 oui=[8]"00:11:21" nextOui=[64]"00:11:22" vlanId=5)",
          success(R"("vlan":{"nextOui":"00:11:22","vlanId":5})")}},
    };
    for (auto [operation, fault, exchange] : rows) {
        command(std::string("fault " OP) + operation + " code=0 " + fault);
        exchange.asked = std::string(OP) + operation + " " + exchange.asked;
        int n = 1;
        for (; failAllocation(n, exchange) && n < 5000; n++)
            ASSERT_FALSE(HasFailure()) << operation << ", allocation " << n;
        EXPECT_TRUE(n > 10 && n < 5000) << n;
        EXPECT_EQ(send(exchange.method, exchange.target, exchange.body), exchange.answered);
    }
}
