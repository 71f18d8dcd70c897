/*
 * tables_test.cpp - the tables of the virtual switch: a value that was set is read back, an entry that was added is
 * listed, counted and walked in order, a removed one is gone, and a value just beyond its range is refused.
 * (refusals.txt shows the answers to numbers and names that nothing has.)
 */
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/driver.h"
#include "tests/support/rpc.h"

using Vlan = SwitchTest;
using Fdb = SwitchTest;
using StaticFilter = SwitchTest;
using StormControl = SwitchTest;
using ProtectedPort = SwitchTest;
using Setting = SwitchTest;
using Voip = SwitchTest;
using AccessList = SwitchTest;
using MacVlan = SwitchTest;
using ProtocolVlan = SwitchTest;
using PrivateVlan = SwitchTest;

TEST_F(Vlan, isCreatedListedAndDeleted)
{
    play(R"(
        POST vlan/create?vlanNum=20
        POST vlan/create?vlanNum=10
        POST vlan/create?vlanNum=4094
        POST vlan/create?vlanNum=4095 | 10003
        DELETE vlan/delete?vlanNum=20
        DELETE vlan/delete?vlanNum=20 | 10003
        DELETE vlan/delete?vlanNum=1 | 10000
        GET vlan/dot1q-vlan-num-deletes | "val":1
        GET vlan/next-vlan?vid=10 | "nextVid":4094
        GET vlan/next-vlan?vid=4094 | 10000
        PUT vlan/if-participation?vlanNum=10&ifNum=3 {"participationMode":1}
        PUT vlan/if-participation?vlanNum=10&ifNum=3 {"participationMode":3} | -22
        GET vlan/vid-list?intfNum=3 | "numOfElements":2,"vidList":[1,10]
        PUT vlan/if-tagging?vlanNum=10&ifNum=3 {"tagging":2} | -22
        PUT vlan/if-accept-frame-type?ifNum=3 {"type":3}
        GET vlan/if-accept-frame-type?ifNum=3 | "type":3
        PUT vlan/if-default-user-priority?ifNum=3 {"priority":7}
        reset
        GET vlan/if-default-user-priority?ifNum=3 | "priority":0
    )");
}

TEST_F(Vlan, listsHoldEveryVlan)
{
    startSwitch({"--station-vlans", "4094"});
    std::string all = "1";
    for (int id = 2; id <= 4094; id++)
        all += "," + std::to_string(id);
    play("PUT vlan/dot1q-sw-port-trunk-allowed-vlan-list {\"intf\":7,\"vidList\":[]}\n"
         "GET vlan/dot1q-sw-port-trunk-allowed-vlan-list?intf=7 | \"vidList\":[]\n"
         "PUT vlan/dot1q-sw-port-trunk-allowed-vlan-list {\"intf\":7,\"vidList\":[" + all + "]}\n"
         "GET vlan/dot1q-sw-port-trunk-allowed-vlan-list?intf=7 | \"vidList\":[" + all + "]\n"
         "GET vlan/vid-list?intfNum=3 | \"numOfElements\":4094,\"vidList\":[" + all + "]\n");
}

