/*
 * static_filter_test.cpp - the static-filter family through the real program, and the virtual switch's filters.
 */
#include "tests/support/driver.h"

#define OP "rpcclt_openapiFilter"

static const std::string mac = R"([17]"02:00:00:00:AA:01")"; /* with the length, not the storage */
static const std::string macBody = R"("macAddr":"02:00:00:00:AA:01")";
static const std::string macQuery = "macAddr=02:00:00:00:AA:01";

class StaticFilter : public SwitchTest {
protected:
    void SetUp() override
    {
        SwitchTest::SetUp();
        startSwitch({"--stations", "0", "--station-vlans", "4"});
    }

    /* Endpoints are told below static-filter/, operations without what they all start with. */

    std::string send(const std::string &method, const std::string &endpoint, const std::string &body = "")
    {
        return SwitchTest::send(method, "static-filter/" + endpoint, body);
    }

    void expectRow(const Exchange &row)
    {
        expect({row.method, "static-filter/" + row.target, row.body, row.asked.empty() ? "" : OP + row.asked,
                row.answered});
    }

    void expectRows(const std::vector<Exchange> &rows)
    {
        for (const Exchange &row : rows)
            expectRow(row);
    }

    void create(const std::string &address, const std::string &vlan)
    {
        EXPECT_EQ(send("POST", "filter?vlanId=" + vlan, "{\"macAddr\":\"" + address + "\"}"), successLine());
    }

    std::string list(const std::string &name)
    {
        std::string answer = send("GET", "filter-" + name + "-intf-list?vlanId=2&" + macQuery);
        size_t at = answer.find("List\":\t\"") + 8;
        return answer.substr(at, answer.find('"', at) - at);
    }
};

static std::string data(const std::string &members)
{
    return success("\"staticFilter\":{" + members + "}");
}

/* What a request with lists says to the switch: texts in 4097 bytes. */
static std::string lists(const std::string &forward, const std::string &filter)
{
    return " fwdIntfList=[4097]\"" + forward + "\" filterIntfList=[4097]\"" + filter + "\"";
}

TEST_F(StaticFilter, takesModesAsWords)
{
    expectRows({
        {"PUT", "filter-admin-mode", R"({"adminmode":"enable"})", "AdminModeSet mode=1 -> 0", successLine()},
        {"GET", "filter-admin-mode", "", "AdminModeGet mode=0 -> 0 mode=1", data(R"("adminMode":"enable")")},
        {"PUT", "filter-admin-mode", R"({"adminMode":"Enable"})", "AdminModeSet mode=0 -> 0", successLine()},
        {"GET", "filter-admin-mode", "", "AdminModeGet mode=0 -> 0 mode=0", data(R"("adminMode":"disable")")},
        {"PUT", "filter-admin-mode", "enable", "", failureLine(10003)},

        {"PUT", "filter-filtering-mode", R"({"mode":"filter_filter_unregistered"})", "FilteringModeSet mode=2 -> 0",
         successLine()},
        {"GET", "filter-vlan-filtering-mode?vlanId=3", "", "VlanFilteringModeGet vlanId=3 mode=0 -> 0 mode=2",
         data(R"("mode":"filter_filter_unregistered")")}, /* VLANs without a mode of their own follow */
        {"PUT", "filter-vlan-filtering-mode?vlanId=3", R"({"mode":"filter_forward_unregistered","vlanId":4})",
         "VlanFilteringModeSet vlanId=3 mode=1 -> 0", successLine()},
        {"PUT", "filter-filtering-mode", R"({"mode":"FILTER_FORWARD_UNREGISTERED"})", "FilteringModeSet mode=0 -> 0",
         successLine()},
        {"GET", "filter-vlan-filtering-mode?vlanId=3", "", "VlanFilteringModeGet vlanId=3 mode=0 -> 0 mode=1",
         data(R"("mode":"filter_forward_unregistered")")},
        {"GET", "filter-vlan-filtering-mode?vlanId=4", "", "VlanFilteringModeGet vlanId=4 mode=0 -> 0 mode=0",
         data(R"("mode":"filter_forward_all")")},
        {"PUT", "filter-filtering-mode", R"({"mode":1})", "FilteringModeSet mode=0 -> 0", successLine()},
        {"PUT", "filter-filtering-mode", "", "", failureLine(10003)},
        {"PUT", "filter-vlan-filtering-mode?xvlanId=3", "{}", "VlanFilteringModeSet vlanId=0 mode=0 -> -22",
         failureLine(10003)},
        {"PUT", "filter-vlan-filtering-mode?vlanId=3", "[", "", failureLine(10003)},
        {"GET", "filter-vlan-filtering-mode?vlanId=5", "", "VlanFilteringModeGet vlanId=5 mode=0 -> -22",
         failure(10003)},
    });
    tell("fault " OP "VlanFilteringModeGet code=0 mode=7");
    EXPECT_EQ(send("GET", "filter-vlan-filtering-mode?vlanId=3"), data(R"("mode":"filter_forward_all")"));
    tell("fault " OP "AdminModeGet code=0 mode=2");
    EXPECT_EQ(send("GET", "filter-admin-mode"), data(R"("adminMode":"disable")"));
    tell("fault " OP "AdminModeGet code=-28");
    EXPECT_EQ(send("GET", "filter-admin-mode"), failure(17002));
}

