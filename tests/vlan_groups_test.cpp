/*
 * vlan_groups_test.cpp - the VLAN of untagged traffic by its source's address or OUI, and by protocol in groups.
 */
#include "tests/vlan_support.h"

class VlanGroups : public VlanTest {};

#define OP "rpcclt_openapi"

static std::string pbvlan(const std::string &members) { return success("\"pbvlan\":{" + members + "}"); }

TEST_F(VlanGroups, translatesAddresses)
{
    const std::string mac = R"(mac=[17]"00:11:22:33:44:55")", oui = R"(oui=[8]"00:11:22")", next = "?oui=00:11:22";
    const std::string body = R"({"vlanId":1010,"mac":"00:11:22:33:44:55"})";
    expectReads("vlan/", {
        {"mac-oui-vlan-first", "VlanMacOuiVlanFirstGet", "oui=x:y vlanId=30", "oui vlanId", invalid},
        {"mac-oui-vlan-next" + next, "VlanMacOuiVlanNextGet " + oui, "nextOui=x:y vlanId=40", "nextOui vlanId",
         invalid},
        {"mac-oui-vlan-count", "VlanMacOuiVlanCountGet", "count=50", "count"},
    });
    expectWrites("vlan/", {
        {"POST", "mac", body, "VlanMacAdd " + mac + " vlanId=1010", raw},
        {"DELETE", "mac?vlanId=10&mac=00:11:22:33:44:55", "", "VlanMacDelete " + mac + " vlanId=10", raw},
        {"POST", "mac-oui-vlan?vlanId=10", R"({"oui":"00:11:22","vlanId":2})",
         "VlanMacOuiVlanAdd " + oui + " vlanId=10", mapped},
        {"DELETE", "mac-oui-vlan?vlanId=10", "", "VlanMacOuiVlanDelete vlanId=10", raw},
    });
    expectReads("vlan/", {
        {"mac-get-next", "VlanMacGetNext " + mac, "nextMac=x:y nextVlanId=20", "nextMac nextVlanId", invalid},
    }, "POST", body);
}

TEST_F(VlanGroups, takesAddressesAsTheyAre)
{
    const std::string cut(62, '1');
    auto sized = [](const std::string &text) { return "mac=[" + std::to_string(text.size()) + "]\"" + text + "\""; };
    /* a text of the query is cut to 63 characters, then decoded twice */
    tell("fault " OP "VlanMacGet code=0 vlanId=5");
    for (const auto &[query, text] : std::map<std::string, std::string>{
             {"mac=00%3A11%3a22:33", "00:11:22:33"}, {"mac=%2541", "A"}, {"mac=%252541", "%41"},
             {"mac=a%2Bb+c", "a b c"}, {"xmac=1&&mac=2&mac=3", "2"}, {"vlanId=10", ""},
             {"mac=" + cut + "345", cut + "3"}, {"mac=" + cut + "%41", cut + "%"}})
        expect({"GET", "vlan/mac?" + query, "",
                OP "VlanMacGet " + sized(text) + " vlanId=0 -> 0 " + sized(text) + " vlanId=5",
                vlan("\"mac\":\"" + text + "\",\"vlanId\":5")});
    tell("clear");
    for (const auto &[target, sent] : std::map<std::string, std::string>{
             {"mac=", sized("") + " vlanId=0"}, {"mac=A&vlanId=%31%30&x=1", sized("A") + " vlanId=10"},
             {"mac=%2541&vlanId=0000000000000010", sized("A") + " vlanId=1"},
             {"mac=A&vlanId=-1", sized("A") + " vlanId=4294967295"}})
        expect({"DELETE", "vlan/mac?" + target, "", OP "VlanMacDelete " + sent + " -> -22", failure(-22)});
    expectAll({
        {"POST", "vlan/mac", R"({"MAC":"%41)" + cut + "\"}",
         OP "VlanMacAdd " + sized("%41" + cut.substr(2)) + " vlanId=0 -> -22", failure(-22)},
        {"GET", "vlan/mac-oui-vlan-next?oui=%2541", "",
         OP R"(VlanMacOuiVlanNextGet oui=[1]"A" nextOui=[64]"" vlanId=0 -> -22)", invalid},
        {"POST", "vlan/mac-get-next", "{}", OP R"(VlanMacGetNext mac=[0]"" nextMac=[64]"" nextVlanId=0 -> -1)",
         invalid},
        {"POST", "vlan/mac-oui-vlan", R"({"oui":7})", OP R"(VlanMacOuiVlanAdd oui=[0]"" vlanId=0 -> -22)",
         failure(10003)},
        {"DELETE", "vlan/mac?vlanId=10", "", "", failure(10003)},
    });
    Environment without = request("DELETE", "vlan/mac");
    without.erase("QUERY_STRING");
    EXPECT_EQ(run(without).output, "Content-Type: application/json\r\n\r\n" + failure(10003));
}