TEST_F(Fdb, isWalkedCountedAndFlushed)
{
    startSwitch({"--stations", "28", "--station-vlans", "3"});
    play(R"(
        hold
        GET fdb/entry-next?vlanId=3 | "mac":"02:00:00:00:03:03"
        GET fdb/entry-next?vlanId=3&mac=02:00:00:00:1b:1b | 10000
        GET fdb/vlan-internal-entries?vlanId=1 | "entries":1
        DELETE fdb/entry?vlanId=1&intIfNum=4&mac=02:00:00:00:04:04
        DELETE fdb/entry?vlanId=1&intIfNum=4&mac=02:00:00:00:04:04 | 10000
        POST fdb/flush-by-mac {"mac":"02:00:00:00:05:05"}
        POST fdb/flush-by-mac {"mac":"02:00:00:00:05"} | 10003
        POST fdb/flush-by-port?intIfNum=4
        POST fdb/flush-by-vlan?vlanId=3
        GET fdb/dynamic-entries | "entries":16
        POST fdb/flush
        POST fdb/max-count-reset
        GET fdb/max-count | "entriesNum":1
        GET fdb/is-restr-filter-mac?macaddr=01:80:C2:00:00:0F | "restricted":"true"
        GET fdb/is-restr-filter-mac?macaddr=01:80:C2:00:00:10 | "restricted":"false"
        PUT bridge/db-dot1d-tp-aging-time {"agingTime":10}
        PUT bridge/db-dot1d-tp-aging-time {"agingTime":1000001} | 10003
        PUT fdb/addr-aging-timeout {"fdbId":3,"timeOut":400}
        GET bridge/db-dot1d-tp-aging-time | "agingTime":400
        GET bridge/dot1d-tp-fdb-entry-next?address=02:A0:C9:00:00:01 | 10000
        GET bridge/dot1d-tp-fdb-status?address=02:A0:C9:00:00:01 | "status":4
    )");
}

TEST_F(StaticFilter, keepsItsSourcesAndDestinations)
{
    play(R"(
        POST vlan/create?vlanNum=4
        POST static-filter/filter?vlanId=4 {"macAddr":"02:00:00:00:aa:01"}
        POST static-filter/filter?vlanId=1 {"macAddr":"03-00-00-00-aa-01"}
        POST static-filter/filter?vlanId=1 {"macAddr":"FF:FF:FF:FF:FF:FF"} | 10003
        GET static-filter/filter-next?vlanId=1&macAddr=03:00:00:00:AA:01 | 10000
        POST static-filter/filter-src-intf-list-modify?vlanId=4 {"macAddr":"02:00:00:00:AA:01","srcIntfList":"9,1-3"}
        POST static-filter/filter-src-intf-list-modify?vlanId=4 {"macAddr":"02:00:00:00:AA:01","srcIntfList":"3-1"}
            | 10003
        DELETE static-filter/filter-src-intf?vlanId=4&ifNum=2&macAddr=02:00:00:00:AA:01
        GET static-filter/filter-src-intf-list?vlanId=4&macAddr=02:00:00:00:AA:01 | "srcIntfList":"1,3,9"
        POST static-filter/filter-dst-intf-list?vlanId=4&ifNum=8
            {"macAddr":"02:00:00:00:AA:01","fwdIntfList":"5-6","filterIntfList":"10,12"}
        POST static-filter/filter-dst-intf-list?vlanId=4
            {"macAddr":"02:00:00:00:AA:01","fwdIntfList":"5","filterIntfList":"5"} | 10003
        POST static-filter/filter-dst-intf?vlanId=4&ifNum=10 {"macAddr":"02:00:00:00:AA:01"}
        GET static-filter/filter-dst-intf-list?vlanId=4&macAddr=02:00:00:00:AA:01 | "dstIntfList":"5,6,8,10"
        GET static-filter/filter-dst-filt-intf-list?vlanId=4&macAddr=02:00:00:00:AA:01
            | "numOfDstIntf":1,"dstFiltIntfList":"12"
        DELETE static-filter/filter-dst-intf?vlanId=4&ifNum=12&macAddr=02:00:00:00:AA:01 | 10000
        DELETE static-filter/filter-dst-intf-list?vlanId=4&macAddr=02:00:00:00:AA:01&fwdIntfList=6-10&filterIntfList=12
        GET static-filter/filter-dst-intf-list?vlanId=4&macAddr=02:00:00:00:AA:01 | "dstIntfList":"5"
        POST static-filter/filter-is-intf-in-any-filter?ifNum=9 | "true"
        POST static-filter/filter-is-intf-in-any-filter?ifNum=12 | "false"
        PUT static-filter/filter-stream?vlanId=4 {"macAddr":"02:00:00:00:AA:01","streamId":7}
        GET static-filter/filter-stream?vlanId=4&macAddr=02:00:00:00:AA:01 | "streamId":7
        PUT static-filter/filter-filtering-mode {"mode":"filter_forward_unregistered"}
        PUT static-filter/filter-vlan-filtering-mode?vlanId=4 {"mode":"filter_filter_unregistered"}
        DELETE vlan/delete?vlanNum=4
        POST vlan/create?vlanNum=4
        GET static-filter/filter-vlan-filtering-mode?vlanId=4 | "filter_forward_unregistered"
        DELETE static-filter/filter?vlanId=1&macAddr=03:00:00:00:AA:01
    )");
}

