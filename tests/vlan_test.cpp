/*
 * vlan_test.cpp - the VLAN table, the VLAN settings of a port and its switchport view, through the real program.
 */
#include "tests/vlan_support.h"

class Vlan : public VlanTest {};

#define OP "rpcclt_openapi"

TEST_F(Vlan, translatesTheTableAndTheSettingsOfAPort)
{
    expectReads("vlan/", {
        {"name-len", "VlanNameLenGet", "strLen=31", "strLen"},
        {"dot1q-max-supported-vlans", "Dot1qMaxSupportedVlansGet", "count=4000", "val"},
        {"most-vlan-entries", "MostVlanEntriesGet", "count=41", "val"},
        {"static-vlan-entries", "StaticVlanEntriesGet", "count=42", "val"},
        {"dynamic-vlan-entries", "DynamicVlanEntriesGet", "count=43", "val"},
        {"dot1q-vlan-num-deletes", "Dot1qVlanNumDeletesGet", "count=4294967295", "val"},
        {"tagged?ifNum=3&vlanId=7", "VlanTaggedSetGet vlanId=7 ifNum=3", "tagging=5", "val"},
        {"next-vlan?vid=8", "NextVlanGet vlanId=8", "nextVlanId=9", "nextVid"},
        {"type?vlanNum=8", "VlanTypeGet vlanId=8", "vlanType=6", "vlanType"},
        {"if-participation?ifNum=3&vlanNum=10", "VlanIfParticipationGet vlanId=10 ifNum=3", "mode=8",
         "participationMode"},
        {"if-num-traffic-classes?ifNum=3", "VlanIfNumTrafficClassesGet ifNum=3", "count=4", "numTrafficClasses"},
        {"if-default-user-priority?ifNum=3", "VlanIfDefaultUserPriorityGet ifNum=3", "priority=6", "priority"},
        {"qports-enable-ingress-filtering?ifNum=3", "QportsEnableIngressFilteringGet ifNum=3", "mode=2", "val"},
        {"qports-current-ingress-filtering?ifNum=3", "QportsCurrentIngressFilteringGet ifNum=3", "mode=4", "val"},
        {"dot1q-rx-packets-not-forwarded-count?ifNum=3", "Dot1qRxPacketsNotForwardedCountGet ifNum=3",
         "count=18446744073709551615", "totalRxPktsNotForwarded"},
    });
    expectWrites("vlan/", {
        {"POST", "create?vlanNum=12", "", "VlanCreate vlanId=12", mapped},
        {"DELETE", "delete?vlanNum=13", "", "VlanDelete vlanId=13", mapped},
        {"PUT", "if-accept-frame-type?ifNum=3", R"({"type":2})", "VlanIfAcceptFrameTypeSet ifNum=3 type=2", raw},
        {"PUT", "if-pvid?ifNum=3", R"({"vlanNum":1010})", "VlanIfPvidSet ifNum=3 vlanId=1010", mapped},
        {"PUT", "if-tagging?vlanNum=10&ifNum=3", R"({"TAGGING":1006})",
         "VlanIfTaggingSet ifNum=3 vlanId=10 tagging=1006", raw},
        {"PUT", "if-participation?ifNum=3&vlanNum=10", R"({"participationMode":1002})",
         "VlanIfParticipationSet vlanId=10 ifNum=3 mode=1002", raw},
        {"PUT", "if-default-user-priority?ifNum=3", R"({"priority":1007})",
         "VlanIfDefaultUserPrioritySet ifNum=3 priority=1007", mapped},
        {"PUT", "qports-enable-ingress-filtering?ifNum=3", R"({"mode":1001})",
         "QportsEnableIngressFilteringSet ifNum=3 mode=1001", mapped},
    });
    expectReads("vlan/", {
        {"dot1q-port-ingress-filtering?ifNum=3", "Dot1qPortIngressFiltering ifNum=3", "mode=3", "val"},
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
    expect({"GET", "vlan/vid-list?intfNum=4", "", list + "-7", invalid});
    expect({"GET", "vlan/if-accept-frame-type?ifNum=3", "", type + "-7", mapped});
}

TEST_F(Vlan, translatesTheSwitchport)
{
    expectReads("vlan/", {
        {"dot1q-sw-port-mode?intf=3", "Dot1qSwPortModeGet ifNum=3", "mode=8", "mode"},
        {"dot1q-sw-port-access-vlan?intf=3", "Dot1qSwPortAccessVlanGet ifNum=3", "vlanId=11", "vlanId", invalid},
        {"dot1q-sw-port-trunk-native-vlan?intf=3", "Dot1qSwPortTrunkNativeVlanGet ifNum=3", "vlanId=13", "vlanId",
         invalid},
        {"global-auto-trunk", "VlanGlobalAutoTrunkGet", "adminMode=3", "adminMode"},
    });
    expectWrites("vlan/", {
        {"PUT", "dot1q-sw-port-mode?intf=9", R"({"mode":1002,"intf":1003})", "Dot1qSwPortModeSet ifNum=1003 mode=1002",
         raw},
        {"PUT", "dot1q-sw-port-access-vlan?intf=3", R"({"vlanId":1012,"intf":9})",
         "Dot1qSwPortAccessVlanSet ifNum=3 vlanId=1012", mapped},
        {"PUT", "dot1q-sw-port-trunk-native-vlan?intf=3", R"({"vlanId":1014})",
         "Dot1qSwPortTrunkNativeVlanSet ifNum=3 vlanId=1014", mapped},
        {"PUT", "global-auto-trunk", R"({"adminMode":1002})", "VlanGlobalAutoTrunkSet adminMode=1002", raw},
    });
    for (auto [name, operation] : {std::pair{"trunk-allowed", "TrunkAllowed"}, {"forbidden", "Forbidden"},
                                   {"untagged", "Untagged"}, {"tagged", "Tagged"},
                                   {"dynamically-added", "DynamicallyAdded"}}) {
        std::string list = std::string("dot1q-sw-port-") + name + "-vlan-list?intf=3";
        std::string asked = std::string("Dot1qSwPort") + operation + "VlanListGet ifNum=3";
        expectReads("vlan/", {{list, asked, "vidList=30,10", "vidList"}});
    }
    for (auto [answer, on] : {std::pair{"code=0 mode=1", "true"}, {"code=0 mode=2", "false"}, {"code=0", "false"}}) {
        tell(std::string("fault " OP "Dot1qOperAutoTrunkModeGet ") + answer);
        EXPECT_EQ(send("GET", "vlan/dot1q-oper-auto-trunk-mode?intIfNum=3"),
                  vlan(std::string("\"autoTrunkOperMode\":") + on));
    }
    tell("clear");
    expect({"GET", "vlan/dot1q-oper-auto-trunk-mode?intf=3&ifNum=3&intIfNum=99", "",
            OP "Dot1qOperAutoTrunkModeGet ifNum=99 mode=0 -> -22", failure(10003)});
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
        {"POST", "vlan/create", R"({"vlanNum":10})", OP "VlanCreate vlanId=0 -> -22", failure(10003)},
        {"DELETE", "vlan/delete?vlannum=1", "", OP "VlanDelete vlanId=0 -> -22", failure(10003)},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", "{}", frameType + "1 -> 0", done},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", R"({"type":"2"})", frameType + "1 -> 0", done},
        {"PUT", "vlan/if-accept-frame-type?ifNum=3", R"({"type":-1})", frameType + "4294967295 -> -22", failure(-22)},
        {"PUT", "vlan/if-accept-frame-type", R"({"type":2,"ifNum":3})", "", failureLine(10003)},
        {"GET", "vlan/if-accept-frame-type?intf=3", "", "", failureLine(10003)},
        {"PUT", "vlan/if-pvid", R"({"vlanNum":1})", "", failureLine(10003)},
        {"POST", "vlan/dot1q-port-ingress-filtering", R"({"ifNum":3})",
         OP "Dot1qPortIngressFiltering ifNum=0 mode=0 -> -22", failure(10003)},
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
        {"POST", "vlan/create?vlanNum=4095", "", failure(10003)},
        {"DELETE", "vlan/delete?vlanNum=20", "", done},
        {"DELETE", "vlan/delete?vlanNum=20", "", failure(10003)},
        {"DELETE", "vlan/delete?vlanNum=1", "", failure(10000)},
        {"GET", "vlan/most-vlan-entries", "", vlan(R"("val":4)")},
        {"GET", "vlan/static-vlan-entries", "", vlan(R"("val":3)")},
        {"GET", "vlan/dot1q-vlan-num-deletes", "", vlan(R"("val":1)")},
        {"GET", "vlan/type?vlanNum=20", "", failure(10003)},
        {"GET", "vlan/next-vlan", "", vlan(R"("nextVid":1)")},
        {"GET", "vlan/next-vlan?vid=10", "", vlan(R"("nextVid":4094)")},
        {"GET", "vlan/next-vlan?vid=4094", "", failure(10000)},
    });
}

