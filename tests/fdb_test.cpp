/*
 * fdb_test.cpp - the fdb family through the real program, and the virtual switch's forwarding database.
 */
#include <algorithm>

#include "tests/support/driver.h"

#define OP "rpcclt_openapiFdb"

class Fdb : public SwitchTest {
protected:
    /* The member's value as it stands in the answer, with its quotes; "" when there is none. */
    static std::string member(const std::string &answer, const std::string &key)
    {
        size_t at = answer.find("\"" + key + "\":\t");
        if (at == std::string::npos)
            return "";
        at += key.size() + 4;
        return answer.substr(at, answer.find_first_of(",\n", at) - at);
    }

    std::string count(const std::string &target) { return member(send("GET", "fdb/" + target), "entries"); }

    /* Walks as a client does: each answer's address and interface go back with the VLAN that is walked. */
    std::vector<std::string> walk(const std::string &vlan)
    {
        std::vector<std::string> seen;
        for (std::string position; seen.size() < 1000;) {
            std::string answer = send("GET", "fdb/entry-next?vlanId=" + vlan + position);
            if (answer == failure(10000))
                return seen;
            std::string mac = member(answer, "mac"), port = member(answer, "fdbIfNum");
            seen.push_back(mac.substr(1, mac.size() - 2) + " " + port + " " + member(answer, "entryType"));
            position = "&mac=" + mac.substr(1, mac.size() - 2) + "&fdbIfNum=" + port;
        }
        ADD_FAILURE() << "a walk without an end";
        return {};
    }
};

TEST_F(Fdb, readsCounts)
{
    const struct { const char *endpoint, *operation, *asked, *output, *key; } rows[] = {
        {"max-table-entries", OP "MaxTableEntriesGet", "", "maxEntries", "maxEntries"},
        {"active-addr-entries", "rpcclt_openapiActiveAddrEntriesGet", "", "entries", "entriesNum"},
        {"max-count", OP "MaxCountGet", "", "entries", "entriesNum"},
        {"dynamic-entries", OP "DynamicEntriesGet", "", "entries", "entries"},
        {"internal-entries", OP "InternalEntriesGet", "", "entries", "entries"},
        {"bad-adds", OP "BadAddsGet", "", "badAdds", "badAdds"},
        {"mac-max-hw-limit", OP "MacMaxHwLimitGet", "", "maxMacHwLimit", "maxMacHwLimit"},
        {"vlan-dynamic-entries?xvlanId=2&vlanId=65539", OP "VlanDynamicEntriesGet", " vlanId=3", "entries", "entries"},
        {"vlan-internal-entries?vlanId=65539", OP "VlanInternalEntriesGet", " vlanId=3", "entries", "entries"},
        {"intf-dynamic-entries?intIfNum=65539", OP "IntfDynamicEntriesGet", " ifNum=65539", "entries", "entries"},
        {"intf-internal-entries?ifNum=2&intIfNum=7", OP "IntfInternalEntriesGet", " ifNum=7", "entries", "entries"},
        {"id-next?startFrom=7", OP "IdNextGet", " startFrom=7", "next", "fdbId"},
        {"addr-aging-timeout?fdbId=7", OP "AddrAgingTimeoutGet", " fdbId=7", "timeOut", "timeOut"},
    };
    long long value = 4294967295;
    for (const auto &row : rows) {
        std::string output = row.output, number = std::to_string(value--);
        std::string asked = row.operation + std::string(row.asked);
        tell("fault " + std::string(row.operation) + " code=0 times=1 " + output + "=" + number);
        expect({"GET", std::string("fdb/") + row.endpoint, "",
                asked + " " + output + "=0 -> 0 " + output + "=" + number,
                success(std::string("\"fdb\":{\"") + row.key + "\":" + number + "}")});
        tell("fault " + std::string(row.operation) + " code=-28 times=1");
        expect({"GET", std::string("fdb/") + row.endpoint, "", asked + " " + output + "=0 -> -28", failure(17002)});
    }
    expectAll({
        {"GET", "fdb/vlan-dynamic-entries", "", OP "VlanDynamicEntriesGet vlanId=0 entries=0 -> -22", failure(10003)},
        {"GET", "fdb/intf-internal-entries?intIfNum=29", "", OP "IntfInternalEntriesGet ifNum=29 entries=0 -> -22",
         failure(10003)},
    });
}

