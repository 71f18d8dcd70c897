/*
 * fdb_test.cpp - the fdb family through the real program, and the virtual switch's forwarding database.
 */
#include <regex>

#include "tests/support/family_rows.h"

#define OP "rpcclt_openapi"

static const Family fdb = {"fdb/", OP, "fdb"};

class Fdb : public SwitchTest {
protected:
    /* Walks as a client does: each answer's address and interface go back with the VLAN that is walked. */
    std::vector<std::string> walk(Text vlan)
    {
        const std::regex entry("\"mac\":\t\"(.*)\",\\s*\"fdbIfNum\":\t(.*),\\s*\"entryType\":\t\"(.*)\"");
        std::vector<std::string> seen;
        std::string answer, position;
        for (std::smatch found; seen.size() < 1000;) {
            answer = send("GET", "fdb/entry-next?vlanId=" + vlan + position);
            if (!std::regex_search(answer, found, entry))
                break;
            seen.push_back(found[1].str() + " " + found[2].str() + " " + found[3].str());
            position = "&mac=" + found[1].str() + "&fdbIfNum=" + found[2].str();
        }
        EXPECT_EQ(answer, failure(10000));
        return seen;
    }
};

/* How many entries there are that were learned. */
static Exchange dynamic(Text entries)
{
    return fdb.get("dynamic-entries", "FdbDynamicEntriesGet entries=0 -> 0 entries=" + entries,
                   member("entries", entries));
}

TEST_F(Fdb, readsNumbers)
{
    const std::string inVlan = "?xvlanId=2&vlanId=65539", onPort = "?xintIfNum=2&intIfNum=65539";
    const struct { std::string target, operation, asked, output, key; } rows[] = {
        {"max-table-entries", "FdbMaxTableEntriesGet", "", "maxEntries=", "maxEntries"},
        {"active-addr-entries", "ActiveAddrEntriesGet", "", "entries=", "entriesNum"},
        {"max-count", "FdbMaxCountGet", "", "entries=", "entriesNum"},
        {"dynamic-entries", "FdbDynamicEntriesGet", "", "entries=", "entries"},
        {"internal-entries", "FdbInternalEntriesGet", "", "entries=", "entries"},
        {"bad-adds", "FdbBadAddsGet", "", "badAdds=", "badAdds"},
        {"mac-max-hw-limit", "FdbMacMaxHwLimitGet", "", "maxMacHwLimit=", "maxMacHwLimit"},
        {"vlan-dynamic-entries" + inVlan, "FdbVlanDynamicEntriesGet", "vlanId=3 ", "entries=", "entries"},
        {"vlan-internal-entries" + inVlan, "FdbVlanInternalEntriesGet", "vlanId=3 ", "entries=", "entries"},
        {"intf-dynamic-entries" + onPort, "FdbIntfDynamicEntriesGet", "ifNum=65539 ", "entries=", "entries"},
        {"intf-internal-entries" + onPort, "FdbIntfInternalEntriesGet", "ifNum=65539 ", "entries=", "entries"},
        {"id-next?xstartFrom=7", "FdbIdNextGet", "startFrom=7 ", "next=", "fdbId"},
        {"id-next", "FdbIdNextGet", "startFrom=0 ", "next=", "fdbId"},
        {"addr-aging-timeout?xfdbId=7", "FdbAddrAgingTimeoutGet", "fdbId=7 ", "timeOut=", "timeOut"},
        {"addr-aging-timeout", "FdbAddrAgingTimeoutGet", "fdbId=1 ", "timeOut=", "timeOut"},
    };
    for (const auto &[target, operation, asked, output, key] : rows) {
        std::string question = operation + " " + asked + output + "0 -> ";
        tell("fault " OP + operation + " code=0 times=1 " + output + "4294967295");
        expect(fdb.get(target, question + "0 " + output + "4294967295", member(key, "4294967295")));
        tell("fault " OP + operation + " code=-28 times=1");
        expect(fdb.get(target, question + "-28"));
    }
}

