/*
 * registration_test.cpp - the registration protocols (GARP with GMRP and GVRP, MVRP, MMRP) through the real program,
 * and the service VLANs that are not offered.
 */
#include <sstream>

#include "tests/support/family_rows.h"

class Registration : public SwitchTest {};

#define OP "rpcclt_openapi"

static const Family garp = {"garp/", OP "Garp", "garp"};
static const Family mvrp = {"mvrp/", OP "Mvrp", "mvrp"};
static const Family mmrp = {"mmrp/", OP "Mmrp", "mmrp"};

static std::string body(Text members)
{
    return "{" + members + "}";
}

TEST_F(Registration, enablesForTheSwitch)
{
    const struct { const Family &family; std::string target, operation, key; bool anyFlagEnables; } rows[] = {
        {garp, "gmrp-enable", "GmrpEnable", "globalGmrpStatus", false},
        {garp, "gvrp-enable", "GvrpEnable", "globalGvrpStatus", false},
        {mvrp, "mode", "Mode", "mode", true},
        {mvrp, "periodic-state-machine-mode", "PeriodicStateMachineMode", "mode", true},
        {mmrp, "mode", "Mode", "mmrpMode", false},
        {mmrp, "periodic-state-machine-mode", "PeriodicStateMachineMode", "mmrpPeriodicStateMachineMode", false},
    };
    for (const auto &[family, target, operation, key, anyFlagEnables] : rows) {
        std::string get = operation + "Get flag=0 -> ", set = operation + "Set flag=";
        std::string enabled = member(key, "\"enable\""), disabled = member(key, "\"disable\"");
        expectAll({
            family.get(target, get + "0 flag=0", disabled),
            family.put(target, body(enabled), set + "1 -> 0"),
            family.get(target, get + "0 flag=1", enabled),
            family.put(target, body(member(key, "\"Enable\"")), set + "0 -> 0"),
            family.get(target, get + "0 flag=0", disabled),
            family.put(target, body(member(key, "true")), set + "0 -> 0"),
            family.put(target, "{}", set + "0 -> 0"),
            family.put(target, "enable", ""),
        });
        tell("fault " + family.operations + operation + "Get code=0 flag=2 times=1");
        tell("fault " + family.operations + operation + "Set code=-24");
        expect(family.get(target, get + "0 flag=2", anyFlagEnables ? enabled : disabled));
        expect(family.put(target, body(enabled), set + "1 -> -24"));
        tell("fault " + family.operations + operation + "Get code=-29");
        expect(family.get(target, get + "-29"));
    }
}

TEST_F(Registration, enablesForAPort)
{
    const struct { const Family &family; std::string target, operation, port, key; bool anyFlagEnables; } rows[] = {
        {garp, "gmrp-port-enable", "GmrpPortEnable", "ifNum", "intfGmrpStatus", false},
        {garp, "gvrp-port-enable", "GvrpPortEnable", "ifNum", "intfGvrpStatus", false},
        {mvrp, "intf-mode", "IntfMode", "intIfNum", "mode", true},
        {mmrp, "intf-mode", "IntfMode", "ifNum", "mmrpIntfMode", false},
    };
    for (const auto &[family, target, operation, port, key, anyFlagEnables] : rows) {
        std::string get = operation + "Get " + port + "=", set = operation + "Set " + port + "=";
        std::string at = target + "?next" + port + "=4&" + port + "=";
        std::string enabled = member(key, "\"enable\""), disabled = member(key, "\"disable\"");
        /* One family's setter takes the port from the body, and only from there. */
        bool inBody = &family == &mmrp;
        auto put = [&, &on = family](Text number, Text word, Text outcome) {
            return on.put(at + (inBody ? "7" : number), body(member("ifNum", inBody ? number : "7") + "," + word),
                          set + number + outcome);
        };
        expectAll({
            put("6", enabled, " flag=1 -> 0"),
            put("29", enabled, " flag=1 -> -22"),
            family.get(at + "6", get + "6 flag=0 -> 0 flag=1", enabled),
            family.get(at + "5", get + "5 flag=0 -> 0 flag=0", disabled),
            family.get(target + "?x" + port + "=6", get + "0 flag=0 -> -22"),
            put("6", disabled, " flag=0 -> 0"),
            family.get(at + "6", get + "6 flag=0 -> 0 flag=0", disabled),
            family.put(at + "6", "", ""),
        });
        tell("fault " + family.operations + operation + "Get code=0 flag=2");
        expect(family.get(at + "5", get + "5 flag=0 -> 0 flag=2", anyFlagEnables ? enabled : disabled));
    }
}