TEST_F(StormControl, keepsThresholdsInTheRangeOfTheirUnit)
{
    play(R"(
        GET storm-control/threshold-min-max?rateUnit=4 | 10003
        PUT storm-control/threshold?rateUnit=kbps {"stormCtrlMode":"unicast","threshold":64}
        PUT storm-control/threshold?rateUnit=kbps {"stormCtrlMode":"unicast","threshold":63} | 10003
        GET storm-control/threshold?stormCtrlMode=unicast | "rateUnit":"kbps","threshold":64
        PUT storm-control/threshold?rateUnit=percent {"stormCtrlMode":"none","threshold":1} | 10003
        PUT storm-control/threshold-default {"stormCtrlMode":"unicast"}
        GET storm-control/threshold?stormCtrlMode=unicast | "rateUnit":"percent","threshold":5
        PUT storm-control/action-intf {"interface":9,"action":"trap"}
        GET storm-control/action-intf?interface=9 | "trap"
    )");
}

TEST_F(ProtectedPort, keepsGroupsAndTheirMembers)
{
    play(R"(
        PUT protectedport/group-name?groupId=2 {"groupName":"north"}
        PUT protectedport/group-name?groupId=4 {"groupName":"north"} | 10003
        PUT protectedport/group-name?groupId=3 {"groupName":"nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn"} | 10003
        GET protectedport/group-name?groupId=2 | "north"
        POST protectedport/group-intf?ifNum=9&groupId=2
        POST protectedport/group-intf?ifNum=4&groupId=2
        POST protectedport/group-intf?ifNum=5&groupId=1
        POST protectedport/group-intf?ifNum=9&groupId=3 | 10000
        GET protectedport/next-group?ifNum=9&groupId=2 | 10000
        DELETE protectedport/group-intf?ifNum=9&groupId=1 | 10000
        DELETE protectedport/group-intf?ifNum=9&groupId=2
        POST protectedport/group-intf?ifNum=2&groupId=2
        POST protectedport/group-intf?ifNum=3&groupId=2
        GET protectedport/group-intf-list?groupId=2 | "intfList":"2,3,4"
    )");
}

/* The proof and states.py check the ranges. */
TEST_F(Setting, isReadBack)
{
    play(R"(
        PUT garp/join-time?ifNum=9 {"joinTime":100}
        GET garp/join-time?ifNum=9 | "joinTime":100
        GET garp/join-time?ifNum=8 | "joinTime":20
        PUT loop-protect/port-action?ifNum=7 {"mode":3}
        GET loop-protect/port-action?ifNum=7 | "mode":3
        PUT loop-protect/port-vlan-properties?ifNum=7&vlanId=4094 {"tpid":34984}
        GET loop-protect/port-vlan-properties?ifNum=7 | "tpid":34984,"vlanId":4094
        PUT voice-vlan/port-admin-mode?ifNum=6 {"mode":2,"dataValue":3}
        PUT voice-vlan/port-admin-mode?ifNum=6 {"mode":2,"dataValue":8} | 10003
        GET voice-vlan/port-dot1p-priority?ifNum=6 | "priority":3
        PUT voip/profile-cos-queue {"priScheme":"remark","value":5}
        GET voip/profile-cos-queue | "pType":"remark","pTypeVal":5
        reset
        GET voip/profile-cos-queue | "pType":"trafficClass","pTypeVal":6
    )");
}

