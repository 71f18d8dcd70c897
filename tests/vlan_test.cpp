/*
 * vlan_test.cpp - the VLAN table, the VLAN settings of a port and its switchport view, through the real program.
 */
#include "tests/vlan_support.h"

class Vlan : public VlanTest {};

#define OP "rpcclt_openapi"

TEST_F(Vlan, translatesTheTableAndTheSettingsOfAPort)
{
    expectReads("vlan/", {
        {"name-len", "VlanNameLenGet", "strLen=31", "strLen", mapped},
        {"dot1q-max-supported-vlans", "Dot1qMaxSupportedVlansGet", "count=4000", "val", mapped},
        {"most-vlan-entries", "MostVlanEntriesGet", "count=41", "val", mapped},
        {"static-vlan-entries", "StaticVlanEntriesGet", "count=42", "val", mapped},
        {"dynamic-vlan-entries", "DynamicVlanEntriesGet", "count=43", "val", mapped},
        {"dot1q-vlan-num-deletes", "Dot1qVlanNumDeletesGet", "count=4294967295", "val", mapped},
        {"tagged?ifNum=3&vlanId=7", "VlanTaggedSetGet vlanId=7 ifNum=3", "tagging=5", "val", mapped},
        {"next-vlan?vid=8", "NextVlanGet vlanId=8", "nextVlanId=9", "nextVid", mapped},
        {"type?vlanNum=8", "VlanTypeGet vlanId=8", "vlanType=6", "vlanType", mapped},
        {"if-participation?ifNum=3&vlanNum=10", "VlanIfParticipationGet vlanId=10 ifNum=3", "mode=8",
         "participationMode", mapped},
        {"if-num-traffic-classes?ifNum=3", "VlanIfNumTrafficClassesGet ifNum=3", "count=4", "numTrafficClasses",
         mapped},
        {"if-default-user-priority?ifNum=3", "VlanIfDefaultUserPriorityGet ifNum=3", "priority=6", "priority", mapped},
        {"qports-enable-ingress-filtering?ifNum=3", "QportsEnableIngressFilteringGet ifNum=3", "mode=2", "val", mapped},
        {"qports-current-ingress-filtering?ifNum=3", "QportsCurrentIngressFilteringGet ifNum=3", "mode=4", "val",
         mapped},
        {"dot1q-rx-packets-not-forwarded-count?ifNum=3", "Dot1qRxPacketsNotForwardedCountGet ifNum=3",
         "count=5000000000", "totalRxPktsNotForwarded", mapped},
    });
    expectWrites("vlan/", {
        {"POST", "create?vlanNum=12", "", "VlanCreate vlanId=12", mapped},
        {"DELETE", "delete?vlanNum=13", "", "VlanDelete vlanId=13", mapped},
        {"PUT", "if-accept-frame-type?ifNum=3", R"({"type":2})", "VlanIfAcceptFrameTypeSet ifNum=3 type=2", raw},
        {"PUT", "if-pvid?ifNum=3", R"({"vlanNum":10})", "VlanIfPvidSet ifNum=3 vlanId=10", mapped},
        {"PUT", "if-tagging?vlanNum=10&ifNum=3", R"({"TAGGING":6})", "VlanIfTaggingSet ifNum=3 vlanId=10 tagging=6",
         raw},
        {"PUT", "if-participation?ifNum=3&vlanNum=10", R"({"participationMode":2})",
         "VlanIfParticipationSet vlanId=10 ifNum=3 mode=2", raw},
        {"PUT", "if-default-user-priority?ifNum=3", R"({"priority":7})",
         "VlanIfDefaultUserPrioritySet ifNum=3 priority=7", mapped},
        {"PUT", "qports-enable-ingress-filtering?ifNum=3", R"({"mode":1})",
         "QportsEnableIngressFilteringSet ifNum=3 mode=1", mapped},
    });
    expectReads("vlan/", {
        {"dot1q-port-ingress-filtering?ifNum=3", "Dot1qPortIngressFiltering ifNum=3", "mode=3", "val", mapped},
    }, "POST");

    const std::string list = OP "VlanVIDListGet ifNum=4 vidList=0() numOfElements=0 -> ";
    const std::string type = OP "VlanIfAcceptFrameTypeGet ifNum=3 type=1 -> ";
    tell("fault " OP "VlanVIDListGet code=0 vidList=20,10 numOfElements=7 times=1");
    tell("fault " OP "VlanIfAcceptFrameTypeGet code=0 type=9 times=1");
    expectAll({
        /* the two counts are OpEN's, each from its own place */
        {"GET", "vlan/vid-list?intfNum=4", "", list + "0 vidList=2(20 10) numOfElements=7",
         vlan(R"("numOfElements":7,"vidList":[20,10])")},
        {"GET", "vlan/if-accept-frame-type?ifNum=3", "", type + "0 type=9", vlan(R"("type":9)")},
    });
    tell("fault " OP "VlanVIDListGet code=-7");
    tell("fault " OP "VlanIfAcceptFrameTypeGet code=-7");
    expectAll({
        {"GET", "vlan/vid-list?intfNum=4", "", list + "-7", invalid},
        {"GET", "vlan/if-accept-frame-type?ifNum=3", "", type + "-7", mapped},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", "[", "", failureLine(10003)},
    });
}

TEST_F(Vlan, translatesTheSwitchport)
{
    expectReads("vlan/", {
        {"dot1q-sw-port-mode?intf=3", "Dot1qSwPortModeGet ifNum=3", "mode=8", "mode", mapped},
        {"dot1q-sw-port-access-vlan?intf=3", "Dot1qSwPortAccessVlanGet ifNum=3", "vlanId=11", "vlanId", invalid},
        {"dot1q-sw-port-trunk-native-vlan?intf=3", "Dot1qSwPortTrunkNativeVlanGet ifNum=3", "vlanId=13", "vlanId",
         invalid},
        {"global-auto-trunk", "VlanGlobalAutoTrunkGet", "adminMode=3", "adminMode", mapped},
    });
    expectWrites("vlan/", {
        {"PUT", "dot1q-sw-port-mode?intf=9", R"({"mode":2,"intf":3})", "Dot1qSwPortModeSet ifNum=3 mode=2", raw},
        {"PUT", "dot1q-sw-port-access-vlan?intf=3", R"({"vlanId":12,"intf":9})",
         "Dot1qSwPortAccessVlanSet ifNum=3 vlanId=12", mapped},
        {"PUT", "dot1q-sw-port-trunk-native-vlan?intf=3", R"({"vlanId":14})",
         "Dot1qSwPortTrunkNativeVlanSet ifNum=3 vlanId=14", mapped},
        {"PUT", "global-auto-trunk", R"({"adminMode":2})", "VlanGlobalAutoTrunkSet adminMode=2", raw},
    });
    for (auto [name, operation] : {std::pair{"trunk-allowed", "TrunkAllowed"}, {"forbidden", "Forbidden"},
                                   {"untagged", "Untagged"}, {"tagged", "Tagged"},
                                   {"dynamically-added", "DynamicallyAdded"}}) {
        std::string list = std::string("dot1q-sw-port-") + name + "-vlan-list?intf=3";
        std::string asked = std::string("Dot1qSwPort") + operation + "VlanListGet ifNum=3";
        expectReads("vlan/", {{list, asked, "vidList=30,10", "vidList", mapped}});
    }
    for (auto [answer, on] : {std::pair{"code=0 mode=1", "true"}, {"code=0 mode=2", "false"}, {"code=0", "false"}}) {
        tell(std::string("fault " OP "Dot1qOperAutoTrunkModeGet ") + answer);
        EXPECT_EQ(send("GET", "vlan/dot1q-oper-auto-trunk-mode?intIfNum=3"),
                  vlan(std::string("\"autoTrunkOperMode\":") + on));
    }
    tell("clear");
    expect({"GET", "vlan/dot1q-oper-auto-trunk-mode?intf=3&ifNum=3&intIfNum=30", "",
            OP "Dot1qOperAutoTrunkModeGet ifNum=30 mode=0 -> -22", failure(10003)});
}

TEST_F(Vlan, carriesListsBothWays)
{
    /* a setter that returns the list in its argument */
    const char *target = "vlan/dot1q-sw-port-trunk-allowed-vlan-list";
    const char *set = OP "Dot1qSwPortTrunkAllowedVlanListSet";
    for (auto [body, sent] : {std::pair{R"({"vidList":[10,"x",30],"intf":5})", " ifNum=5 vidList=3(10 0 30)"},
                              {R"({"intf":5,"vidList":70000})", " ifNum=5 vidList=0()"},
                              {R"({"intf":5,"vidList":[65546,-1,7.9,true,7]})", " ifNum=5 vidList=5(10 65535 7 0 7)"},
                              {R"({"intf":"5"})", " ifNum=0 vidList=0()"}}) {
        std::string asked = std::string(set) + sent;
        tell(std::string("fault ") + set + " code=0 times=1");
        expect({"PUT", target, body, asked + " -> 0" + asked.substr(asked.find(" vidList")), done});
        tell(std::string("fault ") + set + " code=-7 times=1");
        expect({"PUT", target, body, asked + " -> -7", raw});
    }
    expect({"PUT", target, "[", "", failureLine(10003)});
    /* a count that claims more ids than a list holds is answered with those it holds */
    tell("fault " OP "Dot1qSwPortTaggedVlanListGet code=0 vidList=70000:5");
    std::string zeroes;
    for (int i = 1; i < 4096; i++)
        zeroes += ",0";
    EXPECT_EQ(send("GET", "vlan/dot1q-sw-port-tagged-vlan-list?intf=3"), vlan("\"vidList\":[5" + zeroes + "]"));
}

TEST_F(Vlan, mapsWhatOpenSays)
{
    for (auto [code, result] : {std::pair{-1, 10000}, {-22, 10003}, {-24, 10011}, {-28, 17002}, {-29, 10023}}) {
        tell("fault " OP "VlanCreate code=" + std::to_string(code));
        EXPECT_EQ(send("POST", "vlan/create?vlanNum=5"), failure(result)) << code;
        tell("fault " OP "VlanIfTaggingSet code=" + std::to_string(code));
        EXPECT_EQ(send("PUT", "vlan/if-tagging", "{}"), failure(code, "Error code unknown")) << code;
        tell("fault " OP "Dot1qSwPortAccessVlanGet code=" + std::to_string(code));
        EXPECT_EQ(send("GET", "vlan/dot1q-sw-port-access-vlan"), failureLine(10003)) << code;
    }
    tell("fault " OP "VlanIfTaggingSet code=-204");
    EXPECT_EQ(send("PUT", "vlan/if-tagging", "{}"), failure(-204, "Invalid user, user does not exist"));
}

TEST_F(Vlan, takesKeysAndBodiesAsTheyAre)
{
    const std::string frameType = OP "VlanIfAcceptFrameTypeSet ifNum=3 type=";
    expectAll({
        {"GET", "vlan/tagged?xvlanId=5&vlanId=1&vlanIds=9&ifNum=3", "",
         OP "VlanTaggedSetGet vlanId=1 ifNum=3 tagging=0 -> 0 tagging=0", vlan(R"("val":0)")},
        {"GET", "vlan/tagged?vlanId&vlanId=1junk&ifNum=4294967299", "",
         OP "VlanTaggedSetGet vlanId=1 ifNum=3 tagging=0 -> 0 tagging=0", vlan(R"("val":0)")},
        {"GET", "vlan/next-vlan?vid=", "", OP "NextVlanGet vlanId=0 nextVlanId=0 -> 0 nextVlanId=1",
         vlan(R"("nextVid":1)")},
        {"POST", "vlan/create", R"({"vlanNum":10})", OP "VlanCreate vlanId=0 -> -22", failure(10003)},
        {"DELETE", "vlan/delete?vlannum=1", "", OP "VlanDelete vlanId=0 -> -22", failure(10003)},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", "{}", frameType + "1 -> 0", done},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", R"({"type":"2"})", frameType + "1 -> 0", done},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", R"({"type":3.9})", frameType + "3 -> 0", done},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", R"({"type":-1})", frameType + "4294967295 -> -22", failure(-22)},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", "", "", failureLine(10003)},
        {"PUT", "vlan/if-accept-frame-type", R"({"type":2,"ifNum":3})", "", failureLine(10003)},
        {"GET", "vlan/if-accept-frame-type?intf=3", "", "", failureLine(10003)},
        {"GET", "vlan/if-accept-frame-type?ifNum=x", "", "", failureLine(10003)},
        {"PUT", "vlan/if-pvid", R"({"vlanNum":1})", "", failureLine(10003)},
        {"PUT", "vlan/if-pvid?ifNum=3", R"({"vlanId":1})", OP "VlanIfPvidSet ifNum=3 vlanId=0 -> -22", failure(10003)},
        {"PUT", "vlan/if-tagging", R"({"tagging":1})", OP "VlanIfTaggingSet ifNum=0 vlanId=0 tagging=1 -> -22",
         failure(-22)},
        {"PUT", "vlan/if-participation?ifNum=3&vlanNum=1", R"({"participationMode":true})",
         OP "VlanIfParticipationSet vlanId=1 ifNum=3 mode=0 -> 0", done},
        {"POST", "vlan/dot1q-port-ingress-filtering", R"({"ifNum":3})",
         OP "Dot1qPortIngressFiltering ifNum=0 mode=0 -> -22", failure(10003)},
        {"GET", "vlan/vid-list", "", OP "VlanVIDListGet ifNum=0 vidList=0() numOfElements=0 -> -22",
         failureLine(10003)},
        {"GET", "vlan/dot1q-sw-port-access-vlan?intf=999", "", OP "Dot1qSwPortAccessVlanGet ifNum=999 vlanId=0 -> -22",
         failureLine(10003)},
    });
    tell("fault * code=0");
    expectAll({ /* what OpEN leaves untouched */
        {"GET", "vlan/if-accept-frame-type?ifNum=3", "", OP "VlanIfAcceptFrameTypeGet ifNum=3 type=1 -> 0 type=1",
         vlan(R"("type":1)")},
        {"GET", "vlan/vid-list?intfNum=3", "",
         OP "VlanVIDListGet ifNum=3 vidList=0() numOfElements=0 -> 0 vidList=0() numOfElements=0",
         vlan(R"("numOfElements":0,"vidList":[])")},
    });
}