TEST_F(Registration, setsTheTimersOfAPort)
{
    const struct { std::string target, operation, key, initial, lowest, highest, tooHigh; } rows[] = {
        {"join-time?ifNum=", "JoinTime", "joinTime", "20", "10", "100", "101"},
        {"leave-time?ifNum=", "LeaveTime", "leaveTime", "60", "20", "600", "601"},
        {"leave-all-time?ifNum=", "LeaveAllTime", "leaveAllTime", "1000", "200", "6000", "6001"},
    };
    for (const auto &[target, operation, key, initial, lowest, highest, tooHigh] : rows) {
        std::string get = operation + "Get ifNum=", set = operation + "Set ifNum=9 time=";
        expectAll({
            garp.get(target + "9", get + "9 time=0 -> 0 time=" + initial, member(key, initial)),
            garp.put(target + "9", body(member(key, highest)), set + highest + " -> 0"),
            garp.put(target + "9", body(member(key, tooHigh)), set + tooHigh + " -> -22"),
            garp.get(target + "9", get + "9 time=0 -> 0 time=" + highest, member(key, highest)),
            garp.put(target + "9", body(member(key, lowest)), set + lowest + " -> 0"),
            garp.get(target + "9", get + "9 time=0 -> 0 time=" + lowest, member(key, lowest)),
            garp.get(target + "8", get + "8 time=0 -> 0 time=" + initial, member(key, initial)),
            garp.put(target + "9", body(member(key, "\"50\"")), set + "0 -> -22"),
            garp.put(target + "9", body(member(key, "true")), set + "1 -> -22"),
            garp.put(target + "9", "{}", set + "0 -> -22"),
            garp.put(target + "9", "{", ""),
            garp.get(target, get + "0 time=0 -> -22"),
        });
        tell("fault " OP "Garp" + operation + "Get code=0 time=4294967295"); /* what is read is unsigned */
        expect(garp.get(target + "9", get + "9 time=0 -> 0 time=4294967295", member(key, "4294967295")));
    }
}

TEST_F(Registration, countsGarp)
{
    const struct { std::string target, operation, key, onPort3; } rows[] = {
        {"gmrp-receive-pdu-count", "GmrpReceivePDUCountGet", "gmrpPduRxCount", "33"},
        {"gmrp-transmit-pdu-count", "GmrpTransmitPDUCountGet", "gmrpPduTxCount", "43"},
        {"gmrp-failed-registrations", "GmrpFailedRegistrationsGet", "gmrpFailedRegistrations", "3"},
        {"gvrp-receive-pdu-count", "GvrpReceivePDUCountGet", "gvrpPduRxCount", "33"},
        {"gvrp-transmit-pdu-count", "GvrpTransmitPDUCountGet", "gvrpPduTxCount", "43"},
        {"gvrp-failed-registrations", "GvrpFailedRegistrationsGet", "gvrpFailedRegistrations", "3"},
    };
    for (const char *port : {"3", "5"}) { /* on port 5 there is nobody */
        send("PUT", std::string("garp/gmrp-port-enable?ifNum=") + port, R"({"intfGmrpStatus":"enable"})");
        send("PUT", std::string("garp/gvrp-port-enable?ifNum=") + port, R"({"intfGvrpStatus":"enable"})");
    }
    for (bool on : {false, true}) {
        for (const auto &[target, operation, key, onPort3] : rows) {
            std::string value = on ? onPort3 : "0", none = " count=0 -> 0 count=";
            expect(garp.get(target + "?ifNum=3", operation + " ifNum=3" + none + value, member(key, value)));
            expect(garp.get(target + "?ifNum=5", operation + " ifNum=5" + none + "0", member(key, "0")));
            expect(garp.get(target, operation + " ifNum=0 count=0 -> -22"));
        }
        send("PUT", "garp/gmrp-enable", R"({"globalGmrpStatus":"enable"})");
        send("PUT", "garp/gvrp-enable", R"({"globalGvrpStatus":"enable"})");
    }
    tell("fault " OP "GarpGvrpTransmitPDUCountGet code=0 count=3000000000"); /* what is read is unsigned */
    expect(garp.get("gvrp-transmit-pdu-count", "GvrpTransmitPDUCountGet ifNum=0 count=0 -> 0 count=3000000000",
                    R"("gvrpPduTxCount":3000000000)"));
}