TEST_F(StaticFilter, createsAndRemoves)
{
    const std::string noMac = R"([0]"")";
    expectRows({
        {"POST", "filter?vlanId=2", R"({"vlanId":3,"MACADDR":"02:00:00:00:AA:01cut"})",
         "Create mac=" + mac + " vlanId=2 -> 0 mac=" + mac, successLine()},
        {"POST", "filter?vlanId=2", "{" + macBody + "}", "Create mac=" + mac + " vlanId=2 -> -24", failureLine(10011)},
        {"POST", "filter?vlanId=5", "{" + macBody + "}", "Create mac=" + mac + " vlanId=5 -> -22", failureLine(10003)},
        {"POST", "filter?vlanId=2", R"({"macAddr":"01:80:C2:00:00:03"})",
         R"(Create mac=[17]"01:80:C2:00:00:03" vlanId=2 -> -22)", failureLine(10003)}, /* restricted */
        {"POST", "filter?" + macQuery, "{}", "Create mac=" + noMac + " vlanId=0 -> -22", failureLine(10003)},
        {"POST", "filter?vlanId=2&" + macQuery, "", "", failureLine(10003)},
        {"POST", "filter-is-configured?vlanId=2", "{" + macBody + "}",
         "IsConfigured mac=" + mac + " vlanId=2 flag=0 -> 0 mac=" + mac + " flag=1", data(R"("status":"true")")},
        {"POST", "filter-is-configured?vlanId=3", "{" + macBody + "}",
         "IsConfigured mac=" + mac + " vlanId=3 flag=0 -> 0 mac=" + mac + " flag=0", data(R"("status":"false")")},
        {"POST", "filter-is-configured?vlanId=3", R"({"macAddr":7})",
         "IsConfigured mac=" + noMac + " vlanId=3 flag=0 -> -22", failureLine(10003)},
        {"POST", "filter-is-configured?vlanId=3", "", "", failureLine(10003)},
        {"DELETE", "filter?vlanId=3&" + macQuery, "", "Remove mac=" + mac + " vlanId=3 -> -1", failureLine(10000)},
        {"DELETE", "filter?x" + macQuery + "cut&vlanId=2", "", "Remove mac=" + mac + " vlanId=2 -> 0 mac=" + mac,
         successLine()},
        {"DELETE", "filter?vlanId=2&" + macQuery, "", "Remove mac=" + mac + " vlanId=2 -> -1", failureLine(10000)},
        {"DELETE", "filter", "", "Remove mac=" + noMac + " vlanId=0 -> -22", failureLine(10003)},

        {"POST", "filter-check-mac-addr-type-multicast", R"({"macAddr":"01:00:5E:00:00:05"})",
         R"(CheckMacAddrTypeMulticast mac=[17]"01:00:5E:00:00:05" flag=0 -> 0 mac=[17]"01:00:5E:00:00:05" flag=1)",
         data(R"("status":"true")")},
        {"POST", "filter-check-mac-addr-type-multicast", "{" + macBody + "}",
         "CheckMacAddrTypeMulticast mac=" + mac + " flag=0 -> 0 mac=" + mac + " flag=0", data(R"("status":"false")")},
        {"POST", "filter-check-mac-addr-type-multicast", "{}",
         "CheckMacAddrTypeMulticast mac=" + noMac + " flag=0 -> -22", failureLine(10003)},
        {"POST", "filter-check-mac-addr-type-multicast", "", "", failureLine(10003)},
    });
}

