/*
 * registration_test.cpp - the registration protocols (GARP with GMRP and GVRP, MVRP, MMRP) through the real program,
 * and the service VLANs that are not offered.
 */
#include <array>
#include <sstream>

#include "tests/support/family_rows.h"

#define OP "rpcclt_openapi"

static const Family garp = {"garp/", OP "Garp", "garp"};
static const Family mvrp = {"mvrp/", OP "Mvrp", "mvrp"};
static const Family mmrp = {"mmrp/", OP "Mmrp", "mmrp"};

class Registration : public SwitchTest {
protected:
    /* What is made of the value that OpEN returns, "name=value", and of a failure. */
    void expectRead(const Family &family, Text target, Text asked, Text returned, Text data)
    {
        std::string fault = "fault " + family.operations + asked.substr(0, asked.find(' ')) + " times=1 code=";
        std::string sent = asked + " " + returned.substr(0, returned.find('=')) + "=0 -> ";
        tell(fault + "0 " + returned);
        expect(family.get(target, sent + "0 " + returned, data));
        tell(fault + "-24");
        expect(family.get(target, sent + "-24"));
    }
};

TEST_F(Registration, enables)
{
    const char *on = R"("enable")", *off = R"("disable")";
    const std::string port = R"({"intIfNum":7,"ifNum":7)";
    /* One family's setter takes the port from the body, and only from there. */
    const struct { const Family &family; std::string target, operation, key, get, set; } rows[] = {
        {garp, "gmrp-enable", "GmrpEnable", "globalGmrpStatus", "", ""},
        {garp, "gvrp-enable", "GvrpEnable", "globalGvrpStatus", "", ""},
        {garp, "gmrp-port-enable?xifNum=4&ifNum=6", "GmrpPortEnable", "intfGmrpStatus", " ifNum=6", " ifNum=6"},
        {garp, "gvrp-port-enable?xifNum=4&ifNum=6", "GvrpPortEnable", "intfGvrpStatus", " ifNum=6", " ifNum=6"},
        {mvrp, "mode", "Mode", "mode", "", ""},
        {mvrp, "periodic-state-machine-mode", "PeriodicStateMachineMode", "mode", "", ""},
        {mvrp, "intf-mode?xintIfNum=4&intIfNum=6", "IntfMode", "mode", " intIfNum=6", " intIfNum=6"},
        {mmrp, "mode", "Mode", "mmrpMode", "", ""},
        {mmrp, "periodic-state-machine-mode", "PeriodicStateMachineMode", "mmrpPeriodicStateMachineMode", "", ""},
        {mmrp, "intf-mode?xifNum=4&ifNum=6", "IntfMode", "mmrpIntfMode", " ifNum=6", " ifNum=7"},
    };
    for (const auto &[family, target, operation, key, ofGet, ofSet] : rows) {
        std::string get = operation + "Get" + ofGet, set = operation + "Set" + ofSet + " flag=";
        expectRead(family, target, get, "flag=0", member(key, off));
        expectRead(family, target, get, "flag=1", member(key, on));
        expectRead(family, target, get, "flag=2", member(key, &family == &mvrp ? on : off));
        for (auto [word, flag] : {std::pair{on, "1"}, {off, "0"}, {R"("Enable")", "0"}, {"true", "0"}})
            expect(family.put(target, port + "," + member(key, word) + "}", set + flag + " -> 0"));
        expect(family.put(target, port + "}", set + "0 -> 0"));
        expect(family.put(target, "enable", ""));
        tell("fault " + family.operations + operation + "Set code=-24");
        expect(family.put(target, port + "," + member(key, on) + "}", set + "1 -> -24"));
    }
    for (auto [number, sent] : {std::pair{"true", "1"}, {"-1", "4294967295"}, {"\"7\"", "0"}, {"1e300", "2147483647"}})
        expect(mmrp.put("intf-mode", std::string(R"({"ifNum":)") + number + "}",
                        std::string("IntfModeSet ifNum=") + sent + " flag=0 -> -24"));
}