TEST_F(Fdb, knowsOneDatabase)
{
    Exchange other = fdb.get("id?xfdbId=2", "FdbIdGet fdbId=2 -> -1");
    other.answered = success(R"("fdb":{"fdbId":2,"exists":false})");
    const std::string type = "FdbTypeOfVLGet type=1 -> 0 type=";
    expectAll({
        other,
        fdb.get("id", "FdbIdGet fdbId=1 -> 0", R"("fdbId":1,"exists":true)"),
        fdb.get("type-of-vl", type + "1", R"("type":"ivl_type")"),
    });
    for (auto [code, word] : {std::pair("2", "\"svl_type\""), {"0", "\"unknown\""}, {"3", "\"unknown\""}}) {
        tell(std::string("fault " OP "FdbTypeOfVLGet code=0 type=") + code);
        expect(fdb.get("type-of-vl", type + code, member("type", word)));
    }
    tell("fault " OP "FdbTypeOfVLGet code=-28");
    expect(fdb.get("type-of-vl", "FdbTypeOfVLGet type=1 -> -28"));
}

TEST_F(Fdb, setsTheAgeingTimeOfTheBridge)
{
    const std::string target = "addr-aging-timeout", set = "FdbAddrAgingTimeoutSet fdbId=1 timeOut=";
    expectAll({
        fdb.put(target, R"({"timeout":310})", set + "310 -> 0"),
        fdb.get(target, "FdbAddrAgingTimeoutGet fdbId=1 timeOut=0 -> 0 timeOut=310", R"("timeOut":310)"),
        fdb.put(target, R"({"fdbId":-2,"timeOut":30})", "FdbAddrAgingTimeoutSet fdbId=4294967294 timeOut=30 -> -22"),
        fdb.put(target, R"({"fdbId":true,"timeOut":true})", set + "1 -> -22"), /* an integer all the same */
        fdb.put(target, R"({"timeOut":-5})", set + "4294967291 -> -22"),
        fdb.put(target, "{}", set + "0 -> -22"),
        fdb.put(target, "timeOut=30", ""),
    });
    EXPECT_EQ(send("GET", "bridge/db-dot1d-tp-aging-time"), success(R"("bridge":{"agingTime":310})"));
}

TEST_F(Fdb, saysWhichAddressesAreRestricted)
{
    const std::string asks = "IsRestrFilterMacGet mac=[18]\"", mac = "01:80:c2:00:00:0e";
    Exchange restricted = fdb.get("is-restr-filter-mac?xmacaddr=" + mac + "cut", asks + mac + "\" -> -27");
    restricted.answered = success(R"("fdb":{"macaddr":")" + mac + R"(","restricted":"true"})");
    expect(restricted);
    expect(fdb.get("is-restr-filter-mac", asks + "\" -> -22"));
    tell("fault " OP "IsRestrFilterMacGet code=0 mac=other"); /* what was asked is echoed */
    expect(fdb.get("is-restr-filter-mac?macaddr=mine", asks + R"(mine" -> 0 mac=[18]"other")",
                   R"("macaddr":"mine","restricted":"false")"));
}

TEST_F(Fdb, tellsTheEntryThatFollows)
{
    const std::string asks = "FdbEntryNextGet mac=[18]\"", blank = R"(" vlanId=0 ifNum=0 entryType=0 -> )";
    expectAll({
        fdb.get("entry-next", asks + blank + R"(0 mac=[18]"02:00:00:00:01:01" vlanId=1 ifNum=1 entryType=1)",
                R"("mac":"02:00:00:00:01:01","fdbIfNum":1,"entryType":"learned")"),
        fdb.get("entry-next?xmac=02:00:00:00:07:07&xvlanId=9&vlanId=1&xfdbIfNum=7",
                asks + R"(02:00:00:00:07:07" vlanId=1 ifNum=7 entryType=0 -> )"
                R"(0 mac=[18]"02:00:00:00:08:08" vlanId=1 ifNum=8 entryType=1)",
                R"("mac":"02:00:00:00:08:08","fdbIfNum":8,"entryType":"learned")"),
        fdb.get("entry-next?mac=none", asks + "none" + blank + "-22"),
    });
    const char *types[] = {"static", "learned", "management", "gmrp_learned", "self", "dot1x_static", "dot1ag_static",
                           "l3_management", "learned_unconfirmed", "fip_snoop_learned", "captive_portal_static",
                           "eth_cfm_static", "y1731_static", "unknown"};
    const std::string fault = "fault " OP "FdbEntryNextGet code=0 mac=01234567890123456789 ifNum=4000000000 entryType=";
    const std::string entry = R"("mac":"012345678901234567","fdbIfNum":4000000000,"entryType":")"; /* cut to 18 bytes */
    for (int i = 0; i < 14; i++) {
        tell(fault + std::to_string(i));
        EXPECT_EQ(send("GET", "fdb/entry-next"), success("\"fdb\":{" + entry + types[i] + "\"}"));
    }
}