TEST_F(Vlan, putsPortsIntoVlans)
{
    const std::string vids = "vlan/vid-list?intfNum=3", member = R"({"participationMode":1})";
    follow({
        {"POST", "vlan/create?vlanNum=10", "", done},
        {"POST", "vlan/create?vlanNum=20", "", done},
        {"PUT", "vlan/if-participation?vlanNum=20&ifNum=3", member, done},
        {"PUT", "vlan/if-participation?vlanNum=10&ifNum=3", member, done},
        {"PUT", "vlan/if-tagging?vlanNum=20&ifNum=3", R"({"tagging":1})", done},
        {"GET", vids, "", vlan(R"("numOfElements":3,"vidList":[1,10,20])")},
        {"GET", "vlan/dot1q-sw-port-untagged-vlan-list?intf=3", "", vlan(R"("vidList":[1,10])")},
        {"GET", "vlan/dot1q-sw-port-tagged-vlan-list?intf=3", "", vlan(R"("vidList":[20])")},
        {"PUT", "vlan/if-participation?vlanNum=1&ifNum=3", R"({"participationMode":2})", done},
        {"GET", "vlan/dot1q-sw-port-forbidden-vlan-list?intf=3", "", vlan(R"("vidList":[1])")},
        {"PUT", "vlan/if-pvid?ifNum=3", R"({"vlanNum":20})", done},
        {"GET", "vlan/pvlan-intf-trunk-native-vlan?intf=3", "", vlan(R"("nativeVid":20)")},
        {"PUT", "vlan/if-participation?vlanNum=30&ifNum=3", member, failure(-22)},
        {"PUT", "vlan/if-pvid?ifNum=3", R"({"vlanNum":30})", failure(10003)},
        {"GET", "vlan/vid-list?intfNum=99", "", failureLine(10003)},
        {"DELETE", "vlan/delete?vlanNum=20", "", done},
        {"POST", "vlan/create?vlanNum=20", "", done},
        {"GET", vids, "", vlan(R"("numOfElements":1,"vidList":[10])")},
    });
}

TEST_F(Vlan, carriesTheLongestLists)
{
    const std::string allowed = "vlan/dot1q-sw-port-trunk-allowed-vlan-list";
    startSwitch({"--station-vlans", "4094"});
    std::string all = "1";
    for (int id = 2; id <= 4094; id++)
        all += "," + std::to_string(id);
    follow({
        {"PUT", allowed, R"({"intf":7,"vidList":[]})", done},
        {"GET", allowed + "?intf=7", "", vlan(R"("vidList":[])")},
        {"PUT", allowed, R"({"intf":7,"vidList":[)" + all + "]}", done},
        {"GET", allowed + "?intf=7", "", vlan("\"vidList\":[" + all + "]")},
        {"GET", "vlan/vid-list?intfNum=3", "", vlan("\"numOfElements\":4094,\"vidList\":[" + all + "]")},
    });
}