TEST_F(Voip, keepsVendorPrefixesAndModes)
{
    play(R"(
        GET voip/oui-next-entry?voipOui=2A:5D:01 | "nextVoipOui":"7E:40:91"
        GET voip/oui-next-entry?voipOui=B6:0C:E3 | 10000
        GET voip/oui-entry?ouiIndex=33 | 10003
        GET voip/oui-entry-next?ouiIndex=1 | "voipOui":"2A:5D:01","ouiDesc":"Conference phones","nextOuiIndex":2
        POST voip/index-oui?ouiIndex=32 {"voipOui":"02:BE:EF","ouiDesc":"lab"}
        POST voip/index-oui?ouiIndex=33 {"voipOui":"02:BE:F0"} | 10003
        POST voip/oui {"voipOui":"02:BE:F0"}
        GET voip/oui-entry?ouiIndex=4 | "02:BE:F0"
        POST voip/oui {"voipOui":"ac-de-48","ouiDesc":"lab"}
        GET voip/oui-desc?voipOui=AC:DE:48 | "ouiDesc":"lab"
        POST voip/oui {"voipOui":"01:00:5E"} | 10003
        DELETE voip/index-oui?ouiIndex=32
        DELETE voip/index-oui?ouiIndex=32 | 10000
        DELETE voip/oui?{"voipOui":"02:BE:F0"}
        DELETE voip/oui?{"voipOui":"02:BE:F0"} | 10000
        PUT voip/intf-mode?ifNum=3 {"type":"protocol","mode":"enable"}
        GET voip/intf-mode?ifNum=3 | "protocolMode":"enable","ouiMode":"disable"
        PUT voip/global-vlan-id?vlanId=1
        POST voip/global-vlan-id-reset
        GET voip/global-vlan-id | "vlanId":0
    )");
}

TEST_F(AccessList, keepsListsAndRules)
{
    play(R"(
        POST macal/list {"macalName":"lab"}
        POST macal/list {"macalName":"attic"}
        POST macal/list {"macalName":"lllllllllllllllllllllllllllllllll"} | 10003
        GET macal/active-list | 10000
        POST macal/activate {"macalName":"lab"}
        DELETE macal/list?macalName=lab | 10000
        POST macal/deactivate {"macalName":"attic"} | 10000
        POST macal/deactivate {"macalName":"lab"}
        POST macal/rule-entry {"macalName":"lab","macalRulePrio":3} | "macalRulePrio":3
        POST macal/rule-entry {"macalName":"lab"} | "macalRulePrio":4
        POST macal/rule-entry {"macalName":"lab","macalRulePrio":64} | "macalRulePrio":64
        POST macal/rule-entry {"macalName":"lab"} | "macalRulePrio":1
        POST macal/rule-entry {"macalName":"lab","macalRulePrio":65} | 10003
        GET macal/rule-next?macalName=lab&macalRulePrio=64 | 10000
        DELETE macal/rule?macalName=lab&macalRulePrio=4
        POST macal/rule-action {"macalName":"lab","macalRulePrio":3,"action":"permit"}
        GET macal/rule-action?macalName=lab&macalRulePrio=3 | "permit"
        GET macal/rule-src-ip-mask?macalName=lab&macalRulePrio=3 | 10000
        POST macal/rule-src-ip-mask {"macalName":"lab","macalRulePrio":3,"ipAddr":"192.0.2.1","mask":"255.255.255.255"}
        GET macal/rule-src-ip-mask?macalName=lab&macalRulePrio=3 | "ipAddr":"192.0.2.1","mask":"255.255.255.255"
        POST macal/rule-vlan?vlanId=1 {"macalName":"lab","macalRulePrio":3}
        POST macal/rule-interface?ifNum=7 {"macalName":"lab","macalRulePrio":3}
        POST macal/rule-tcp-udp-port-number?portNum=443 {"macalName":"lab","macalRulePrio":3}
        POST macal/rule-service {"macalName":"lab","macalRulePrio":3,"service":"none"} | 10003
        POST macal/rule-service {"macalName":"lab","macalRulePrio":3,"service":"custom_port"}
        PUT macal/rule-service-port {"macalName":"lab","macalRulePrio":3,"isServicePort":true}
        PUT macal/rule-service-port {"macalName":"lab","macalRulePrio":3}
        PUT macal/rule-is-service-port macalName=lab&macalRulePrio=3 | false
        GET macal/service-port-rule-statistics?macalName=lab&macalRulePrio=3 | 10000
        PUT macal/list-vrf {"vrfName":"guest"}
        PUT macal/list-vrf {"vrfName":"guests"} | 10003
        GET macal/list-vrf | "guest"
        DELETE macal/list?macalName=lab
    )");
}

