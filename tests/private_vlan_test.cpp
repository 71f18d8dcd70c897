/*
 * private_vlan_test.cpp - private VLANs: primary and secondary VLANs, hosts and promiscuous ports.
 */
#include "tests/vlan_support.h"

class PrivateVlan : public VlanTest {
protected:
    /* VLAN 100 with the isolated VLAN 101 and the community VLANs 102 and 103; VLAN 200 is a primary without any. */
    void buildPrivateVlan()
    {
        for (auto [id, type] : {std::pair{"100", 1}, {"101", 2}, {"102", 3}, {"103", 3}, {"200", 1}})
            follow({{"POST", std::string("vlan/create?vlanNum=") + id, "", done},
                    {"POST", std::string("vlan/dot1q-private-vlan-enable?vlanId=") + id,
                     "{\"pvlanType\":" + std::to_string(type) + "}", done}});
        follow({{"POST", "vlan/dot1q-api-private-vlan-assoc?vlanId=100", R"({"vidList":[103,101,102]})", done}});
    }
};

TEST_F(PrivateVlan, translatesVlansAndInterfaces)
{
    const char *one = "primaryVid=100 secondaryVid=101", *oneKeys = "primaryVid secondaryVid";
    const char *many = "primaryVid=100 secondaryVidList=102,101", *manyKeys = "primaryVid secondaryVidList";
    const std::string assoc = "dot1q-api-private-vlan-assoc", add = "Dot1qApiPrivateVlanAssocAdd";
    const std::string remove = "Dot1qApiPrivateVlanAssocRemove";
    expectReads("vlan/", {
        {"dot1q-private-vlan?vlanId=100", "Dot1qPrivateVlanGet vlanId=100", "pvlanType=9", "pvlanType"},
        {"dot1q-private-vlan-association?vlanId=100", "Dot1qPrivateVlanAssociationGet vlanId=100", "vidList=102,101",
         "vidList"},
        {"pvlan-intf-mode?intf=3", "PvlanIntfModeGet ifNum=3", "mode=8", "mode"},
        {"pvlan-intf-oper-assoc?intf=3", "PvlanIntfOperAssocGet ifNum=3", "operationalVidList=100,101",
         "operationalVidList"},
        {"pvlan-intf-promisc-trunk-assoc-next?intf=3&primaryVid=100",
         "PvlanIntfPromiscTrunkAssocNextGet ifNum=3 primaryVid=100", "nextPrimaryVid=200 secondaryVidList=202,201",
         "nextPrimaryVid secondaryVidList", invalid},
        {"pvlan-intf-isolated-trunk-assoc-next?primaryVid=100&intf=3",
         "PvlanIntfIsolatedTrunkAssocNextGet ifNum=3 primaryVid=100", "nextPrimaryVid=200 secondaryVid=201",
         "nextPrimaryVid secondaryVid", invalid},
        {"pvlan-intf-trunk-native-vlan?intf=3", "PvlanIntfTrunkNativeVlanGet ifNum=3", "nativeVid=12", "nativeVid"},
        {"pvlan-intf-trunk-allowed-vlan-list?intf=3", "PvlanIntfTrunkAllowedVlanListGet ifNum=3", "normalVidList=13,12",
         "normalVidList"},
        /* the associations twice, by another key and with the code made in another way */
        {"pvlan-intf-host-assoc?intf=3&ifNum=9", "PvlanIntfHostAssocGet ifNum=3", one, oneKeys, invalid},
        {"dot1q-pvlan-intf-host-assoc?intf=9&ifNum=3", "PvlanIntfHostAssocGet ifNum=3", one, oneKeys},
        {"pvlan-intf-promisc-assoc?intf=3&ifNum=9", "PvlanIntfPromiscAssocGet ifNum=3", many, manyKeys, invalid},
        {"dot1q-pvlan-intf-promisc-assoc?intf=9&ifNum=3", "PvlanIntfPromiscAssocGet ifNum=3", many, manyKeys},
    });
    expectWrites("vlan/", {
        {"POST", "dot1q-private-vlan-enable?vlanId=100", R"({"pvlanType":1002})",
         "Dot1qPrivateVlanEnable vlanId=100 pvlanType=1002", raw},
        {"POST", assoc + "?vlanId=100", R"({"vidList":[102,null,101]})",
         add + " primaryVid=100 secondaryVidList=3(102 0 101)", raw},
        {"POST", assoc + "?vlanId=100", R"({"vidlist":{"a":5}})", add + " primaryVid=100 secondaryVidList=0()", raw},
        /* a DELETE has its query string for a body, and gets along without one */
        {"DELETE", assoc + "?vlanId=100", "", remove + " primaryVid=100 secondaryVidList=0()", raw},
        {"DELETE", assoc + R"(?{"vidList":[102,101]}&vlanId=100)", "",
         remove + " primaryVid=100 secondaryVidList=2(102 101)", raw},
        {"PUT", "dot1q-intf-pvlan-host-assoc?ifNum=3", R"({"secondaryVlan":1101,"primaryVlan":1100})",
         "Dot1qIntfPVlanHostAssocSet ifNum=3 primaryVid=1100 secondaryVid=1101", raw},
        {"PUT", "dot1q-intf-pvlan-promisc-assoc?ifNum=3", R"({"primaryVlan":1100,"vidList":[102,101]})",
         "Dot1qIntfPVlanPromiscAssocSet ifNum=3 primaryVid=1100 secondaryVidList=2(102 101)", raw},
        {"DELETE", "dot1q-pvlan-intf-host-assoc?ifNum=3", "", "Dot1qPVlanIntfHostAssocRemove ifNum=3", raw},
        {"DELETE", "dot1q-pvlan-intf-promisc-assoc?ifNum=4", "", "Dot1qPVlanIntfPromiscAssocRemove ifNum=4", raw},
    });
    expect({"DELETE", "vlan/" + assoc + "?vlanId=100", R"({"vidList":[101]})",
            "rpcclt_openapi" + remove + " primaryVid=100 secondaryVidList=0() -> -22", failure(-22)});
}