TEST_F(Fdb, knowsOneDatabase)
{
    expectAll({
        {"GET", "fdb/id", "", OP "IdGet fdbId=1 -> 0", success(R"("fdb":{"fdbId":1,"exists":true})")},
        {"GET", "fdb/id?fdbId=2", "", OP "IdGet fdbId=2 -> -1", success(R"("fdb":{"fdbId":2,"exists":false})")},
        {"GET", "fdb/id-next", "", OP "IdNextGet startFrom=0 next=0 -> 0 next=1", success(R"("fdb":{"fdbId":1})")},
        {"GET", "fdb/id-next?startFrom=1", "", OP "IdNextGet startFrom=1 next=0 -> -1", failure(10000)},
        {"GET", "fdb/type-of-vl", "", OP "TypeOfVLGet type=1 -> 0 type=1", success(R"("fdb":{"type":"ivl_type"})")},
    });
    for (auto [code, word] : {std::pair("2", "svl_type"), {"0", "unknown"}, {"3", "unknown"}}) {
        tell(std::string("fault " OP "TypeOfVLGet code=0 type=") + code);
        EXPECT_EQ(send("GET", "fdb/type-of-vl"), success(std::string(R"("fdb":{"type":")") + word + "\"}"));
    }
    tell("fault " OP "TypeOfVLGet code=0"); /* says nothing: the preset counts */
    EXPECT_EQ(send("GET", "fdb/type-of-vl"), success(R"("fdb":{"type":"ivl_type"})"));
}

TEST_F(Fdb, setsTheAgeingTimeOfTheBridge)
{
    const std::string url = "fdb/addr-aging-timeout";
    expectAll({
        {"GET", url, "", OP "AddrAgingTimeoutGet fdbId=1 timeOut=0 -> 0 timeOut=300",
         success(R"("fdb":{"timeOut":300})")},
        {"PUT", url, R"({"timeout":310})", OP "AddrAgingTimeoutSet fdbId=1 timeOut=310 -> 0", successLine()},
        {"GET", "bridge/db-dot1d-tp-aging-time", "", "rpcclt_openapiDbDot1dTpAgingTimeGet seconds=0 -> 0 seconds=310",
         success(R"("bridge":{"agingTime":310})")},
        {"PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingTime":400})",
         "rpcclt_openapiDbDot1dTpAgingTimeSet seconds=400 -> 0", successLine()},
        {"GET", url + "?fdbId=1", "", OP "AddrAgingTimeoutGet fdbId=1 timeOut=0 -> 0 timeOut=400",
         success(R"("fdb":{"timeOut":400})")},
        {"PUT", url, R"({"fdbId":2,"timeOut":30})", OP "AddrAgingTimeoutSet fdbId=2 timeOut=30 -> -22",
         failureLine(10003)},
        {"PUT", url, R"({"timeOut":9})", OP "AddrAgingTimeoutSet fdbId=1 timeOut=9 -> -22", failureLine(10003)},
        {"PUT", url, R"({"timeOut":"300"})", OP "AddrAgingTimeoutSet fdbId=1 timeOut=0 -> -22", failureLine(10003)},
        {"PUT", url, R"({"timeOut":-5})", OP "AddrAgingTimeoutSet fdbId=1 timeOut=4294967291 -> -22",
         failureLine(10003)},
        {"PUT", url, "timeOut=30", "", failureLine(10003)},
        {"PUT", url, "", "", failureLine(10003)},
        {"GET", url + "?fdbId=2", "", OP "AddrAgingTimeoutGet fdbId=2 timeOut=0 -> -22", failure(10003)},
    });
}

