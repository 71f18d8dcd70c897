/*
 * model_test.cpp - how features of the virtual switch act on each other, and what time and events change.
 */
#include "tests/support/driver.h"

using Fdb = SwitchTest;
using SwitchPort = SwitchTest;
using VoiceVlan = SwitchTest;
using LoopProtection = SwitchTest;
using StaticFilter = SwitchTest;
using VlanRegistration = SwitchTest;
using StormControl = SwitchTest;
using Lag = SwitchTest;
using AccessList = SwitchTest;
using SpanningTree = SwitchTest;

TEST_F(Fdb, learnsStationsWhileTheirPortIsUp)
{
    startSwitch({"--stations", "28"});
    play(R"(
        hold
        pass 280
        PUT fdb/addr-aging-timeout {"timeOut":600}
        pass 300
        GET fdb/dynamic-entries | "entries":28
        pass 30
        GET fdb/dynamic-entries | "entries":26
        GET bridge/dot1d-tp-fdb-port?address=02:00:00:00:01:01 | "port":
        POST fdb/flush
        pass 4
        GET fdb/dynamic-entries | "entries":26
        pass 10000000
        GET fdb/dynamic-entries | "entries":26
    )");
}

TEST_F(Fdb, followsStationsThatMoveAndForgetsSilentOnes)
{
    play(R"(
        hold
        learn 1 02:00:00:00:aa:01 5
        pass 1000
        learn 1 02:00:00:00:aa:01 6
        silence 1 02:00:00:00:aa:01
        pass 299
        GET bridge/dot1d-tp-fdb-port?address=02:00:00:00:AA:01 | "port":6
        pass 1
        GET bridge/dot1d-tp-fdb-port?address=02:00:00:00:AA:01 | 10000
        silence 1 02:00:00:00:aa:01 | no station
        learn 2 02:00:00:00:aa:01 5 | no VLAN
        learn 1 01:00:5e:00:00:01 5 | no station's address
        learn 1 02:00:00:00:aa:01 20 | down: no link
        PUT vlan/if-participation?vlanNum=1&ifNum=5 {"participationMode":2}
        learn 1 02:00:00:00:aa:02 5 | not in VLAN 1
    )");
}

TEST_F(SwitchPort, keepsTheAllowedVlansOfATrunkAsTheyWereSet)
{
    play(R"(
        PUT vlan/dot1q-sw-port-mode {"intf":5,"mode":2}
        PUT vlan/dot1q-sw-port-trunk-allowed-vlan-list {"intf":5,"vidList":[4094,10,1,10]}
        POST vlan/create?vlanNum=10
        GET vlan/dot1q-sw-port-tagged-vlan-list?intf=5 | "vidList":[10]
        PUT vlan/dot1q-sw-port-trunk-native-vlan?intf=5 {"vlanId":10}
        GET vlan/dot1q-sw-port-untagged-vlan-list?intf=5 | "vidList":[10]
        DELETE vlan/delete?vlanNum=10
        GET vlan/dot1q-sw-port-trunk-allowed-vlan-list?intf=5 | "vidList":[1,10,4094]
        PUT vlan/dot1q-sw-port-trunk-allowed-vlan-list {"intf":5,"vidList":[1,0]} | -22
        PUT vlan/global-auto-trunk {"adminMode":1}
        GET vlan/dot1q-oper-auto-trunk-mode?intIfNum=5 | true
        GET vlan/dot1q-oper-auto-trunk-mode?intIfNum=6 | false
    )");
}