TEST_F(PrivateVlan, associatesVlans)
{
    const std::string type = "vlan/dot1q-private-vlan-enable?vlanId=", assoc = "vlan/dot1q-api-private-vlan-assoc";
    const std::string listOf = "vlan/dot1q-private-vlan-association?vlanId=";
    buildPrivateVlan();
    follow({
        {"GET", "vlan/dot1q-private-vlan?vlanId=101", "", vlan(R"("pvlanType":2)")},
        {"GET", "vlan/dot1q-private-vlan?vlanId=104", "", failure(10003)},
        {"GET", listOf + "100", "", vlan(R"("vidList":[101,102,103])")},
        {"POST", type + "200", R"({"pvlanType":4})", failure(-22)},
        {"POST", "vlan/create?vlanNum=104", "", done},
        {"POST", type + "104", R"({"pvlanType":2})", done},
        /* associations: of a primary VLAN, with secondary VLANs that have none, of which one is isolated at most */
        {"POST", assoc + "?vlanId=100", R"({"vidList":[200]})", failure(-22)},
        {"POST", assoc + "?vlanId=200", R"({"vidList":[104,102]})", failure(-24)},
        {"POST", assoc + "?vlanId=100", R"({"vidList":[104]})", failure(-1)},
        {"DELETE", assoc + R"(?{"vidList":[102,101]}&vlanId=100)", "", done},
        {"GET", listOf + "100", "", vlan(R"("vidList":[103])")},
        {"POST", assoc + "?vlanId=200", R"({"vidList":[104,102]})", done},
        {"GET", listOf + "200", "", vlan(R"("vidList":[102,104])")},
    });
}

TEST_F(PrivateVlan, associatesPorts)
{
    const std::string host = "vlan/dot1q-intf-pvlan-host-assoc?ifNum=";
    const std::string promiscuous = "vlan/dot1q-intf-pvlan-promisc-assoc?ifNum=";
    const std::string hostOf = "vlan/dot1q-pvlan-intf-host-assoc?ifNum=";
    const std::string promiscuousOf = "vlan/dot1q-pvlan-intf-promisc-assoc?ifNum=";
    const std::string isolated = R"({"primaryVlan":100,"secondaryVlan":101})";
    buildPrivateVlan();
    follow({
        {"GET", hostOf + "3", "", failure(10000)},
        {"PUT", host + "3", isolated, done},
        {"PUT", promiscuous + "4", R"({"primaryVlan":100,"vidList":[103,101]})", done},
        {"GET", hostOf + "3", "", vlan(R"("primaryVid":100,"secondaryVid":101)")},
        {"GET", "vlan/pvlan-intf-promisc-assoc?intf=4", "", vlan(R"("primaryVid":100,"secondaryVidList":[101,103])")},
        {"GET", "vlan/pvlan-intf-mode?intf=4", "", vlan(R"("mode":2)")},
        {"GET", "vlan/pvlan-intf-oper-assoc?intf=4", "", vlan(R"("operationalVidList":[100,101,103])")},
        {"GET", "vlan/vid-list?intfNum=3", "", vlan(R"("numOfElements":2,"vidList":[100,101])")},
        {"GET", "vlan/dot1q-sw-port-untagged-vlan-list?intf=4", "", vlan(R"("vidList":[100,101,103])")},
        {"PUT", host + "99", isolated, failure(-22)},
        {"PUT", host + "5", R"({"primaryVlan":100,"secondaryVlan":65637})", failure(-22)},
        {"DELETE", hostOf + "4", "", failure(-1)},
        /* what a VLAN takes along */
        {"DELETE", "vlan/delete?vlanNum=101", "", done},
        {"GET", hostOf + "3", "", failure(10000)},
        {"GET", promiscuousOf + "4", "", vlan(R"("primaryVid":100,"secondaryVidList":[103])")},
        {"DELETE", promiscuousOf + "4", "", done},
        {"GET", promiscuousOf + "4", "", failure(10000)},
    });
}

TEST_F(PrivateVlan, makesTrunksOfAssociatedPorts)
{
    const std::string promiscuous = "vlan/pvlan-intf-promisc-trunk-assoc-next?intf=4";
    const std::string isolated = "vlan/pvlan-intf-isolated-trunk-assoc-next?intf=3&primaryVid=";
    buildPrivateVlan();
    follow({
        {"PUT", "vlan/dot1q-intf-pvlan-host-assoc?ifNum=3", R"({"primaryVlan":100,"secondaryVlan":101})", done},
        {"PUT", "vlan/dot1q-intf-pvlan-promisc-assoc?ifNum=4", R"({"primaryVlan":100,"vidList":[101,102]})", done},
        {"PUT", "vlan/dot1q-sw-port-mode", R"({"intf":3,"mode":2})", done},
        {"PUT", "vlan/dot1q-sw-port-mode", R"({"intf":4,"mode":2})", done},
        {"GET", "vlan/pvlan-intf-mode?intf=4", "", vlan(R"("mode":3)")},
        {"GET", promiscuous, "", vlan(R"("nextPrimaryVid":100,"secondaryVidList":[101,102])")},
        {"GET", isolated + "99", "", vlan(R"("nextPrimaryVid":100,"secondaryVid":101)")},
        {"GET", isolated + "100", "", failureLine(10003)},
        {"GET", "vlan/dot1q-sw-port-tagged-vlan-list?intf=3", "", vlan(R"("vidList":[100,101])")},
    });
}