TEST_F(Vlan, holdsNamesForWhatIsNotOffered)
{
    expectUnsupported("GET", "vlan/", {"list", "detail", "name", "status", "port", "next", "next-changed", "if-pvid",
                                       "if-tagging", "if-participation-status"}, false);
    expectUnsupported("GET", "vlan/", {"created"}, true);
    expectUnsupported("POST", "vlan/", {"list", "is-static", "participation-all", "acceptframe-all", "pvid-all",
                                        "tagging-all", "ingressfilter-all", "priority-all"}, true);
    expectUnsupported("DELETE", "vlan/", {"list"}, true);
    expectUnsupported("PUT", "vlan/", {"name"}, true);
}

TEST_F(Vlan, keepsATable)
{
    follow({
        {"POST", "vlan/create?vlanNum=20", "", done},
        {"POST", "vlan/create?vlanNum=10", "", done},
        {"POST", "vlan/create?vlanNum=4094", "", done},
        {"POST", "vlan/create?vlanNum=10", "", failure(10011)},
        {"POST", "vlan/create?vlanNum=1", "", failure(10011)},
        {"POST", "vlan/create?vlanNum=4095", "", failure(10003)},
        {"GET", "vlan/most-vlan-entries", "", vlan(R"("val":4)")},
        {"DELETE", "vlan/delete?vlanNum=20", "", done},
        {"DELETE", "vlan/delete?vlanNum=20", "", failure(10003)},
        {"DELETE", "vlan/delete?vlanNum=1", "", failure(10000)},
        {"GET", "vlan/most-vlan-entries", "", vlan(R"("val":4)")},
        {"GET", "vlan/static-vlan-entries", "", vlan(R"("val":3)")},
        {"GET", "vlan/dynamic-vlan-entries", "", vlan(R"("val":0)")},
        {"GET", "vlan/dot1q-vlan-num-deletes", "", vlan(R"("val":1)")},
        {"GET", "vlan/type?vlanNum=1", "", vlan(R"("vlanType":1)")},
        {"GET", "vlan/type?vlanNum=10", "", vlan(R"("vlanType":2)")},
        {"GET", "vlan/type?vlanNum=20", "", failure(10003)},
        {"GET", "vlan/dot1q-max-supported-vlans", "", vlan(R"("val":4094)")},
    });
    EXPECT_EQ(walk("GET", "vlan/next-vlan?vid=", "nextVid", failure(10000)), "1 10 4094 ");
    tell("reset");
    EXPECT_EQ(walk("GET", "vlan/next-vlan?vid=", "nextVid", failure(10000)), "1 ");
    EXPECT_EQ(send("GET", "vlan/dot1q-vlan-num-deletes"), vlan(R"("val":0)"));
}

