/*
 * static_filter_test.cpp - the static-filter family through the real program, and the virtual switch's filters.
 */
#include <regex>

#include "tests/support/family_rows.h"

#define OP "rpcclt_openapiFilter"

static const Family filters = {"static-filter/", OP, "staticFilter"};

class StaticFilter : public SwitchTest {
protected:
    void SetUp() override
    {
        SwitchTest::SetUp();
        startSwitch({"--stations", "0", "--station-vlans", "4"});
    }
};

/* An address as it travels: with the length of the text, not the size of the storage. */
static std::string mac(Text address)
{
    return " mac=[" + std::to_string(address.size()) + "]\"" + address + "\"";
}

static const std::string aa01 = mac("02:00:00:00:AA:01"), noMac = mac("");
static const std::string aa01Body = R"("macAddr":"02:00:00:00:AA:01")", aa01Query = "macAddr=02:00:00:00:AA:01";

/* The numbers come by exact keys and from the query alone, an address there by any key that contains its own. */
static const std::string query = "?xvlanId=3&vlanId=2&xifNum=6&ifNum=5", fullQuery = query + "&x" + aa01Query + "cut";

TEST_F(StaticFilter, takesModesAsWords)
{
    const std::string ofVlan = "filter-vlan-filtering-mode?xvlanId=4&vlanId=3";
    const std::string get = "VlanFilteringModeGet vlanId=3 mode=0 -> 0 mode=";
    const std::pair<std::string, std::string> modes[] = {
        {"0", "filter_forward_all"}, {"1", "filter_forward_unregistered"}, {"2", "filter_filter_unregistered"}};
    for (const auto &[code, word] : modes) {
        std::string mode = member("mode", "\"" + word + "\"");
        expectAll({
            filters.put("filter-filtering-mode", "{" + mode + "}", "FilteringModeSet mode=" + code + " -> 0"),
            filters.put(ofVlan, R"({"vlanId":4,)" + mode + "}", "VlanFilteringModeSet vlanId=3 mode=" + code + " -> 0"),
            filters.get(ofVlan, get + code, mode),
        });
    }
    expectAll({
        filters.put("filter-filtering-mode", "", ""),
        filters.put("filter-vlan-filtering-mode", "{}", "VlanFilteringModeSet vlanId=0 mode=0 -> -22"),
        filters.put("filter-vlan-filtering-mode?vlanId=3", "[", ""),
        filters.get("filter-vlan-filtering-mode?vlanId=5", "VlanFilteringModeGet vlanId=5 mode=0 -> -22"),
        filters.put("filter-admin-mode", R"({"adminMode":"enable"})", "AdminModeSet mode=1 -> 0"),
        filters.get("filter-admin-mode", "AdminModeGet mode=0 -> 0 mode=1", R"("adminMode":"enable")"),
        filters.put("filter-admin-mode", R"({"adminMode":"Enable"})", "AdminModeSet mode=0 -> 0"),
        filters.put("filter-admin-mode", "enable", ""),
    });
    tell("fault " OP "VlanFilteringModeGet code=0 mode=7");
    tell("fault " OP "AdminModeGet code=0 mode=2");
    expect(filters.get(ofVlan, get + "7", R"("mode":"filter_forward_all")"));
    expect(filters.get("filter-admin-mode", "AdminModeGet mode=0 -> 0 mode=2", R"("adminMode":"disable")"));
    tell("fault " OP "AdminModeGet code=-28");
    expect(filters.get("filter-admin-mode", "AdminModeGet mode=0 -> -28"));
}