TEST_F(Registration, setsTheTimersOfAPort)
{
    const struct { std::string target, operation, key, initial, highest, tooHigh; } rows[] = {
        {"join-time?xifNum=4&ifNum=9", "JoinTime", "joinTime", "20", "100", "101"},
        {"leave-time?xifNum=4&ifNum=9", "LeaveTime", "leaveTime", "60", "600", "601"},
        {"leave-all-time?xifNum=4&ifNum=9", "LeaveAllTime", "leaveAllTime", "1000", "6000", "6001"},
    };
    for (const auto &[target, operation, key, initial, highest, tooHigh] : rows) {
        std::string get = operation + "Get ifNum=9", set = operation + "Set ifNum=9 time=";
        auto put = [set, at = target, name = key](Text json, Text sent) {
            return garp.put(at, "{" + member(name, json) + "}", set + sent);
        };
        expectAll({
            garp.get(target, get + " time=0 -> 0 time=" + initial, member(key, initial)),
            put(highest, highest + " -> 0"), put(tooHigh, tooHigh + " -> -22"), put("\"50\"", "0 -> -22"),
            put("true", "1 -> -22"), put("-1", "4294967295 -> -22"), put("3000000000", "2147483647 -> -22"),
            garp.put(target, "{}", set + "0 -> -22"), garp.put(target, "{", ""),
            garp.get(target, get + " time=0 -> 0 time=" + highest, member(key, highest)),
        });
        expectRead(garp, target, get, "time=4294967295", member(key, "4294967295"));
    }
}

TEST_F(Registration, readsAndClearsCounters)
{
    for (auto [target, operation, key] : std::initializer_list<std::array<std::string, 3>>{
             {"gmrp-receive-pdu-count", "GmrpReceivePDUCountGet", "gmrpPduRxCount"},
             {"gmrp-transmit-pdu-count", "GmrpTransmitPDUCountGet", "gmrpPduTxCount"},
             {"gmrp-failed-registrations", "GmrpFailedRegistrationsGet", "gmrpFailedRegistrations"},
             {"gvrp-receive-pdu-count", "GvrpReceivePDUCountGet", "gvrpPduRxCount"},
             {"gvrp-transmit-pdu-count", "GvrpTransmitPDUCountGet", "gvrpPduTxCount"},
             {"gvrp-failed-registrations", "GvrpFailedRegistrationsGet", "gvrpFailedRegistrations"}})
        expectRead(garp, target + "?xifNum=4&ifNum=3", operation + " ifNum=3", "count=3000000000",
                   member(key, "3000000000"));
    /* what the others read is signed */
    expectRead(mvrp, "traffic-pdu-counter?type=3", "TrafficPduCounterGet type=3", "value=4294967295",
               R"("counter":-1)");
    expectRead(mvrp, "intf-traffic-pdu-counter?type=5&intIfNum=4", "IntfTrafficPduCounterGet intIfNum=4 type=5",
               "value=2147483648", R"("counter":-2147483648)");
    expectRead(mmrp, "intf-counter?type=tx&ifNum=3&intIfNum=4", "IntfCounterGet ifNum=4 type=3", "value=4294967293",
               R"("counter":-3)");
    for (const auto &[query, type] : std::map<std::string, std::string>{
             {"type=rx", "0"}, {"type=rx_bad_header", "1"}, {"mytype=tx&type=rx_bad_format", "2"}, {"type=tx", "3"},
             {"type=tx_failure&x=1", "4"}, {"type=TX", "0"}, {"type=t%78", "0"}, {"type=" + std::string(80, 'x'), "0"}})
        expectRead(mmrp, "counter?" + query, "CounterGet type=" + type, "value=4294967294", R"("counter":-2)");

    const struct { const Family &family; std::string target, asked; } clears[] = {
        {mvrp, "traffic-counters-per-if?ifNum=3&intIfNum=4", "TrafficCountersPerIfClear intIfNum=4"},
        {mvrp, "traffic-global-counters", "TrafficGlobalCountersClear"},
        {mvrp, "traffic-counters", "TrafficCountersClear"},
        {mmrp, "intf-counters?ifNum=3&intIfNum=4", "IntfCountersClear ifNum=4"},
        {mmrp, "counters", "CountersClear"},
    };
    for (const auto &[family, target, asked] : clears)
        for (const std::string code : {"-24", "0"}) {
            tell("fault " + family.operations + asked.substr(0, asked.find(' ')) + " code=" + code);
            expect(family.del(target, asked + " -> " + code));
        }
}