TEST_F(Fdb, saysWhichAddressesAreRestricted)
{
    const std::string asks = "rpcclt_openapiIsRestrFilterMacGet mac=[18]\"";
    for (const char *mac : {"FF:FF:FF:FF:FF:FF", "01:80:c2:00:00:0e", "02-A0-C9-00-00-01"})
        expect({"GET", std::string("fdb/is-restr-filter-mac?macaddr=") + mac, "", asks + mac + "\" -> -27",
                success(std::string(R"("fdb":{"macaddr":")") + mac + R"(","restricted":"true"})")});
    expectAll({
        {"GET", "fdb/is-restr-filter-mac?x=1&macaddr=01:80:C2:00:00:10", "",
         asks + R"(01:80:C2:00:00:10" -> 0 mac=[18]"01:80:C2:00:00:10")",
         success(R"("fdb":{"macaddr":"01:80:C2:00:00:10","restricted":"false"})")},
        {"GET", "fdb/is-restr-filter-mac", "", asks + "\" -> -22", failure(10003)},
    });
    tell("fault rpcclt_openapiIsRestrFilterMacGet code=0 mac=other"); /* what was asked is echoed */
    EXPECT_EQ(send("GET", "fdb/is-restr-filter-mac?macaddr=mine"),
              success(R"("fdb":{"macaddr":"mine","restricted":"false"})"));
}

TEST_F(Fdb, tellsTheEntryThatFollows)
{
    const std::string asks = OP "EntryNextGet mac=[18]\"";
    expectAll({
        {"GET", "fdb/entry-next", "",
         asks + R"(" vlanId=0 ifNum=0 entryType=0 -> 0 mac=[18]"02:00:00:00:01:01" vlanId=1 ifNum=1 entryType=1)",
         success(R"("fdb":{"mac":"02:00:00:00:01:01","fdbIfNum":1,"entryType":"learned"})")},
        {"GET", "fdb/entry-next?xmac=02:00:00:00:07:07cut&vlanId=1&fdbIfNum=7&myvlanId=9", "",
         asks + R"(02:00:00:00:07:07" vlanId=1 ifNum=7 entryType=0 -> )"
         R"(0 mac=[18]"02:00:00:00:08:08" vlanId=1 ifNum=8 entryType=1)",
         success(R"("fdb":{"mac":"02:00:00:00:08:08","fdbIfNum":8,"entryType":"learned"})")},
        {"GET", "fdb/entry-next?vlanId=1&mac=02:A0:C9:00:00:01", "",
         asks + R"(02:A0:C9:00:00:01" vlanId=1 ifNum=0 entryType=0 -> -1)", failure(10000)},
        {"GET", "fdb/entry-next?myvlanId=1&vlanId=2", "", asks + R"(" vlanId=2 ifNum=0 entryType=0 -> -22)",
         failure(10003)},
        {"GET", "fdb/entry-next?mac=none", "", asks + R"(none" vlanId=0 ifNum=0 entryType=0 -> -22)", failure(10003)},
    });
    const std::pair<const char *, std::string> types[] = {
        {"static", "0"}, {"management", "2"}, {"y1731_static", "12"}, {"unknown", "13"}};
    for (auto [word, code] : types) {
        tell("fault " OP "EntryNextGet code=0 mac=01234567890123456789 ifNum=4000000000 entryType=" + code);
        EXPECT_EQ(send("GET", "fdb/entry-next"), success(R"("fdb":{"mac":"012345678901234567","fdbIfNum":4000000000,)"
                                                         R"("entryType":")" + std::string(word) + "\"}"));
    }
}