TEST_F(VlanGroups, bindsAddressesToVlans)
{
    const std::string mac = "00:11:22:33:44:55", bind = R"({"mac":"00-11-22-33-44-55","vlanId":)";
    send("POST", "vlan/create?vlanNum=10");
    send("POST", "vlan/create?vlanNum=20");
    follow({
        {"POST", "vlan/mac", bind + "30}", failure(-22)},
        {"POST", "vlan/mac", bind + "10}", done},
        {"POST", "vlan/mac", bind + "20}", failure(-24)},
        {"POST", "vlan/mac", R"({"vlanId":20,"mac":"00:01:02:03:04:05"})", done},
        {"GET", "vlan/mac?mac=" + mac, "", vlan("\"mac\":\"" + mac + "\",\"vlanId\":10")},
        {"GET", "vlan/mac?mac=00:00:00:00:00:01", "", failure(10000)},
        {"POST", "vlan/mac-get-next", R"({"mac":"00:01:02:03:04:05"})",
         vlan("\"nextMac\":\"" + mac + "\",\"nextVlanId\":10")},
        {"DELETE", "vlan/mac?vlanId=10&mac=" + mac, "", done},
        {"POST", "vlan/mac-oui-vlan?vlanId=20", R"({"oui":"AC-DE-48"})", done},
        {"POST", "vlan/mac-oui-vlan?vlanId=10", R"({"oui":"ac:de:48"})", failure(10011)},
        {"POST", "vlan/mac-oui-vlan?vlanId=10", R"({"oui":"00:11:22"})", done},
        {"GET", "vlan/mac-oui-vlan-first", "", vlan(R"("oui":"00:11:22","vlanId":10)")},
        {"GET", "vlan/mac-oui-vlan-next?oui=00:11:22", "", vlan(R"("nextOui":"AC:DE:48","vlanId":20)")},
        {"DELETE", "vlan/mac-oui-vlan?vlanId=10", "", done},
        {"DELETE", "vlan/delete?vlanNum=20", "", done},
        {"GET", "vlan/mac-oui-vlan-count", "", vlan(R"("count":0)")},
    });
}

TEST_F(VlanGroups, translatesGroups)
{
    const std::string doneLine = successLine();
    expectWrites("pbvlan/", {
        {"POST", "group?groupId=2", "", "PbVlanGroupCreate groupId=2", mappedLine},
        {"DELETE", "group?groupId=2", "", "PbVlanGroupDelete groupId=2", mappedLine},
        {"POST", "group-protocol?groupId=2", R"({"prot":2048})", "PbVlanGroupProtocolAdd groupId=2 prot=2048",
         mappedLine},
        {"DELETE", "group-protocol?groupId=2&xprot=2048", "", "PbVlanGroupProtocolDelete groupId=2 prot=2048",
         mappedLine},
        {"POST", "intf-validate?ifNum=3", "", "PbVlanIntfValidate ifNum=3", mappedLine},
    });
    expectReads("pbvlan/", {
        {"group-get-first", "PbVlanGroupGetFirst", "groupId=7", "groupId", mappedLine},
        {"group-get-next?groupId=2", "PbVlanGroupGetNext groupId=2", "nextGroupId=8", "nextGroupId", mappedLine},
        {"group-port-get-next?ifNum=3&groupId=2", "PbVlanGroupPortGetNext groupId=2 ifNum=3", "nextIfNum=9",
         "nextIfNum", mappedLine},
    }, "POST");
    expectReads("pbvlan/", {
        {"group-protocol-get-next?groupId=2", "PbVlanGroupProtocolGetNext groupId=2 prot=2048", "nextProt=2054",
         "nextProt", mappedLine},
    }, "POST", R"({"prot":2048})");
    const std::string set = OP "PbVlanGroupNameSet groupId=2 groupName=", find = OP "PbVlanGroupIdGet groupName=";
    expectAll({
        {"POST", "pbvlan/group?groupId=2", "", OP "PbVlanGroupCreate groupId=2 -> 0", doneLine},
        {"PUT", "pbvlan/group-name?groupId=2", R"({"groupname":"ABCDEFGHIJKLMNOPQRS"})",
         set + R"([17]"ABCDEFGHIJKLMNOP" -> 0 groupName=[17]"ABCDEFGHIJKLMNOP")", doneLine},
        {"GET", "pbvlan/group-id?mygroupName=ABCDEFGHIJKLMNOPQ", "",
         find + R"([17]"ABCDEFGHIJKLMNOP" groupId=0 -> 0 groupName=[17]"ABCDEFGHIJKLMNOP" groupId=2)",
         pbvlan(R"("groupId":2)")},
        {"PUT", "pbvlan/group-name?groupId=2", R"({"groupName":5})", set + R"([1]"" -> 0 groupName=[1]"")", doneLine},
        {"GET", "pbvlan/group-id?groupName=%6Cab", "", find + R"([6]"%6Cab" groupId=0 -> -1)", failure(10000)},
        {"GET", "pbvlan/group-id", "", find + R"([1]"" groupId=0 -> -22)", failure(10003)},
        {"PUT", "pbvlan/group-name?groupId=3", R"({"groupName":"x"})",
         OP R"(PbVlanGroupNameSet groupId=3 groupName=[2]"x" -> -1)", failureLine(10000)},
        {"PUT", "pbvlan/group-name?groupId=2", "name", "", failureLine(10003)},
        {"GET", "pbvlan/group-protocol?groupid=2", "", OP R"(PbVlanGroupProtocolGet groupId=0 protList=[256]"" -> -22)",
         failure(10003)},
    });
}