TEST_F(StaticFilter, walksByAddressThenVlan)
{
    expectRow({"GET", "filter-first", "", R"(FirstGet mac=[18]"" vlanId=0 -> -1)", failure(10000)});
    create("02:00:00:00:AA:02", "1");
    create("02:00:00:00:AA:01", "4");
    create("01:00:5E:00:00:05", "3");
    create("02:00:00:00:AA:01", "2");
    expectRows({
        {"GET", "filter-first", "", R"(FirstGet mac=[18]"" vlanId=0 -> 0 mac=[18]"01:00:5E:00:00:05" vlanId=3)",
         data(R"("macAddr":"01:00:5E:00:00:05","vlanId":3)")},
        {"GET", "filter-next?macAddr=01:00:5E:00:00:05&vlanId=3", "",
         R"(NextGet mac=[17]"01:00:5E:00:00:05" vlanId=3 nextMac=[18]"" nextVlanId=0 -> )"
         R"(0 mac=[17]"01:00:5E:00:00:05" nextMac=[18]"02:00:00:00:AA:01" nextVlanId=2)",
         data(R"("nextMacAddr":"02:00:00:00:AA:01","nextVlanId":2)")},
    });
    EXPECT_EQ(send("GET", "filter-next?vlanId=2&" + macQuery),
              data(R"("nextMacAddr":"02:00:00:00:AA:01","nextVlanId":4)"));
    EXPECT_EQ(send("GET", "filter-next?vlanId=4&" + macQuery),
              data(R"("nextMacAddr":"02:00:00:00:AA:02","nextVlanId":1)"));
    expectRows({
        {"GET", "filter-next?vlanId=1&xmacAddr=02:00:00:00:AA:02", "",
         R"(NextGet mac=[17]"02:00:00:00:AA:02" vlanId=1 nextMac=[18]"" nextVlanId=0 -> -1)", failure(10000)},
        {"GET", "filter-next", "", R"(NextGet mac=[0]"" vlanId=0 nextMac=[18]"" nextVlanId=0 -> -22)", failure(10003)},
        {"GET", "filter-count", "", "CountGet count=0 -> 0 count=4", data(R"("count":4)")},
        {"GET", "filter-counters", "", "CountersGet total=0 multicast=0 unicast=0 -> 0 total=4 multicast=1 unicast=3",
         data(R"("totalCount":4,"multicastFiltCount":1,"unicastFiltCount":3)")},
        {"GET", "filter-size", "", "SizeGet size=0 -> 0 size=256", data(R"("size":256)")},
    });
    for (const char *target : {"filter-count", "filter-counters", "filter-size"}) {
        tell("fault * code=-22");
        tell("fault rpcclt_openapiConnectivityCheck code=0"); /* the program starts */
        EXPECT_EQ(send("GET", target), failure(10003));
        tell("clear");
    }
}