TEST_F(Fdb, walksEveryEntryOnce)
{
    startSwitch({"--stations", "120", "--station-vlans", "3", "--ports", "8"});
    std::vector<std::string> all = walk("0");
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    EXPECT_EQ(all.size(), 121u);
    EXPECT_EQ(member(send("GET", "fdb/active-addr-entries"), "entriesNum"), "121");

    std::vector<std::string> together;
    for (const char *vlan : {"1", "2", "3"}) {
        std::vector<std::string> seen = walk(vlan);
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
        std::string vlanId = std::string("?vlanId=") + vlan;
        int counted = stoi(count("vlan-dynamic-entries" + vlanId)) + stoi(count("vlan-internal-entries" + vlanId));
        EXPECT_EQ(seen.size(), (size_t)counted);
        together.insert(together.end(), seen.begin(), seen.end());
    }
    std::sort(together.begin(), together.end());
    EXPECT_EQ(together, all);
    for (int port = 1; port <= 8; port++)
        EXPECT_EQ(count("intf-dynamic-entries?intIfNum=" + std::to_string(port)), "15");
}

/* An address that a filter makes known in several VLANs and on several ports. */
TEST_F(Fdb, walksAddressesThatAreInSeveralVlans)
{
    startSwitch({"--stations", "2", "--station-vlans", "3"});
    for (auto [vlan, port] : {std::pair("1", "9"), {"2", "4"}, {"3", "9"}}) {
        std::string key = std::string("?vlanId=") + vlan, body = R"({"macAddr":"02:00:00:00:01:55"})";
        send("POST", "static-filter/filter" + key, body);
        EXPECT_EQ(send("POST", "static-filter/filter-dst-intf" + key + "&ifNum=" + port, body), successLine());
    }
    using Entries = std::vector<std::string>;
    const Entries all = {"02:00:00:00:01:01 1 \"learned\"", "02:00:00:00:01:55 4 \"static\"",
                         "02:00:00:00:01:55 9 \"static\"", "02:00:00:00:02:02 2 \"learned\"",
                         "02:A0:C9:00:00:01 0 \"management\""};
    EXPECT_EQ(walk("0"), all);
    EXPECT_EQ(walk("1"), Entries({all[0], all[2], all[4]}));
    EXPECT_EQ(walk("2"), Entries({all[1], all[3]}));
    EXPECT_EQ(walk("3"), Entries({all[2]}));
    EXPECT_EQ(count("internal-entries"), "4");
    EXPECT_EQ(count("intf-internal-entries?intIfNum=9"), "2");
    EXPECT_EQ(count("vlan-internal-entries?vlanId=2"), "1");
    EXPECT_EQ(send("GET", "bridge/dot1d-tp-fdb-port?address=02:00:00:00:01:55"), success(R"("bridge":{"port":9})"));

    send("POST", "fdb/flush");
    EXPECT_EQ(walk("1"), Entries({all[2], all[4]}));
    EXPECT_EQ(send("DELETE", "fdb/entry?vlanId=2&intIfNum=4&mac=02:00:00:00:01:55"), failureLine(10000)); /* static */
    send("DELETE", "static-filter/filter-dst-intf?vlanId=2&ifNum=4&macAddr=02:00:00:00:01:55");
    EXPECT_EQ(walk("2"), Entries());
    send("DELETE", "static-filter/filter?vlanId=3&macAddr=02:00:00:00:01:55");
    EXPECT_EQ(walk("3"), Entries());
}