TEST_F(SwitchPort, keepsTheSettingsOfGeneralModeInOtherModes)
{
    play(R"(
        POST vlan/create?vlanNum=10
        POST vlan/create?vlanNum=20
        PUT vlan/dot1q-sw-port-access-vlan?intf=5 {"vlanId":20}
        PUT vlan/dot1q-sw-port-mode {"intf":5,"mode":1}
        PUT vlan/if-participation?vlanNum=10&ifNum=5 {"participationMode":1}
        PUT vlan/if-participation?vlanNum=1&ifNum=5 {"participationMode":2}
        PUT vlan/if-tagging?vlanNum=10&ifNum=5 {"tagging":1}
        PUT vlan/if-pvid?ifNum=5 {"vlanNum":10}
        GET vlan/if-participation?vlanNum=10&ifNum=5 | "participationMode":1
        GET vlan/dot1q-sw-port-untagged-vlan-list?intf=5 | "vidList":[20]
        PUT vlan/dot1q-sw-port-mode {"intf":5,"mode":3}
        GET vlan/dot1q-sw-port-forbidden-vlan-list?intf=5 | "vidList":[1]
        GET vlan/dot1q-sw-port-tagged-vlan-list?intf=5 | "vidList":[10]
        GET vlan/pvlan-intf-trunk-native-vlan?intf=5 | "nativeVid":10
        DELETE vlan/delete?vlanNum=10
        POST vlan/create?vlanNum=10
        GET vlan/vid-list?intfNum=5 | "vidList":[]
    )");
}

TEST_F(VoiceVlan, isTaggedAndEndsWithItsVlan)
{
    play(R"(
        POST vlan/create?vlanNum=10
        PUT voice-vlan/admin-mode {"mode":1}
        PUT voice-vlan/port-admin-mode?ifNum=5 {"mode":1,"dataValue":10}
        GET vlan/dot1q-sw-port-tagged-vlan-list?intf=5 | "vidList":[10]
        PUT voice-vlan/port-vlan-id?ifNum=5&vlanId=0
        GET voice-vlan/port-status?ifNum=5 | "mode":0
        PUT voice-vlan/port-vlan-id?ifNum=5&vlanId=10
        PUT voip/global-vlan-id?vlanId=10
        DELETE vlan/delete?vlanNum=10
        GET voice-vlan/port-vlan-id?ifNum=5 | "vlanId":0
        GET voice-vlan/port-status?ifNum=5 | "mode":0
        GET voip/global-vlan-id | "vlanId":0
    )");
}

TEST_F(LoopProtection, shutsThePortForEveryFeature)
{
    play(R"(
        hold
        PUT loop-protect/admin-mode {"adminMode":1}
        PUT loop-protect/tx-timer {"timerVal":10}
        PUT loop-protect/max-pdu-receive {"val":3}
        PUT loop-protect/disable-timer {"val":600}
        PUT loop-protect/port-admin-mode?ifNum=3 {"mode":1}
        PUT voip/intf-mode?ifNum=3 {"type":"oui","mode":"enable"}
        GET loop-protect/port-packet-tx-count?ifNum=3 | "count":1
        loop 3 on
        pass 20
        DELETE loop-protect/port-stats?ifNum=3
        pass 10
        DELETE loop-protect/all-stats
        POST loop-protect/is-loop-detected?ifNum=3 | "true"
        POST loop-protect/is-port-disabled?ifNum=3 | "true"
        GET voip/intf-oui-status?ifNum=3 | "down"
        pass 500
        GET bridge/dot1d-tp-port-in-frames?port=3 | "inFrames":150
        GET loop-protect/port-time-since-last-loop?ifNum=3 | "timeVal":500
        pass 100
        POST loop-protect/is-port-disabled?ifNum=3 | "false"
        GET loop-protect/port-packet-tx-count?ifNum=3 | "count":1
        pass 6200
        GET loop-protect/portloop-detect-count?ifNum=3 | "loopCount":10
        loop 3 off
        pass 9999990
        GET loop-protect/port-packet-tx-count?ifNum=3 | "count":1000030
        PUT loop-protect/disable-timer {"val":0}
        loop 3 on
        pass 30
        POST loop-protect/is-port-disabled?ifNum=3 | "true"
        link 3 down
        link 3 up
        POST loop-protect/is-port-disabled?ifNum=3 | "false"
    )");
}

TEST_F(SpanningTree, decidesWhatAPortCarries)
{
    play(R"(
        hold
        stp 3 blocking
        learn 1 02:00:00:00:aa:01 3 | blocked by the spanning tree
        storm 3 unicast 10 | blocked by the spanning tree
        pass 60
        GET fdb/intf-dynamic-entries?intIfNum=3 | "entries":0
        stp 3 learning
        learn 1 02:00:00:00:aa:01 3
        pass 4
        GET fdb/intf-dynamic-entries?intIfNum=3 | "entries":2
        stp 3 auto
        GET bridge/dot1d-stp-port-state?port=3 | "portState":5
        GET fdb/intf-dynamic-entries?intIfNum=3 | "entries":2
        GET bridge/dot1d-stp-port-forward-transitions?port=3 | "forwardTransitions":2
        reset
        GET bridge/dot1d-stp-port-state?port=3 | "portState":5
    )");
}