TEST_F(Vlan, putsPortsIntoVlans)
{
    const std::string vids = "vlan/vid-list?intfNum=3", untagged = "vlan/dot1q-sw-port-untagged-vlan-list?intf=3";
    const std::string tagged = "vlan/dot1q-sw-port-tagged-vlan-list?intf=3";
    const std::string forbidden = "vlan/dot1q-sw-port-forbidden-vlan-list?intf=3";
    follow({
        {"POST", "vlan/create?vlanNum=10", "", done},
        {"POST", "vlan/create?vlanNum=20", "", done},
        {"GET", vids, "", vlan(R"("numOfElements":1,"vidList":[1])")},
        {"GET", "vlan/if-participation?vlanNum=10&ifNum=3", "", vlan(R"("participationMode":0)")},
        {"PUT", "vlan/if-participation?vlanNum=20&ifNum=3", R"({"participationMode":1})", done},
        {"PUT", "vlan/if-participation?vlanNum=10&ifNum=3", R"({"participationMode":1})", done},
        {"PUT", "vlan/if-tagging?vlanNum=20&ifNum=3", R"({"tagging":1})", done},
        {"GET", vids, "", vlan(R"("numOfElements":3,"vidList":[1,10,20])")},
        {"GET", untagged, "", vlan(R"("vidList":[1,10])")},
        {"GET", tagged, "", vlan(R"("vidList":[20])")},
        {"GET", "vlan/tagged?vlanId=20&ifNum=3", "", vlan(R"("val":1)")},
        {"GET", "vlan/tagged?vlanId=20&ifNum=4", "", vlan(R"("val":0)")},
        {"PUT", "vlan/if-participation?vlanNum=1&ifNum=3", R"({"participationMode":2})", done},
        {"GET", untagged, "", vlan(R"("vidList":[10])")},
        {"GET", forbidden, "", vlan(R"("vidList":[1])")},
        {"PUT", "vlan/if-pvid?ifNum=3", R"({"vlanNum":20})", done},
        {"GET", "vlan/pvlan-intf-trunk-native-vlan?intf=3", "", vlan(R"("nativeVid":20)")},
        /* refused: a VLAN, a port, a value that is none */
        {"PUT", "vlan/if-participation?vlanNum=30&ifNum=3", R"({"participationMode":1})", failure(-22)},
        {"PUT", "vlan/if-participation?vlanNum=10&ifNum=29", R"({"participationMode":1})", failure(-22)},
        {"PUT", "vlan/if-participation?vlanNum=10&ifNum=3", R"({"participationMode":3})", failure(-22)},
        {"PUT", "vlan/if-tagging?vlanNum=10&ifNum=3", R"({"tagging":2})", failure(-22)},
        {"PUT", "vlan/if-pvid?ifNum=3", R"({"vlanNum":30})", failure(10003)},
        {"GET", "vlan/if-participation?vlanNum=30&ifNum=3", "", failure(10003)},
        {"GET", "vlan/tagged?vlanId=10&ifNum=29", "", failure(10003)},
        {"GET", "vlan/vid-list?intfNum=29", "", failureLine(10003)},
        /* a VLAN that is deleted and made again starts afresh */
        {"DELETE", "vlan/delete?vlanNum=20", "", done},
        {"GET", "vlan/pvlan-intf-trunk-native-vlan?intf=3", "", vlan(R"("nativeVid":1)")},
        {"POST", "vlan/create?vlanNum=20", "", done},
        {"GET", vids, "", vlan(R"("numOfElements":1,"vidList":[10])")},
        {"GET", "vlan/tagged?vlanId=20&ifNum=3", "", vlan(R"("val":0)")},
    });
}