TEST_F(Fdb, flushesAndDeletes)
{
    startSwitch({"--stations", "24", "--station-vlans", "3", "--ports", "4"});
    const struct { Exchange exchange; const char *left; } steps[] = {
        {{"POST", "fdb/flush-by-mac", R"({"MAC":"02-00-00-00-02-02cut"})",
          OP R"(FlushByMac mac=[18]"02-00-00-00-02-02" -> 0 mac=[18]"02-00-00-00-02-02")", successLine()}, "23"},
        {{"POST", "fdb/flush-by-mac?mac=02:00:00:00:03:03", R"({"mac":3})", OP R"(FlushByMac mac=[18]"" -> -22)",
          failureLine(10003)}, "23"},
        {{"POST", "fdb/flush-by-mac", "", "", failureLine(10003)}, "23"},
        {{"DELETE", "fdb/entry?mac=02:00:00:00:04:04&intIfNum=4&vlanId=1&mac=x", "",
          OP R"(EntryDelete mac=[18]"02:00:00:00:04:04" vlanId=1 ifNum=4 -> 0 mac=[18]"02:00:00:00:04:04")",
          successLine()}, "22"},
        {{"DELETE", "fdb/entry?xmac=02:00:00:00:05:05&intIfNum=1&vlanId=2", "",
          OP R"(EntryDelete mac=[18]"02:00:00:00:05:05" vlanId=2 ifNum=1 -> -1)", failureLine(10000)}, "22"}, /* on 2 */
        {{"DELETE", "fdb/entry?mac=02:00:00:00:05:05&ifNum=2&myvlanId=2", R"({"intIfNum":2,"vlanId":2})",
          OP R"(EntryDelete mac=[18]"02:00:00:00:05:05" vlanId=0 ifNum=0 -> -22)", failureLine(10003)}, "22"},
        {{"POST", "fdb/flush-by-port?intIfNum=4", R"({"intIfNum":3})", OP "FlushByPort ifNum=4 -> 0", successLine()},
          "17"},
        {{"POST", "fdb/flush-by-port", R"({"intIfNum":3})", OP "FlushByPort ifNum=0 -> -22", failureLine(10003)}, "17"},
        {{"POST", "fdb/flush-by-vlan?vlanId=3", R"({"vlanId":1})", OP "FlushByVlan vlanId=3 -> 0", successLine()}, "9"},
        {{"POST", "fdb/flush-by-vlan?vlanId=65537", "", OP "FlushByVlan vlanId=65537 -> -22", failureLine(10003)}, "9"},
        {{"POST", "fdb/flush?vlanId=2", R"({"vlanId":1})", OP "Flush -> 0", successLine()}, "0"},
    };
    for (const auto &step : steps) {
        expect(step.exchange);
        EXPECT_EQ(count("dynamic-entries"), step.left) << step.exchange.target;
    }
    EXPECT_EQ(walk("1"), std::vector<std::string>({"02:A0:C9:00:00:01 0 \"management\""}));
    tell("fault " OP "Flush code=-24");
    EXPECT_EQ(send("POST", "fdb/flush"), failureLine(10011));

    EXPECT_EQ(send("GET", "fdb/max-count"), success(R"("fdb":{"entriesNum":25})"));
    expect({"POST", "fdb/max-count-reset", "", "rpcclt_openapiMaxCountReset -> 0", successLine()});
    EXPECT_EQ(send("GET", "fdb/max-count"), success(R"("fdb":{"entriesNum":1})"));
}

TEST_F(Fdb, agesWhatItLearned)
{
    tell("pass 280");
    EXPECT_EQ(count("dynamic-entries"), "8");
    send("PUT", "fdb/addr-aging-timeout", R"({"timeOut":600})");
    tell("pass 300");
    EXPECT_EQ(walk("1").size(), 9u);
    tell("pass 30");
    EXPECT_EQ(send("GET", "bridge/dot1d-tp-fdb-entry-next"), success(R"("bridge":{"address":"02:A0:C9:00:00:01"})"));
    EXPECT_EQ(count("dynamic-entries"), "0");
    EXPECT_EQ(walk("1").size(), 1u);
    tell("reset"); /* all are heard again */
    EXPECT_EQ(count("dynamic-entries"), "8");
}

TEST_F(Fdb, holdsNoMoreThanItCan)
{
    startSwitch({"--stations", "131074"});
    EXPECT_EQ(send("GET", "fdb/max-table-entries"), success(R"("fdb":{"maxEntries":131072})"));
    EXPECT_EQ(send("GET", "fdb/active-addr-entries"), success(R"("fdb":{"entriesNum":131072})"));
    EXPECT_EQ(send("GET", "fdb/bad-adds"), success(R"("fdb":{"badAdds":3})"));
}