TEST_F(MacVlan, mapsAddressesAndVendorPrefixes)
{
    play(R"(
        POST vlan/create?vlanNum=10
        POST vlan/mac {"mac":"00-11-22-33-44-aa","vlanId":10}
        POST vlan/mac {"mac":"00:11:22:33:44:AB","vlanId":1}
        GET vlan/mac?mac=00:11:22:33:44:AA | "vlanId":10
        POST vlan/mac-get-next {"mac":"00:11:22:33:44:AA"} | "nextMac":"00:11:22:33:44:AB","nextVlanId":1
        DELETE vlan/mac?mac=00:11:22:33:44:AB&vlanId=10 | -1
        DELETE vlan/mac?mac=00:11:22:33:44:AB&vlanId=1
        POST vlan/mac {"mac":"01:00:5E:00:00:01","vlanId":10} | -22
        POST vlan/mac-oui-vlan?vlanId=10 {"oui":"ac-de-48"}
        POST vlan/mac-oui-vlan?vlanId=10 {"oui":"00:11:22"}
        POST vlan/mac-oui-vlan?vlanId=10 {"oui":"01:00:5E"} | 10003
        DELETE vlan/mac-oui-vlan?vlanId=10
        DELETE vlan/delete?vlanNum=10
        GET vlan/mac?mac=00:11:22:33:44:AA | 10000
    )");
}

TEST_F(MacVlan, hasRoomForAThousand)
{
    int client = connectTo(socket);
    for (uint32_t i = 1; i <= 1025; i++) {
        char mac[32];
        snprintf(mac, sizeof mac, "02:00:00:00:%02X:%02X", i >> 8, i & 0xFF);
        std::string vlan = std::string(1, WIRE_IN) + bytesOf(1);
        std::string call = callOf("rpcclt_openapiVlanMacAdd", textArgument(18, 17, mac) + vlan);
        ASSERT_EQ(::send(client, call.data(), call.size(), MSG_NOSIGNAL), (ssize_t)call.size());
        struct { uint32_t length; int32_t code; char rest[64]; } reply;
        ASSERT_GE(recv(client, &reply, sizeof reply, 0), 8);
        ASSERT_EQ(reply.code, i <= 1024 ? OPEN_OK : OPEN_FAILED) << i;
    }
    close(client);
}

TEST_F(ProtocolVlan, keepsGroupsAndTheirProtocols)
{
    play(R"(
        POST pbvlan/group?groupId=128
        POST pbvlan/group?groupId=2
        POST pbvlan/group?groupId=129 | 10003
        POST pbvlan/group-get-next?groupId=2 | "nextGroupId":128
        POST pbvlan/group-get-next?groupId=128 | 10000
        PUT pbvlan/group-name?groupId=2 {"groupName":"lab"}
        PUT pbvlan/group-name?groupId=128 {"groupName":"lab"} | 10011
        GET pbvlan/group-id?groupName=attic | 10000
        POST pbvlan/group-protocol?groupId=2 {"prot":2054}
        POST pbvlan/group-protocol?groupId=2 {"prot":2048}
        POST pbvlan/group-protocol?groupId=2 {"prot":1535} | 10003
        GET pbvlan/group-protocol?groupId=2 | "protList":"2048,2054"
        POST pbvlan/group-protocol-get-next?groupId=2 {"prot":2048} | "nextProt":2054
        DELETE pbvlan/group-protocol?groupId=2&prot=2054
        DELETE pbvlan/group-protocol?groupId=2&prot=2054 | 10000
        POST pbvlan/intf-validate?ifNum=28
        DELETE pbvlan/group?groupId=2
        GET pbvlan/group-protocol?groupId=2 | 10000
    )");
}