TEST_F(VlanGroups, keepsGroups)
{
    const std::string doneLine = successLine(), protocol = "pbvlan/group-protocol?groupId=7";
    startSwitch({"--ports", "4"});
    follow({
        {"POST", "pbvlan/group-get-first", "", failureLine(10000)},
        {"POST", "pbvlan/group?groupId=20", "", doneLine},
        {"POST", "pbvlan/group?groupId=7", "", doneLine},
        {"POST", "pbvlan/group?groupId=7", "", failureLine(10011)},
        {"PUT", "pbvlan/group-name?groupId=7", R"({"groupName":"lab"})", doneLine},
        {"POST", protocol, R"({"prot":34525})", doneLine},
        {"POST", protocol, R"({"prot":2048})", doneLine},
        {"POST", protocol, R"({"prot":2048})", failureLine(10011)},
        {"GET", protocol, "", pbvlan(R"("protList":"2048,34525")")},
        {"POST", "pbvlan/intf-validate?ifNum=13", "", failureLine(10003)},
        {"POST", "pbvlan/group-get-first", "", pbvlan(R"("groupId":7)")},
        {"POST", "pbvlan/group-get-next?groupId=7", "", pbvlan(R"("nextGroupId":20)")},
        {"POST", "pbvlan/group-get-next?groupId=20", "", failureLine(10000)},
        {"POST", "pbvlan/group-protocol-get-next?groupId=7", R"({"prot":2048})", pbvlan(R"("nextProt":34525)")},
        {"POST", "pbvlan/group-port-get-next?groupId=7&ifNum=4", "", failureLine(10000)},
        {"DELETE", protocol + "&prot=2048", "", doneLine},
        {"DELETE", "pbvlan/group?groupId=7", "", doneLine},
        {"GET", "pbvlan/group-id?groupName=lab", "", failure(10000)},
    });
}

TEST_F(VlanGroups, holdsNamesForWhatIsNotOffered)
{
    const std::vector<const char *> sources = {"association/mac", "association/oui", "association/subnet",
                                               "protocol/group", "protocol/group-ethertype"};
    expectUnsupported("GET", "vlan/", sources, false);
    expectUnsupported("POST", "vlan/", sources, true);
    expectUnsupported("DELETE", "vlan/", sources, true);
    /* of a group's VLAN, name and ports, the handlers that work are never reached */
    expectUnsupported("GET", "pbvlan/", {"group-vlan-id", "group-name"}, false);
    expectUnsupported("POST", "pbvlan/", {"group-vlan-id", "group-name", "group-port"}, true);
    expectUnsupported("DELETE", "pbvlan/", {"group-vlan-id", "group-name", "group-port"}, true);
}