TEST_F(StaticFilter, writesToAFilter)
{
    const std::string ifNum = " ifNum=5", src = R"( srcIntfList=[4097]"9")";
    const std::string dst = R"( fwdIntfList=[4097]"1" filterIntfList=[4097]"22")";
    const struct { const char *method; std::string target, operation, numbers, texts; } rows[] = {
        {"POST", "filter", "Create", "", ""},
        {"POST", "filter-src-intf-list-modify", "SrcIntfListModify", "", src},
        {"POST", "filter-src-intf", "SrcIntfAdd", ifNum, ""},
        {"DELETE", "filter-src-intf", "SrcIntfDelete", ifNum, ""},
        {"POST", "filter-dst-intf", "DstIntfAdd", ifNum, ""},
        {"DELETE", "filter-dst-intf", "DstIntfDelete", ifNum, ""},
        {"POST", "filter-dst-intf-list", "DstIntfListAdd", ifNum, dst},
        {"DELETE", "filter-dst-intf-list", "DstIntfListDelete", ifNum, dst},
        {"PUT", "filter-stream", "StreamSet", " streamId=4294967289", ""},
        {"DELETE", "filter", "Remove", "", ""},
    };
    const std::string inQuery = fullQuery + "&xfwdIntfList=1&xfilterIntfList=22";
    const std::string inBody = R"({"macAddr":"02:00:00:00:AA:01cut","srcIntfList":"9","fwdIntfList":"1",)"
                               R"("filterIntfList":"22","streamId":-7,"vlanId":4,"ifNum":7})";
    for (const auto &[method, target, operation, numbers, texts] : rows) {
        std::string noNumbers = std::regex_replace(numbers, std::regex("[0-9]+"), "0");
        std::string noTexts = std::regex_replace(texts, std::regex("\"[0-9]*\""), "\"\"");
        bool deletes = method == std::string("DELETE");
        std::string full = operation + aa01 + " vlanId=2" + numbers + texts + " -> 0" + aa01 + texts;
        std::string bare = operation + noMac + " vlanId=0" + noNumbers + noTexts + " -> -22";
        expect(filters.row(method, target + (deletes ? inQuery : query), deletes ? "" : inBody, full, ""));
        expect(filters.row(method, target, deletes ? inBody : "{}", bare, ""));
        if (!deletes)
            expect(filters.row(method, target + inQuery, "[4-6]x", "", ""));
    }
    send("POST", "static-filter/filter?vlanId=2", "{" + aa01Body + "}");
    expectAll({
        filters.post("filter?vlanId=2", "{" + aa01Body + "}", "Create" + aa01 + " vlanId=2 -> -24"),
        filters.del("filter?vlanId=3&" + aa01Query, "Remove" + aa01 + " vlanId=3 -> -1"),
        filters.post("filter?vlanId=2", R"({"macAddr":"01:80:C2:00:00:03"})", /* restricted */
                     "Create" + mac("01:80:C2:00:00:03") + " vlanId=2 -> -22"),
        filters.put("filter-stream?vlanId=2", "{" + aa01Body + R"(,"streamId":true})", /* no number */
                    "StreamSet" + aa01 + " vlanId=2 streamId=0 -> 0" + aa01),
        filters.get("filter-stream?vlanId=3&" + aa01Query, "StreamGet" + aa01 + " vlanId=3 streamId=0 -> -1"),
    });
    tell("fault " OP "StreamGet code=0 streamId=4294967289");
    expect(filters.get("filter-stream" + fullQuery, "StreamGet" + aa01 + " vlanId=2 streamId=0 -> 0" + aa01 +
                       " streamId=4294967289", R"("streamId":4294967289)"));
}