TEST_F(StaticFilter, keepsTheInterfacesOfAFilter)
{
    create("02:00:00:00:AA:01", "2");
    const struct { Exchange exchange; const char *name, *left; } steps[] = {
        {{"POST", "filter-src-intf-list-modify?vlanId=2", "{" + macBody + R"(,"srcIntfList":"9,7,8,3,7-8,12-13"})",
          "SrcIntfListModify mac=" + mac + R"( vlanId=2 srcIntfList=[4097]"9,7,8,3,7-8,12-13" -> 0 mac=)" + mac +
          R"( srcIntfList=[4097]"9,7,8,3,7-8,12-13")", successLine()}, "src", "3,7-9,12,13"},
        {{"POST", "filter-src-intf?vlanId=2&ifNum=11", "{" + macBody + R"(,"ifNum":4})",
          "SrcIntfAdd mac=" + mac + " vlanId=2 ifNum=11 -> 0 mac=" + mac, successLine()}, "src", "3,7-9,11-13"},
        {{"POST", "filter-src-intf?vlanId=2&ifNum=11", "{" + macBody + "}",
          "SrcIntfAdd mac=" + mac + " vlanId=2 ifNum=11 -> -24", failureLine(10011)}, "src", "3,7-9,11-13"},
        {{"DELETE", "filter-src-intf?ifNum=8&vlanId=2&" + macQuery, "",
          "SrcIntfDelete mac=" + mac + " vlanId=2 ifNum=8 -> 0 mac=" + mac, successLine()}, "src", "3,7,9,11-13"},
        {{"DELETE", "filter-src-intf?ifNum=8&vlanId=2&" + macQuery, "",
          "SrcIntfDelete mac=" + mac + " vlanId=2 ifNum=8 -> -1", failureLine(10000)}, "src", "3,7,9,11-13"},
        {{"POST", "filter-dst-intf?vlanId=2&ifNum=28", "{" + macBody + "}",
          "DstIntfAdd mac=" + mac + " vlanId=2 ifNum=28 -> 0 mac=" + mac, successLine()}, "dst", "28"},
        {{"POST", "filter-dst-intf-list?vlanId=2&ifNum=5",
          "{" + macBody + R"(,"fwdIntfList":"1","filterIntfList":"20-22,28"})",
          "DstIntfListAdd mac=" + mac + " vlanId=2 ifNum=5" + lists("1", "20-22,28") + " -> 0 mac=" + mac +
          lists("1", "20-22,28"), successLine()}, "dst", "1,5"},
        {{"POST", "filter-dst-intf?vlanId=2&ifNum=21", "{" + macBody + "}", /* forwards where it filtered */
          "DstIntfAdd mac=" + mac + " vlanId=2 ifNum=21 -> 0 mac=" + mac, successLine()}, "dst-filt", "20,22,28"},
        {{"DELETE", "filter-dst-intf-list?filterIntfList=22-24&fwdIntfList=5&vlanId=2&ifNum=5&" + macQuery, "",
          "DstIntfListDelete mac=" + mac + " vlanId=2 ifNum=5" + lists("5", "22-24") + " -> 0 mac=" + mac +
          lists("5", "22-24"), successLine()}, "dst-filt", "20,28"},
        {{"DELETE", "filter-dst-intf?vlanId=2&ifNum=1&" + macQuery, "",
          "DstIntfDelete mac=" + mac + " vlanId=2 ifNum=1 -> 0 mac=" + mac, successLine()}, "dst", "21"},
        {{"POST", "filter-src-intf-list-modify?vlanId=2", "{" + macBody + "}",
          "SrcIntfListModify mac=" + mac + R"( vlanId=2 srcIntfList=[4097]"" -> 0 mac=)" + mac +
          R"( srcIntfList=[4097]"")", successLine()}, "src", ""},
    };
    for (const auto &step : steps) {
        expectRow(step.exchange);
        EXPECT_EQ(list(step.name), step.left) << step.exchange.target;
    }
    expectRows({
        {"GET", "filter-dst-filt-intf-list?vlanId=2&" + macQuery, "",
         "DstFiltIntfListGet mac=" + mac + R"( vlanId=2 count=0 dstFiltIntfList=[4097]"" -> 0 mac=)" + mac +
         R"( count=2 dstFiltIntfList=[4097]"20,28")", data(R"("numOfDstIntf":2,"dstFiltIntfList":"20,28")")},
        {"GET", "filter-dst-intf-list?vlanId=2&" + macQuery, "",
         "DstIntfListGet mac=" + mac + R"( vlanId=2 count=0 dstIntfList=[4097]"" -> 0 mac=)" + mac +
         R"( count=1 dstIntfList=[4097]"21")", data(R"("numOfDstIntf":1,"dstIntfList":"21")")},
        {"GET", "filter-src-intf-list?vlanId=2&" + macQuery, "",
         "SrcIntfListGet mac=" + mac + R"( vlanId=2 count=0 srcIntfList=[4097]"" -> 0 mac=)" + mac +
         R"( count=0 srcIntfList=[4097]"")", data(R"("numOfSrcIntf":0,"srcIntfList":"")")},
        {"GET", "filter-src-intf-list?vlanId=3&" + macQuery, "",
         "SrcIntfListGet mac=" + mac + R"( vlanId=3 count=0 srcIntfList=[4097]"" -> -1)", failure(10000)},
        {"GET", "filter-dst-intf-list", "",
         R"(DstIntfListGet mac=[0]"" vlanId=0 count=0 dstIntfList=[4097]"" -> -22)", failure(10003)},
        {"GET", "filter-dst-filt-intf-list", "",
         R"(DstFiltIntfListGet mac=[0]"" vlanId=0 count=0 dstFiltIntfList=[4097]"" -> -22)", failure(10003)},
    });
}