TEST_F(SpanningTree, followsTheRootBehindAPort)
{
    play(R"(
        hold
        stp root 3 20000 12288 02:00:00:00:00:0B
        stp root 5 200 4096 02:00:00:00:00:0B
        stp root 6 1 8192 02:00:00:00:00:0C
        GET bridge/dot1d-stp-root-port | "rootPort":5
        GET bridge/dot1d-stp-root-cost | "rootCost":200
        GET bridge/dot1d-stp-port-state?port=3 | "portState":2
        GET bridge/dot1d-stp-port-designated-bridge?port=3 | "02:00:00:00:00:0B"
        GET bridge/dot1d-stp-port-designated-cost?port=3 | "designatedCost":0
        link 5 down
        GET bridge/dot1d-stp-root-port | "rootPort":3
        stp 3 broken
        GET bridge/dot1d-stp-designated-root | "02:00:00:00:00:0C"
        stp root none
        GET bridge/dot1d-stp-port-path-cost?port=5 | "portPathCost":20000
    )");
}

TEST_F(StaticFilter, appliesWhileFilteringIsEnabled)
{
    play(R"(
        hold
        learn 1 02:00:00:00:00:55 5
        POST static-filter/filter?vlanId=1 {"macAddr":"02:00:00:00:00:55"}
        POST static-filter/filter-dst-intf-list?vlanId=1 {"macAddr":"02:00:00:00:00:55","fwdIntfList":"7-8,29"}
        GET fdb/entry-next?mac=02:00:00:00:00:54 | "fdbIfNum":7,"entryType":"static"
        GET fdb/entry-next?mac=02:00:00:00:00:55&fdbIfNum=7 | "fdbIfNum":8,"entryType":"static"
        PUT static-filter/filter-admin-mode {"adminMode":"disable"}
        pass 4
        GET bridge/dot1d-tp-fdb-port?address=02:00:00:00:00:55 | "port":5
        PUT static-filter/filter-admin-mode {"adminMode":"enable"}
        GET bridge/dot1d-tp-fdb-status?address=02:00:00:00:00:55 | "status":5
        DELETE static-filter/filter?vlanId=1&macAddr=02:00:00:00:00:55
        pass 4
        GET bridge/dot1d-tp-fdb-status?address=02:00:00:00:00:55 | "status":3
    )");
}

TEST_F(VlanRegistration, followsNeighboursOnAnyPort)
{
    play(R"(
        hold
        PUT garp/gvrp-enable {"globalGvrpStatus":"enable"}
        PUT garp/gvrp-port-enable?ifNum=5 {"intfGvrpStatus":"enable"}
        neighbour 5 joins 77
        GET vlan/type?vlanNum=77 | "vlanType":3
        GET vlan/dot1q-sw-port-dynamically-added-vlan-list?intf=5 | "vidList":[77]
        link 5 down
        GET vlan/type?vlanNum=77 | 10003
        link 5 up
        GET vlan/type?vlanNum=77 | "vlanType":3
        neighbour 5 leaves 77
        GET vlan/type?vlanNum=77 | 10003
        neighbour 5 joins 02:00:00:00:00:01 | no group
        PUT garp/gmrp-enable {"globalGmrpStatus":"enable"}
        PUT garp/gmrp-port-enable?ifNum=5 {"intfGmrpStatus":"enable"}
        neighbour 5 joins 01:00:5E:00:00:01
        GET fdb/entry-next?mac=01:00:5E:00:00:00 | "fdbIfNum":5,"entryType":"gmrp_learned"
        link 5 down
        GET bridge/dot1d-tp-fdb-entry?address=01:00:5E:00:00:01 | "exists":false
        neighbour 5 meets 7 | not "meets"
        neighbour 29 joins 7 | no port
    )");
}