TEST_F(Vlan, makesAccessPortsAndTrunks)
{
    const std::string vids = "vlan/vid-list?intfNum=5", mode = "vlan/dot1q-sw-port-mode";
    const std::string allowed = "vlan/dot1q-sw-port-trunk-allowed-vlan-list";
    for (const char *id : {"10", "20", "30"})
        send("POST", std::string("vlan/create?vlanNum=") + id);
    follow({
        {"GET", mode + "?intf=5", "", vlan(R"("mode":3)")},
        {"GET", allowed + "?intf=5", "", vlan(R"("vidList":[1,10,20,30])")},
        {"PUT", "vlan/dot1q-sw-port-access-vlan?intf=5", R"({"vlanId":10})", done},
        {"PUT", "vlan/dot1q-sw-port-trunk-native-vlan?intf=5", R"({"vlanId":20})", done},
        {"GET", vids, "", vlan(R"("numOfElements":1,"vidList":[1])")},
        {"PUT", mode, R"({"intf":5,"mode":1})", done},
        {"GET", "vlan/dot1q-sw-port-untagged-vlan-list?intf=5", "", vlan(R"("vidList":[10])")},
        {"GET", "vlan/dot1q-sw-port-forbidden-vlan-list?intf=5", "", vlan(R"("vidList":[1,20,30])")},
        {"GET", "vlan/if-participation?vlanNum=10&ifNum=5", "", vlan(R"("participationMode":1)")},
        {"PUT", "vlan/if-participation?vlanNum=20&ifNum=5", R"({"participationMode":1})", failure(-1)},
        {"PUT", "vlan/if-tagging?vlanNum=10&ifNum=5", R"({"tagging":1})", failure(-1)},
        {"PUT", "vlan/if-pvid?ifNum=5", R"({"vlanNum":30})", done},
        {"GET", "vlan/dot1q-sw-port-access-vlan?intf=5", "", vlan(R"("vlanId":30)")},
        {"PUT", mode, R"({"intf":5,"mode":2})", done},
        {"PUT", allowed, R"({"intf":5,"vidList":[30,10,20,10]})", done},
        {"GET", allowed + "?intf=5", "", vlan(R"("vidList":[10,20,30])")},
        {"GET", "vlan/dot1q-sw-port-tagged-vlan-list?intf=5", "", vlan(R"("vidList":[10,30])")},
        {"GET", "vlan/dot1q-sw-port-untagged-vlan-list?intf=5", "", vlan(R"("vidList":[20])")},
        {"GET", "vlan/dot1q-sw-port-trunk-native-vlan?intf=5", "", vlan(R"("vlanId":20)")},
        {"GET", "vlan/qports-enable-ingress-filtering?ifNum=5", "", vlan(R"("val":0)")},
        {"GET", "vlan/qports-current-ingress-filtering?ifNum=5", "", vlan(R"("val":1)")},
        {"PUT", allowed, R"({"intf":5,"vidList":[10,40]})", failure(-22)},
        {"PUT", allowed, R"({"intf":29,"vidList":[10]})", failure(-22)},
        {"PUT", mode, R"({"intf":5,"mode":4})", failure(-22)},
        {"PUT", "vlan/dot1q-sw-port-access-vlan?intf=5", R"({"vlanId":40})", failure(10003)},
        {"PUT", "vlan/dot1q-sw-port-trunk-native-vlan?intf=29", R"({"vlanId":10})", failure(10003)},
        {"GET", "vlan/dot1q-oper-auto-trunk-mode?intIfNum=5", "", vlan(R"("autoTrunkOperMode":false)")},
        {"PUT", "vlan/global-auto-trunk", R"({"adminMode":1})", done},
        {"GET", "vlan/dot1q-oper-auto-trunk-mode?intIfNum=5", "", vlan(R"("autoTrunkOperMode":true)")},
        {"GET", "vlan/dot1q-oper-auto-trunk-mode?intIfNum=6", "", vlan(R"("autoTrunkOperMode":false)")},
        {"DELETE", "vlan/delete?vlanNum=20", "", done},
        {"GET", allowed + "?intf=5", "", vlan(R"("vidList":[10,30])")},
        {"GET", "vlan/dot1q-sw-port-trunk-native-vlan?intf=5", "", vlan(R"("vlanId":1)")},
        {"PUT", mode, R"({"intf":5,"mode":3})", done},
        {"GET", vids, "", vlan(R"("numOfElements":1,"vidList":[1])")},
    });
}