TEST_F(Registration, countsAndClearsMvrp)
{
    send("PUT", "mvrp/mode", R"({"mode":"enable"})");
    send("PUT", "mvrp/intf-mode?intIfNum=2", R"({"mode":"enable"})");
    send("PUT", "mvrp/intf-mode?intIfNum=4", R"({"mode":"enable"})");
    auto total = [](Text type, Text value, Text reading) {
        std::string asked = "TrafficPduCounterGet type=" + type + " value=0 -> 0 value=" + value;
        return mvrp.get("traffic-pdu-counter?type=" + type, asked, member("counter", reading));
    };
    auto ofPort = [](Text port, Text type, Text value, Text reading) {
        std::string sent = "intIfNum=" + port + " type=" + type + " value=0 -> 0 value=" + value;
        return mvrp.get("intf-traffic-pdu-counter?type=" + type + "&intIfNum=" + port,
                        "IntfTrafficPduCounterGet " + sent, member("counter", reading));
    };
    expectAll({
        total("0", "66", "66"), total("3", "86", "86"), total("5", "6", "6"), ofPort("2", "0", "32", "32"),
        ofPort("4", "3", "44", "44"), ofPort("3", "3", "0", "0"), ofPort("4", "5", "3", "3"),
        mvrp.del("traffic-counters-per-if?intIfNum=4", "TrafficCountersPerIfClear intIfNum=4 -> 0"),
        ofPort("4", "3", "0", "0"), ofPort("2", "3", "42", "42"), total("3", "86", "86"),
        mvrp.del("traffic-global-counters", "TrafficGlobalCountersClear -> 0"),
        total("3", "0", "0"), ofPort("2", "3", "42", "42"),
        mvrp.del("traffic-counters", "TrafficCountersClear -> 0"),
        ofPort("2", "3", "0", "0"),
        mvrp.get("traffic-pdu-counter?type=6", "TrafficPduCounterGet type=6 value=0 -> -22"),
        mvrp.get("intf-traffic-pdu-counter", "IntfTrafficPduCounterGet intIfNum=0 type=0 value=0 -> -22"),
        mvrp.del("traffic-counters-per-if?ifNum=4", "TrafficCountersPerIfClear intIfNum=0 -> -22"),
    });
    tell("fault " OP "MvrpTrafficPduCounterGet code=0 value=4294967295"); /* what is read is signed */
    tell("fault " OP "MvrpIntfTrafficPduCounterGet code=0 value=2147483648");
    tell("fault " OP "MvrpTrafficGlobalCountersClear code=-28");
    tell("fault " OP "MvrpTrafficCountersClear code=-27");
    expectAll({
        total("0", "4294967295", "-1"), ofPort("1", "0", "2147483648", "-2147483648"),
        mvrp.del("traffic-global-counters", "TrafficGlobalCountersClear -> -28"),
        mvrp.del("traffic-counters", "TrafficCountersClear -> -27"),
    });
}

TEST_F(Registration, listsMvrpInterfacesAndVlans)
{
    send("POST", "vlan/create?vlanNum=30");
    send("POST", "vlan/create?vlanNum=20");
    const std::string get = "VlanArrayGet vlanType=", ofPort = "IntfVlanArrayGet intIfNum=";
    const std::string sent = " vlans=0() count=0 -> ";
    const std::string zero = "0 vlans=0() count=0", three = "0 vlans=3(1 20 30) count=3";
    const std::string none = R"("vlanList":{"numEntries":0,"ids":[]},"count":0)";
    const std::string all = R"("vlanList":{"numEntries":3,"ids":[1,20,30]},"count":3)";
    expect(mvrp.get("vlan-array", get + "0" + sent + zero, none));
    send("PUT", "mvrp/mode", R"({"mode":"enable"})");
    send("PUT", "mvrp/intf-mode?intIfNum=2", R"({"mode":"enable"})");
    expectAll({
        mvrp.get("vlan-array", get + "0" + sent + three, all),
        mvrp.get("vlan-array?vlanType=2", get + "2" + sent + zero, none),
        mvrp.get("vlan-array?vlanType=3", get + "3" + sent + "-22"),
        mvrp.get("intf-vlan-array?vlanType=1&intIfNum=2", ofPort + "2 vlanType=1" + sent + three, all),
        mvrp.get("intf-vlan-array?intIfNum=3", ofPort + "3 vlanType=0" + sent + zero, none),
        mvrp.get("intf-vlan-array", ofPort + "0 vlanType=0" + sent + "-22"),
        mvrp.get("is-valid-intf?intIfNum=28", "IsValidIntfGet intIfNum=28 flag=0 -> 0 flag=1", R"("isValid":"true")"),
        mvrp.get("is-valid-intf?ifNum=28", "IsValidIntfGet intIfNum=0 flag=0 -> 0 flag=0", R"("isValid":"false")"),
        mvrp.get("valid-intf-next?intIfNum=8", "ValidIntfNextGet intIfNum=8 next=0 -> 0 next=9", R"("nextIfNum":9)"),
        mvrp.get("valid-intf-next?intIfNum=28", "ValidIntfNextGet intIfNum=28 next=0 -> -1"),
    });
    /* the list's own count and the count beside it are two things */
    tell("fault " OP "MvrpVlanArrayGet code=0 vlans=7,65535 count=4294967295");
    tell("fault " OP "MvrpIntfVlanArrayGet code=0 vlans=9 count=5");
    tell("fault " OP "MvrpIsValidIntfGet code=0 flag=2");
    expectAll({
        mvrp.get("vlan-array", get + "0" + sent + "0 vlans=2(7 65535) count=4294967295",
                 R"("vlanList":{"numEntries":2,"ids":[7,65535]},"count":-1)"),
        mvrp.get("intf-vlan-array", ofPort + "0 vlanType=0" + sent + "0 vlans=1(9) count=5",
                 R"("vlanList":{"numEntries":1,"ids":[9]},"count":5)"),
        mvrp.get("is-valid-intf", "IsValidIntfGet intIfNum=0 flag=0 -> 0 flag=2", R"("isValid":"true")"),
    });
}