TEST_F(VlanRegistration, countsErrors)
{
    play(R"(
        hold
        PUT mvrp/mode {"mode":"enable"}
        PUT mvrp/intf-mode?intIfNum=1 {"mode":"enable"}
        errors 1 bad-header 2
        errors 1 bad-format 3
        errors 1 not-sent 4
        errors 1 not-registered 5
        GET mvrp/intf-traffic-pdu-counter?intIfNum=1&type=1 | "counter":2
        GET mvrp/traffic-pdu-counter?type=2 | "counter":3
        GET mvrp/traffic-pdu-counter?type=4 | "counter":4
        GET mvrp/intf-traffic-pdu-counter?intIfNum=1&type=5 | "counter":5
        errors 2 bad-header 1 | no protocol that counts this runs on port 2
        errors 1 late 1 | no errors of the kind "late"
        errors 3 too-long 7
        errors 3 delayed 8
        GET bridge/dot1d-base-port-mtu-exceeded-discards?port=3 | "mtuExceededDiscardsValue":7
        GET bridge/dot1d-tp-port-in-discards?port=3 | "inDiscards":7
        GET bridge/dot1d-base-port-delay-exceeded-discards?port=3 | "delayExceededDiscardsValue":8
    )");
}

TEST_F(VlanRegistration, createsVlansWhereMvrpOrGvrpRuns)
{
    play(R"(
        hold
        PUT mvrp/mode {"mode":"enable"}
        PUT mvrp/intf-mode?intIfNum=1 {"mode":"enable"}
        PUT mvrp/intf-mode?intIfNum=3 {"mode":"enable"}
        GET mvrp/intf-vlan-array?intIfNum=1&vlanType=2 | "ids":[3001,3002]
        POST vlan/create?vlanNum=3001
        GET vlan/dot1q-sw-port-tagged-vlan-list?intf=1 | "vidList":[3001,3002]
        GET mvrp/vlan-array?vlanType=1 | "ids":[1,3001]
        pass 100
        GET mvrp/traffic-pdu-counter?type=0 | "counter":11
        PUT mvrp/periodic-state-machine-mode {"mode":"enable"}
        pass 10
        GET mvrp/intf-traffic-pdu-counter?intIfNum=1&type=3 | "counter":22
        DELETE mvrp/traffic-counters-per-if?intIfNum=1
        GET mvrp/intf-traffic-pdu-counter?intIfNum=1&type=3 | "counter":0
        GET mvrp/traffic-pdu-counter?type=3 | "counter":22
        PUT mvrp/mode {"mode":"disable"}
        PUT mvrp/periodic-state-machine-mode {"mode":"disable"}
        pass 100
        PUT mvrp/mode {"mode":"enable"}
        PUT mvrp/intf-mode?intIfNum=1 {"mode":"disable"}
        pass 100
        PUT mvrp/intf-mode?intIfNum=1 {"mode":"enable"}
        GET mvrp/intf-traffic-pdu-counter?intIfNum=1&type=3 | "counter":2
        PUT mvrp/periodic-state-machine-mode {"mode":"enable"}
        PUT vlan/if-participation?vlanNum=3001&ifNum=1 {"participationMode":2}
        pass 10
        GET mvrp/intf-traffic-pdu-counter?intIfNum=1&type=5 | "counter":1
        link 1 down
        PUT garp/gvrp-enable {"globalGvrpStatus":"enable"}
        PUT garp/leave-all-time?ifNum=2 {"leaveAllTime":200}
        PUT garp/gvrp-port-enable?ifNum=2 {"intfGvrpStatus":"enable"}
        pass 10
        GET garp/gvrp-receive-pdu-count?ifNum=2 | "gvrpPduRxCount":6
        PUT garp/gvrp-enable {"globalGvrpStatus":"disable"}
        GET vlan/type?vlanNum=3003 | 10003
    )");
}