TEST_F(Vlan, carriesTheLongestLists)
{
    const std::string allowed = "vlan/dot1q-sw-port-trunk-allowed-vlan-list";
    const std::string added = "vlan/dot1q-sw-port-dynamically-added-vlan-list?intf=3";
    startSwitch({"--station-vlans", "4094"});
    std::string all = "1", many = "1";
    for (int id = 2; id <= 4094; id++)
        all += "," + std::to_string(id);
    for (int i = 1; i < 5000; i++)
        many += "," + std::to_string(1 + i % 4094);
    follow({
        {"GET", "vlan/dynamic-vlan-entries", "", vlan(R"("val":4093)")},
        {"PUT", allowed, R"({"intf":7,"vidList":[]})", done},
        {"GET", allowed + "?intf=7", "", vlan(R"("vidList":[])")},
        {"PUT", allowed, R"({"intf":7,"vidList":[)" + all + "]}", done},
        {"GET", allowed + "?intf=7", "", vlan("\"vidList\":[" + all + "]")},
        {"GET", "vlan/vid-list?intfNum=3", "", vlan("\"numOfElements\":4094,\"vidList\":[" + all + "]")},
        {"GET", added, "", vlan("\"vidList\":[" + all.substr(2) + "]")},
        {"PUT", "vlan/if-participation?vlanNum=2&ifNum=3", R"({"participationMode":2})", done},
        {"GET", added, "", vlan("\"vidList\":[" + all.substr(4) + "]")},
        {"DELETE", "vlan/delete?vlanNum=4094", "", done},
        {"GET", allowed + "?intf=7", "", vlan("\"vidList\":[" + all.substr(0, all.size() - 5) + "]")},
    });
    takeTrace();
    send("PUT", allowed, R"({"intf":7,"vidList":[)" + many + "]}");
    std::string sent = many.substr(0, many.find(",3,4,5,", all.size())); /* the 4096th element is the second 2 */
    std::replace(sent.begin(), sent.end(), ',', ' ');
    EXPECT_EQ(takeTrace(), OP "Dot1qSwPortTrunkAllowedVlanListSet ifNum=7 vidList=4096(" + sent + ") -> -22");

    /* the second station lives in VLAN 2, and goes with it */
    const std::string station = "\"bridge\":{\"address\":\"02:00:00:00:02:02\",\"exists\":";
    follow({
        {"GET", "bridge/dot1d-tp-fdb-entry?address=02:00:00:00:02:02", "", success(station + "true}")},
        {"DELETE", "vlan/delete?vlanNum=2", "", done},
        {"GET", "bridge/dot1d-tp-fdb-entry?address=02:00:00:00:02:02", "", success(station + "false}")},
    });
}