TEST_F(Registration, countsAndClearsMmrp)
{
    send("PUT", "mmrp/intf-mode", R"({"ifNum":1,"mmrpIntfMode":"enable"})");
    send("PUT", "mmrp/mode", R"({"mmrpMode":"enable"})");
    send("PUT", "mmrp/intf-mode", R"({"ifNum":4,"mmrpIntfMode":"enable"})");
    auto total = [](Text query, Text type, Text value) {
        std::string asked = "CounterGet type=" + type + " value=0 -> 0 value=" + value;
        return mmrp.get("counter" + query, asked, member("counter", value));
    };
    auto ofPort = [](Text query, Text port, Text type, Text value) {
        std::string asked = "IntfCounterGet ifNum=" + port + " type=" + type + " value=0 -> 0 value=" + value;
        return mmrp.get("intf-counter" + query, asked, member("counter", value));
    };
    expectAll({
        total("?type=rx", "0", "65"), total("?type=rx_bad_header", "1", "4"),
        total("?mytype=tx&type=rx_bad_format", "2", "2"), total("?type=tx", "3", "85"),
        total("?type=tx_failure&x=1", "4", "8"), total("?type=TX", "0", "65"), total("", "0", "65"),
        total("?type=t%78", "0", "65"), total("?type=" + std::string(80, 'x'), "0", "65"),
        ofPort("?intIfNum=4&type=tx", "4", "3", "44"), ofPort("?type=rx_bad_header&ifNum=3&intIfNum=1", "1", "1", "2"),
        mmrp.del("intf-counters?intIfNum=4", "IntfCountersClear ifNum=4 -> 0"),
        ofPort("?intIfNum=4&type=tx", "4", "3", "0"), ofPort("?intIfNum=1&type=tx", "1", "3", "41"),
        total("?type=tx", "3", "85"),
        mmrp.del("counters", "CountersClear -> 0"),
        ofPort("?intIfNum=1&type=tx", "1", "3", "0"), total("?type=tx", "3", "0"),
        mmrp.get("intf-counter?ifNum=4", "IntfCounterGet ifNum=0 type=0 value=0 -> -22"),
        mmrp.del("intf-counters?ifNum=4", "IntfCountersClear ifNum=0 -> -22"),
    });
    tell("fault " OP "MmrpCounterGet code=0 value=4294967294"); /* what is read is signed */
    tell("fault " OP "MmrpIntfCounterGet code=0 value=4294967293");
    tell("fault " OP "MmrpCountersClear code=-5");
    expectAll({
        mmrp.get("counter", "CounterGet type=0 value=0 -> 0 value=4294967294", R"("counter":-2)"),
        mmrp.get("intf-counter", "IntfCounterGet ifNum=0 type=0 value=0 -> 0 value=4294967293", R"("counter":-3)"),
        mmrp.del("counters", "CountersClear -> -5"),
    });
    tell("reset");
    expect(mmrp.get("mode", "ModeGet flag=0 -> 0 flag=0", R"("mmrpMode":"disable")"));
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