TEST_F(Registration, listsMvrpInterfacesAndVlans)
{
    const std::string get = "VlanArrayGet vlanType=", ofPort = "IntfVlanArrayGet intIfNum=";
    const std::string sent = " vlans=0() count=0 -> ";
    send("POST", "vlan/create?vlanNum=20");
    send("PUT", "mvrp/mode", R"({"mode":"enable"})");
    send("PUT", "mvrp/intf-mode?intIfNum=2", R"({"mode":"enable"})");
    expectAll({
        mvrp.get("vlan-array", get + "0" + sent + "0 vlans=4(1 20 3002 3003) count=4",
                 R"("vlanList":{"numEntries":4,"ids":[1,20,3002,3003]},"count":4)"),
        mvrp.get("vlan-array?vlanType=3", get + "3" + sent + "-22"),
        mvrp.get("intf-vlan-array?vlanType=1&intIfNum=2", ofPort + "2 vlanType=1" + sent + "0 vlans=1(1) count=1",
                 R"("vlanList":{"numEntries":1,"ids":[1]},"count":1)"),
        mvrp.get("intf-vlan-array?vlanType=1", ofPort + "0 vlanType=1" + sent + "-22"),
        mvrp.get("is-valid-intf?ifNum=28", "IsValidIntfGet intIfNum=0 flag=0 -> 0 flag=0", R"("isValid":"false")"),
        mvrp.get("valid-intf-next?intIfNum=28", "ValidIntfNextGet intIfNum=28 next=0 -> -1"),
    });
    /* the list's own count and the count beside it are two things */
    tell("fault " OP "MvrpVlanArrayGet code=0 vlans=7,65535 count=4294967295");
    tell("fault " OP "MvrpIntfVlanArrayGet code=0 vlans=9 count=5");
    expectAll({
        mvrp.get("vlan-array?vlanType=2", get + "2" + sent + "0 vlans=2(7 65535) count=4294967295",
                 R"("vlanList":{"numEntries":2,"ids":[7,65535]},"count":-1)"),
        mvrp.get("intf-vlan-array", ofPort + "0 vlanType=0" + sent + "0 vlans=1(9) count=5",
                 R"("vlanList":{"numEntries":1,"ids":[9]},"count":5)"),
    });
    expectRead(mvrp, "is-valid-intf?intIfNum=28", "IsValidIntfGet intIfNum=28", "flag=2", R"("isValid":"true")");
    expectRead(mvrp, "valid-intf-next?intIfNum=8", "ValidIntfNextGet intIfNum=8", "next=4294967295",
               R"("nextIfNum":4294967295)");
}

TEST_F(Registration, offersNoServiceVlans)
{
    const char *reads = "service-name service-name-string service-type nni-intf-list subscription-first-intf-entry "
                        "subscription-next-intf-entry specific-subscription-next-intf-entry interface-type intf-next "
                        "subscription-name subscription-pkt-type interface-preserve-cvlan-dot1p service-remove-ctag "
                        "service-intf-match-cvid service-intf-match-svid service-intf-match-priority "
                        "subscription-nni-intf-list";
    const char *posts = "service service-index-get-first service-name service-name-to-svid service-index-get-next "
                        "service-vid-is-configured service-isolate-vid-is-configured subscription "
                        "reserve-current-subscription release-current-subscription";
    const char *puts = "service-type isolate-vid nni-intf-list interface-type subscription-name subscription-pkt-type "
                       "subscription-svid subscription-match-cvid subscription-match-svid subscription-match-priority "
                       "subscription-cvid subscription-remove-ctag subscription-nni-intf-list "
                       "interface-preserve-cvlan-dot1p";
    /* Readers answer without a line end, all others with one, whatever they are given. */
    auto expectNone = [&](const char *method, const char *names, Text answer) {
        std::istringstream words(names);
        for (std::string name; words >> name;)
            expect({method, "dot1ad/" + name + "?ifNum=1", method == std::string("PUT") ? "{no JSON" : "", "", answer});
    };
    expectNone("GET", reads, failure(17002));
    expectNone("POST", posts, failureLine(17002));
    expectNone("DELETE", "service subscription", failureLine(17002));
    expectNone("PUT", puts, failureLine(17002));
}