TEST_F(Fdb, walksEveryEntryOnce)
{
    startSwitch({"--stations", "2", "--station-vlans", "3"});
    for (auto [vlan, port] : {std::pair("1", "9"), {"2", "4"}, {"3", "9"}}) {
        std::string key = std::string("?vlanId=") + vlan, body = R"({"macAddr":"02:00:00:00:01:55"})";
        send("POST", "static-filter/filter" + key, body);
        send("POST", "static-filter/filter-dst-intf" + key + "&ifNum=" + port, body);
    }
    using Entries = std::vector<std::string>;
    const Entries all = {"02:00:00:00:01:01 1 learned", "02:00:00:00:01:55 4 static", "02:00:00:00:01:55 9 static",
                         "02:00:00:00:02:02 2 learned", "02:A0:C9:00:00:01 0 management"};
    EXPECT_EQ(walk("0"), all);
    EXPECT_EQ(walk("1"), Entries({all[0], all[2], all[4]}));
    EXPECT_EQ(walk("2"), Entries({all[1], all[3]}));
    EXPECT_EQ(walk("3"), Entries({all[2]}));
    EXPECT_EQ(send("DELETE", "fdb/entry?vlanId=2&intIfNum=4&mac=02:00:00:00:01:55"), failureLine(10000)); /* static */
}

TEST_F(Fdb, flushesAndDeletes)
{
    startSwitch({"--stations", "24", "--station-vlans", "3", "--ports", "4"});
    const std::string mac2 = R"(mac=[18]"02-00-00-00-02-02")", mac4 = R"(mac=[18]"02:00:00:00:04:04")";
    expectAll({
        fdb.post("flush-by-mac", R"({"MAC":"02-00-00-00-02-02cut"})", "FdbFlushByMac " + mac2 + " -> 0 " + mac2),
        fdb.post("flush-by-mac?mac=02:00:00:00:03:03", "{}", R"(FdbFlushByMac mac=[18]"" -> -22)"),
        fdb.post("flush-by-mac", "", ""),
        fdb.del("entry?xmac=02:00:00:00:04:04cut&xintIfNum=3&intIfNum=4&xvlanId=3&vlanId=1&mac=x",
                "FdbEntryDelete " + mac4 + " vlanId=1 ifNum=4 -> 0 " + mac4),
        fdb.del("entry", R"(FdbEntryDelete mac=[18]"" vlanId=0 ifNum=0 -> -22)"),
        dynamic("22"),
        fdb.post("flush-by-port?xintIfNum=3&intIfNum=4", R"({"intIfNum":3})", "FdbFlushByPort ifNum=4 -> 0"),
        fdb.post("flush-by-port", R"({"intIfNum":3})", "FdbFlushByPort ifNum=0 -> -22"),
        fdb.post("flush-by-vlan?xvlanId=2&vlanId=3", R"({"vlanId":1})", "FdbFlushByVlan vlanId=3 -> 0"),
        fdb.post("flush-by-vlan?vlanId=65537", "", "FdbFlushByVlan vlanId=65537 -> -22"),
        dynamic("9"),
        fdb.post("flush?vlanId=2", R"({"vlanId":1})", "FdbFlush -> 0"),
        fdb.get("max-count", "FdbMaxCountGet entries=0 -> 0 entries=25", R"("entriesNum":25)"),
        fdb.post("max-count-reset", "", "MaxCountReset -> 0"),
        fdb.get("max-count", "FdbMaxCountGet entries=0 -> 0 entries=1", R"("entriesNum":1)"), /* the switch's own */
    });
    tell("fault " OP "FdbFlush code=-24");
    tell("fault " OP "MaxCountReset code=-28");
    expect(fdb.post("flush", "", "FdbFlush -> -24"));
    expect(fdb.post("max-count-reset", "", "MaxCountReset -> -28"));
}