TEST_F(StaticFilter, walksByAddressThenVlan)
{
    const std::string a = "01:00:5E:00:00:05", b = "02:00:00:00:AA:01", c = "02:00:00:00:AA:02";
    auto next = [](Text address, Text vlan, Text nextAddress, Text nextVlan) {
        std::string asked = "NextGet" + mac(address) + " vlanId=" + vlan + R"( nextMac=[18]"" nextVlanId=0 -> )";
        std::string found = "0" + mac(address) + " nextMac=[18]\"" + nextAddress + "\" nextVlanId=" + nextVlan;
        return filters.get("filter-next?xvlanId=9&vlanId=" + vlan + "&xmacAddr=" + address + "cut", asked + found,
                           R"("nextMacAddr":")" + nextAddress + R"(","nextVlanId":)" + nextVlan);
    };
    expect(filters.get("filter-first", R"(FirstGet mac=[18]"" vlanId=0 -> -1)"));
    for (const auto &[address, vlan] : {std::pair(c, "1"), {b, "4"}, {a, "3"}, {b, "2"}})
        send("POST", std::string("static-filter/filter?vlanId=") + vlan, "{\"macAddr\":\"" + address + "\"}");
    expectAll({
        filters.get("filter-first", R"(FirstGet mac=[18]"" vlanId=0 -> 0 mac=[18]"01:00:5E:00:00:05" vlanId=3)",
                    R"("macAddr":"01:00:5E:00:00:05","vlanId":3)"),
        next(a, "3", b, "2"), next(b, "2", b, "4"), next(b, "4", c, "1"),
        filters.get("filter-next", "NextGet" + noMac + R"( vlanId=0 nextMac=[18]"" nextVlanId=0 -> -22)"),
        filters.get("filter-count", "CountGet count=0 -> 0 count=4", R"("count":4)"),
        filters.get("filter-counters", "CountersGet total=0 multicast=0 unicast=0 -> 0 total=4 multicast=1 unicast=3",
                    R"("totalCount":4,"multicastFiltCount":1,"unicastFiltCount":3)"),
        filters.get("filter-size", "SizeGet size=0 -> 0 size=256", R"("size":256)"),
    });
    tell("fault * code=-22");
    expectAll({
        filters.get("filter-count", "CountGet count=0 -> -22"),
        filters.get("filter-counters", "CountersGet total=0 multicast=0 unicast=0 -> -22"),
        filters.get("filter-size", "SizeGet size=0 -> -22"),
    });
}

TEST_F(StaticFilter, readsTheInterfacesOfAFilter)
{
    const struct { std::string target, operation, countKey, listKey; } rows[] = {
        {"filter-src-intf-list", "SrcIntfListGet", "numOfSrcIntf", "srcIntfList"},
        {"filter-dst-intf-list", "DstIntfListGet", "numOfDstIntf", "dstIntfList"},
        {"filter-dst-filt-intf-list", "DstFiltIntfListGet", "numOfDstIntf", "dstFiltIntfList"},
    };
    for (const auto &[target, operation, countKey, listKey] : rows) {
        std::string given = operation + aa01 + " vlanId=2", list = " " + listKey + "=[4097]\"";
        std::string preset = " count=0" + list + "\" -> ", found = " count=4294967295" + list + "3,5-9\"";
        tell("fault " OP + operation + " code=0 times=1 count=4294967295 " + listKey + "=3,5-9");
        expect(filters.get(target + fullQuery, given + preset + "0" + aa01 + found,
                           member(countKey, "4294967295") + "," + member(listKey, "\"3,5-9\"")));
        expect(filters.get(target, operation + noMac + " vlanId=0" + preset + "-22"));
    }
}