TEST_F(StaticFilter, refusesListsThatAreNone)
{
    create("02:00:00:00:AA:01", "2");
    const std::string modify = "filter-src-intf-list-modify?vlanId=2", ports = "4-6";
    send("POST", modify, "{" + macBody + R"(,"srcIntfList":"4-6"})");
    for (const char *wrong : {"0", "29", "27-29", "6-4", "1,", ",1", "1,,2", "1-", "-1", "1--2", "a", "1 2", "0/1",
                              "1-2-3", "99999999999"}) {
        std::string answer = send("POST", modify, "{" + macBody + R"(,"srcIntfList":")" + wrong + "\"}");
        EXPECT_EQ(answer, failureLine(10003)) << wrong;
        EXPECT_EQ(list("src"), ports) << wrong;
    }
    const std::string all = "filter-dst-intf-list?vlanId=2&ifNum=";
    EXPECT_EQ(send("POST", all + "0", "{" + macBody + R"(,"fwdIntfList":"3-5","filterIntfList":"5"})"),
              failureLine(10003));
    EXPECT_EQ(send("POST", all + "5", "{" + macBody + R"(,"filterIntfList":"5"})"), failureLine(10003));
    EXPECT_EQ(send("POST", all + "29", "{" + macBody + R"(,"fwdIntfList":"5"})"), failureLine(10003));
    EXPECT_EQ(list("dst"), "");

    const std::string cut(4096, '1'), text = cut + std::string(904, '2'); /* more than the storage holds */
    expectRow({"POST", modify, "{" + macBody + R"(,"srcIntfList":")" + text + "\"}",
               "SrcIntfListModify mac=" + mac + " vlanId=2 srcIntfList=[4097]\"" + cut + "\" -> -22",
               failureLine(10003)});
    for (const char *name : {"src-intf-list-modify", "src-intf", "dst-intf", "dst-intf-list"})
        expectRow({"POST", std::string("filter-") + name + "?vlanId=2&ifNum=3", "[4-6]x", "", failureLine(10003)});
    for (auto [name, operation] : {std::pair("filter-src-intf", "SrcIntfAdd"), {"filter-dst-intf", "DstIntfAdd"}})
        expectRow({"POST", name, "{" + macBody + R"(,"vlanId":2,"ifNum":3})",
                   operation + (" mac=" + mac) + " vlanId=0 ifNum=0 -> -22", failureLine(10003)});
}