TEST_F(StormControl, appliesThePortLimitBeforeTheSwitchLimit)
{
    play(R"(
        hold
        PUT storm-control/threshold?rateUnit=pps {"stormCtrlMode":"broadcast","threshold":1000}
        storm 3 broadcast 5000
        PUT storm-control/mode {"stormCtrlMode":"broadcast","state":"enable"}
        GET storm-control/intf-mode?stormCtrlMode=broadcast&interface=3 | "enable"
        PUT storm-control/intf-threshold?rateUnit=pps {"stormCtrlMode":"broadcast","interface":4,"threshold":300}
        storm 3 broadcast 5000
        storm 4 broadcast 5000
        storm 4 multicast 5000
        GET bridge/dot1d-tp-port-in-frames?port=3 | "inFrames":10000
        GET bridge/dot1d-tp-port-in-discards?port=4 | "inDiscards":4700
        GET bridge/dot1d-tp-port-out-frames?port=5 | "outFrames":11300
        POST protectedport/group-intf?ifNum=4&groupId=1
        POST protectedport/group-intf?ifNum=6&groupId=1
        storm 4 unicast 5000
        GET bridge/dot1d-tp-port-out-frames?port=6 | "outFrames":11300
        POST vlan/create?vlanNum=10
        PUT vlan/if-participation?vlanNum=10&ifNum=7 {"participationMode":1}
        PUT vlan/if-pvid?ifNum=7 {"vlanNum":10}
        storm 7 broadcast 100
        GET bridge/dot1d-tp-port-in-discards?port=7 | "inDiscards":100
        PUT storm-control/intf-mode {"stormCtrlMode":"broadcast","interface":5,"state":"disable"}
        PUT storm-control/action {"stormCtrlMode":"broadcast","action":"shutdown"}
        storm 5 broadcast 5000
        storm 3 broadcast 5000
        storm 3 broadcast 5000 | shut down by storm control
        PUT storm-control/mode {"stormCtrlMode":"broadcast","state":"disable"}
        GET bridge/dot1d-stp-port-state?port=3 | "portState":5
        PUT storm-control/intf-threshold-default {"stormCtrlMode":"broadcast","interface":4}
        GET storm-control/intf-threshold?stormCtrlMode=broadcast&interface=4 | "threshold":1000
    )");
}

TEST_F(Lag, isAnInterface)
{
    play(R"(
        hold
        PUT vlan/dot1q-sw-port-mode {"intf":29,"mode":2}
        POST static-filter/filter?vlanId=1 {"macAddr":"02:00:00:00:00:55"}
        POST static-filter/filter-dst-intf?vlanId=1&ifNum=36 {"macAddr":"02:00:00:00:00:55"}
        POST static-filter/filter-dst-intf?vlanId=1&ifNum=37 {"macAddr":"02:00:00:00:00:55"} | 10003
        PUT vlan/dot1q-sw-port-mode {"intf":37,"mode":2} | -22
        GET vlan/vid-list?intfNum=29 | "vidList":[1]
        link 29 up
        learn 1 02:00:00:00:00:56 29
        GET bridge/dot1d-tp-fdb-port?address=02:00:00:00:00:56 | "port":29
    )");
}

TEST_F(AccessList, countsPermittedAndFilteredPackets)
{
    play(R"(
        hold
        POST macal/list {"macalName":"mgmt"}
        POST macal/rule-entry {"macalName":"mgmt"}
        POST macal/rule-action {"macalName":"mgmt","macalRulePrio":1,"action":"permit"}
        POST macal/rule-src-ip-mask {"macalName":"mgmt","macalRulePrio":1,"ipAddr":"192.0.2.0","mask":"255.255.255.0"}
        PUT macal/rule-service-port {"macalName":"mgmt","macalRulePrio":1,"isServicePort":true}
        POST macal/rule-entry {"macalName":"mgmt"}
        POST macal/rule-service {"macalName":"mgmt","macalRulePrio":2,"service":"telnet"}
        PUT macal/rule-service-port {"macalName":"mgmt","macalRulePrio":2,"isServicePort":true}
        pass 60
        POST macal/activate {"macalName":"mgmt"}
        pass 90
        GET macal/service-port-rule-statistics?macalName=mgmt&macalRulePrio=2 | "packets":90
        pass 30
        GET macal/stats-packets-filtered | "filtPackets":240
        pass 15
        PUT macal/deny-counter-interval {"interval":10}
        pass 9
        GET macal/stats-packets-filtered | "filtPackets":240
        pass 1
        GET macal/stats-packets-filtered | "filtPackets":290
        POST macal/clear-service-port-statistics
        POST macal/deactivate {"macalName":"mgmt"}
        pass 60
        GET macal/service-port-rule-statistics?macalName=mgmt&macalRulePrio=2 | "packets":0
    )");
}