TEST_F(StaticFilter, keepsTheInterfacesOfAFilter)
{
    const std::string start = "static-filter/filter-", key = "vlanId=2&" + aa01Query, modify = "src-intf-list-modify?";
    auto list = [&](Text name) { return send("GET", start + name + "-intf-list?" + key); };
    send("POST", "static-filter/filter?vlanId=2", "{" + aa01Body + "}");
    const struct { const char *method; std::string target, members, name, left; } steps[] = {
        {"POST", modify, R"(,"srcIntfList":"9,7,8,3,7-8,12-13")", "src", "3,7-9,12,13"},
        {"POST", "src-intf?ifNum=11&", "", "src", "3,7-9,11-13"},
        {"DELETE", "src-intf?ifNum=8&", "", "src", "3,7,9,11-13"},
        {"POST", "dst-intf?ifNum=28&", "", "dst", "28"},
        {"POST", "dst-intf-list?ifNum=5&", R"(,"fwdIntfList":"1","filterIntfList":"20-22,28")", "dst", "1,5"},
        {"POST", "dst-intf?ifNum=21&", "", "dst-filt", "20,22,28"}, /* forwards where it filtered */
        {"DELETE", "dst-intf-list?filterIntfList=22-24&fwdIntfList=5&ifNum=5&", "", "dst-filt", "20,28"},
        {"DELETE", "dst-intf?ifNum=1&", "", "dst", "21"},
    };
    for (const auto &[method, target, members, name, left] : steps) {
        EXPECT_EQ(send(method, start + target + key, "{" + aa01Body + members + "}"), successLine()) << target;
        EXPECT_NE(list(name).find("List\":\t\"" + left + "\""), std::string::npos) << target;
    }
    const std::string kept = list("src");
    for (const char *wrong : {"0", "37", "27-37", "6-4", "1,", ",1", "1,,2", "1-", "-1", "1--2", "a", "1 2", "0/1",
                              "1-2-3", "99999999999"})
        EXPECT_EQ(send("POST", start + modify + key, "{" + aa01Body + R"(,"srcIntfList":")" + wrong + "\"}"),
                  failureLine(10003)) << wrong;
    EXPECT_EQ(list("src"), kept);
}

TEST_F(StaticFilter, answersQuestions)
{
    const struct { const char *method; std::string target, operation, sent, blank, echo; } rows[] = {
        {"POST", "filter-is-configured", "IsConfigured", aa01 + " vlanId=2", noMac + " vlanId=0", aa01},
        {"POST", "filter-check-mac-addr-type-multicast", "CheckMacAddrTypeMulticast", aa01, noMac, aa01},
        {"POST", "filter-is-intf-in-any-filter", "IsIntfInAnyFilter", " ifNum=5", " ifNum=0", ""},
        {"POST", "filter-is-valid-intf", "IsValidIntf", " ifNum=5", " ifNum=0", ""},
        {"PUT", "filter-port-parm-can", "PortParmCanSet", " ifNum=5", " ifNum=0", ""},
    };
    const std::string body = "{" + aa01Body + R"(,"vlanId":3,"ifNum":6})";
    for (const auto &[method, target, operation, sent, blank, echo] : rows) {
        for (auto [flag, word] : {std::pair("1", "true"), {"2", "false"}}) { /* only 1 is yes */
            tell("fault " OP + operation + " code=0 flag=" + flag);
            std::string asked = operation + sent + " flag=0 -> 0" + echo + " flag=" + flag;
            expect(filters.row(method, target + query, body, asked, R"("status":")" + std::string(word) + "\""));
        }
        tell("fault " OP + operation + " code=-29");
        expect(filters.row(method, target, "{}", operation + blank + " flag=0 -> -29", ""));
        bool needsBody = !echo.empty();
        expect(filters.row(method, target, "", needsBody ? "" : operation + blank + " flag=0 -> -29", ""));
    }
}

TEST_F(StaticFilter, losesWhatItsVlanHad)
{
    for (const char *vlan : {"2", "4"})
        send("POST", std::string("static-filter/filter?vlanId=") + vlan, "{" + aa01Body + "}");
    send("PUT", "static-filter/filter-vlan-filtering-mode?vlanId=4", R"({"mode":"filter_filter_unregistered"})");
    send("DELETE", "vlan/delete?vlanNum=4");
    send("POST", "vlan/create?vlanNum=4");
    expect(filters.get("filter-count", "CountGet count=0 -> 0 count=1", R"("count":1)"));
    expect(filters.get("filter-vlan-filtering-mode?vlanId=4", "VlanFilteringModeGet vlanId=4 mode=0 -> 0 mode=0",
                       R"("mode":"filter_forward_all")"));
}