TEST_F(StaticFilter, keepsAStream)
{
    create("02:00:00:00:AA:01", "2");
    expectRows({
        {"PUT", "filter-stream?vlanId=2", "{" + macBody + R"(,"streamId":-7.9})",
         "StreamSet mac=" + mac + " vlanId=2 streamId=4294967289 -> 0 mac=" + mac, successLine()},
        {"GET", "filter-stream?vlanId=2&" + macQuery, "",
         "StreamGet mac=" + mac + " vlanId=2 streamId=0 -> 0 mac=" + mac + " streamId=4294967289",
         data(R"("streamId":4294967289)")},
        {"PUT", "filter-stream?vlanId=2", "{" + macBody + R"(,"streamId":"5"})",
         "StreamSet mac=" + mac + " vlanId=2 streamId=0 -> 0 mac=" + mac, successLine()},
        {"PUT", "filter-stream?vlanId=3", "{" + macBody + R"(,"streamId":5})",
         "StreamSet mac=" + mac + " vlanId=3 streamId=5 -> -1", failureLine(10000)},
        {"PUT", "filter-stream?vlanId=2", "", "", failureLine(10003)},
        {"GET", "filter-stream?vlanId=3&" + macQuery, "", "StreamGet mac=" + mac + " vlanId=3 streamId=0 -> -1",
         failure(10000)},
    });
}

TEST_F(StaticFilter, answersQuestionsAboutAnInterface)
{
    create("02:00:00:00:AA:01", "2");
    send("POST", "filter-dst-intf-list?vlanId=2", "{" + macBody + R"(,"filterIntfList":"5"})");
    const std::string yes = data(R"("status":"true")"), no = data(R"("status":"false")");
    expectRows({
        {"POST", "filter-is-intf-in-any-filter?ifNum=5", R"({"ifNum":6})",
         "IsIntfInAnyFilter ifNum=5 flag=0 -> 0 flag=1", yes},
        {"POST", "filter-is-intf-in-any-filter?ifNum=6", "", "IsIntfInAnyFilter ifNum=6 flag=0 -> 0 flag=0", no},
        {"POST", "filter-is-intf-in-any-filter", R"({"ifNum":5})", "IsIntfInAnyFilter ifNum=0 flag=0 -> -22",
         failureLine(10003)},
        {"PUT", "filter-port-parm-can?ifNum=7", "", "PortParmCanSet ifNum=7 flag=0 -> 0 flag=1", yes},
        {"PUT", "filter-port-parm-can", R"({"ifNum":7})", "PortParmCanSet ifNum=0 flag=0 -> -22", failureLine(10003)},
        {"POST", "filter-is-valid-intf?ifNum=28", "", "IsValidIntf ifNum=28 flag=0 -> 0 flag=1", yes},
        {"POST", "filter-is-valid-intf?ifNum=29", "", "IsValidIntf ifNum=29 flag=0 -> 0 flag=0", no},
    });
    tell("fault " OP "IsValidIntf code=-29");
    EXPECT_EQ(send("POST", "filter-is-valid-intf?ifNum=1"), failureLine(10023));
    tell("fault " OP "PortParmCanSet code=0 flag=2"); /* only 1 is yes */
    EXPECT_EQ(send("PUT", "filter-port-parm-can?ifNum=1"), no);
}

TEST_F(StaticFilter, losesWhatItsVlanHad)
{
    create("02:00:00:00:AA:01", "2");
    create("02:00:00:00:AA:01", "4");
    send("PUT", "filter-vlan-filtering-mode?vlanId=4", R"({"mode":"filter_filter_unregistered"})");
    for (auto [method, target] : {std::pair("DELETE", "vlan/delete?vlanNum=4"), {"POST", "vlan/create?vlanNum=4"}})
        SwitchTest::send(method, target);
    EXPECT_EQ(send("GET", "filter-count"), data(R"("count":1)"));
    EXPECT_EQ(send("GET", "filter-vlan-filtering-mode?vlanId=4"), data(R"("mode":"filter_forward_all")"));
}

TEST_F(StaticFilter, isFullAtItsSize)
{
    char address[18];
    for (int i = 0; i < 256; i++) {
        snprintf(address, sizeof address, "02:00:00:00:BB:%02X", i);
        create(address, "1");
    }
    EXPECT_EQ(send("POST", "filter?vlanId=2", "{" + macBody + "}"), failureLine(10000));
}