TEST_F(PrivateVlan, keepsAssociations)
{
    for (const char *id : {"100", "101", "102", "103"})
        send("POST", std::string("vlan/create?vlanNum=") + id);
    play(R"(
        POST vlan/dot1q-private-vlan-enable?vlanId=1 {"pvlanType":1} | -22
        POST vlan/dot1q-private-vlan-enable?vlanId=100 {"pvlanType":1}
        POST vlan/dot1q-private-vlan-enable?vlanId=101 {"pvlanType":2}
        POST vlan/dot1q-private-vlan-enable?vlanId=102 {"pvlanType":3}
        POST vlan/dot1q-private-vlan-enable?vlanId=103 {"pvlanType":2}
        POST vlan/dot1q-api-private-vlan-assoc?vlanId=100 {"vidList":[101,103]} | -1
        POST vlan/dot1q-api-private-vlan-assoc?vlanId=100 {"vidList":[100]} | -22
        POST vlan/dot1q-api-private-vlan-assoc?vlanId=100 {"vidList":[101]}
        POST vlan/dot1q-api-private-vlan-assoc?vlanId=100 {"vidList":[101,102]}
        PUT vlan/dot1q-intf-pvlan-host-assoc?ifNum=3 {"primaryVlan":100,"secondaryVlan":101}
        PUT vlan/dot1q-intf-pvlan-promisc-assoc?ifNum=3 {"primaryVlan":100,"vidList":[101,102]}
        PUT vlan/dot1q-intf-pvlan-host-assoc?ifNum=3 {"primaryVlan":100,"secondaryVlan":102}
        GET vlan/pvlan-intf-mode?intf=3 | "mode":1
        DELETE vlan/dot1q-api-private-vlan-assoc?vlanId=100
        GET vlan/dot1q-private-vlan-association?vlanId=100 | "vidList":[]
        POST vlan/dot1q-api-private-vlan-assoc?vlanId=100 {"vidList":[101,102]}
        GET vlan/dot1q-private-vlan-association?vlanId=100 | "vidList":[101,102]
        POST vlan/dot1q-private-vlan-enable?vlanId=102 {"pvlanType":2} | -1
        PUT vlan/dot1q-intf-pvlan-host-assoc?ifNum=3 {"primaryVlan":100,"secondaryVlan":103} | -22
        PUT vlan/dot1q-intf-pvlan-host-assoc?ifNum=3 {"primaryVlan":100,"secondaryVlan":101}
        PUT vlan/dot1q-intf-pvlan-promisc-assoc?ifNum=4 {"primaryVlan":100,"vidList":[101,102]}
        GET vlan/pvlan-intf-mode?intf=3 | "mode":1
        GET vlan/pvlan-intf-oper-assoc?intf=3 | [100,101]
        PUT vlan/dot1q-sw-port-mode {"intf":3,"mode":2}
        PUT vlan/dot1q-sw-port-mode {"intf":4,"mode":2}
        GET vlan/pvlan-intf-mode?intf=3 | "mode":4
        GET vlan/pvlan-intf-promisc-trunk-assoc-next?intf=4 | "nextPrimaryVid":100,"secondaryVidList":[101,102]
        GET vlan/pvlan-intf-isolated-trunk-assoc-next?intf=3&primaryVid=99 | "nextPrimaryVid":100,"secondaryVid":101
        DELETE vlan/dot1q-pvlan-intf-promisc-assoc?ifNum=4
        DELETE vlan/dot1q-pvlan-intf-promisc-assoc?ifNum=4 | -1
        DELETE vlan/delete?vlanNum=101
        GET vlan/dot1q-pvlan-intf-host-assoc?ifNum=3 | 10000
        GET vlan/dot1q-private-vlan-association?vlanId=100 | "vidList":[102]
    )");
}
