/*
 * bridge_test.cpp - the bridge family through the real program.
 */
#include "tests/support/driver.h"

class Bridge : public SwitchTest {};

#define OP "rpcclt_openapiDot1d"

TEST_F(Bridge, readsTheBridge)
{
    tell("fault " OP "StpTimeSinceTopologyChangeGet code=0 value=5000000000");
    tell("fault " OP "BaseNumPortsGet code=0 numPorts=4294967295");
    tell("fault " OP "StpBridgeMaxAgeGet code=0 value=2001"); /* a root's are those of the spanning tree */
    tell("fault " OP "StpBridgeHelloTimeGet code=0 value=201");
    tell("fault " OP "StpBridgeForwardDelayGet code=0 value=1501");
    expectAll({
        {"GET", "bridge/dot1d-base-bridge-address", "",
         OP R"(BaseBridgeAddressGet bridgeAddress=[18]"" -> 0 bridgeAddress=[18]"02:A0:C9:00:00:01")",
         success(R"("bridge":{"bridgeAddress":"02:A0:C9:00:00:01"})")},
        {"GET", "bridge/dot1d-base-num-ports", "", OP "BaseNumPortsGet numPorts=0 -> 0 numPorts=4294967295",
         success(R"("bridge":{"numPorts":4294967295})")},
        {"GET", "bridge/dot1d-base-type", "", OP "BaseTypeGet type=0 -> 0 type=2", success(R"("bridge":{"type":2})")},
        {"GET", "bridge/dot1d-stp-protocol-specification", "", OP "StpProtocolSpecificationGet value=0 -> 0 value=3",
         success(R"("bridge":{"protocolSpecification":3})")},
        {"GET", "bridge/dot1d-stp-priority", "", OP "StpPriorityGet value=0 -> 0 value=32768",
         success(R"("bridge":{"priority":32768})")},
        {"GET", "bridge/dot1d-stp-time-since-topology-change", "",
         OP "StpTimeSinceTopologyChangeGet value=0 -> 0 value=5000000000",
         success(R"("bridge":{"timeSinceTopologyChange":5000000000})")},
        {"GET", "bridge/dot1d-stp-top-changes", "", OP "StpTopChangesGet value=0 -> 0 value=1",
         success(R"("bridge":{"topChanges":1})")},
        {"GET", "bridge/dot1d-stp-designated-root", "",
         OP R"(StpDesignatedRootGet root=[18]"" -> 0 root=[18]"02:A0:C9:00:00:01")",
         success(R"("bridge":{"designatedRoot":"02:A0:C9:00:00:01"})")},
        {"GET", "bridge/dot1d-stp-root-cost", "", OP "StpRootCostGet value=0 -> 0 value=0",
         success(R"("bridge":{"rootCost":0})")},
        {"GET", "bridge/dot1d-stp-root-port", "", OP "StpRootPortGet value=0 -> 0 value=0",
         success(R"("bridge":{"rootPort":0})")},
        {"GET", "bridge/dot1d-stp-max-age", "", OP "StpMaxAgeGet value=0 -> 0 value=2000",
         success(R"("bridge":{"maxAge":2000})")},
        {"GET", "bridge/dot1d-stp-hello-time", "", OP "StpHelloTimeGet value=0 -> 0 value=200",
         success(R"("bridge":{"helloTime":200})")},
        {"GET", "bridge/dot1d-stp-hold-time", "", OP "StpHoldTimeGet value=0 -> 0 value=100",
         success(R"("bridge":{"holdTime":100})")},
        {"GET", "bridge/dot1d-stp-forward-delay", "", OP "StpForwardDelayGet value=0 -> 0 value=1500",
         success(R"("bridge":{"forwardDelay":1500})")},
        {"GET", "bridge/dot1d-stp-bridge-max-age", "", OP "StpBridgeMaxAgeGet value=0 -> 0 value=2001",
         success(R"("bridge":{"bridgeMaxAge":2001})")},
        {"GET", "bridge/dot1d-stp-bridge-hello-time", "", OP "StpBridgeHelloTimeGet value=0 -> 0 value=201",
         success(R"("bridge":{"bridgeHelloTime":201})")},
        {"GET", "bridge/dot1d-stp-bridge-forward-delay", "", OP "StpBridgeForwardDelayGet value=0 -> 0 value=1501",
         success(R"("bridge":{"bridgeForwardDelay":1501})")},
        {"GET", "bridge/dot1d-tp-learned-entry-discards", "", OP "TpLearnedEntryDiscardsGet count=0 -> 0 count=0",
         success(R"("bridge":{"learnedEntryDiscards":0})")},
    });
}

TEST_F(Bridge, readsAPort)
{
    /* Each reader's key is its own; the number that comes back tells them apart. */
    const struct { const char *endpoint, *operation, *output, *key; } rows[] = {
        {"dot1d-base-port-if-index", "BasePortIfIndexGet", "ifIndex", "ifIndex"},
        {"dot1d-base-port-delay-exceeded-discards", "BasePortDelayExceededDiscardsGet", "count", "delayExceededDiscardsValue"},
        {"dot1d-base-port-mtu-exceeded-discards", "BasePortMtuExceededDiscardsGet", "count", "mtuExceededDiscardsValue"},
        {"dot1d-stp-port-priority", "StpPortPriorityGet", "value", "portPriority"},
        {"dot1d-stp-port-state", "StpPortStateGet", "value", "portState"},
        {"dot1d-stp-port-path-cost", "StpPortPathCostGet", "value", "portPathCost"},
        {"dot1d-stp-port-designated-cost", "StpPortDesignatedCostGet", "value", "designatedCost"},
        {"dot1d-stp-port-designated-port", "StpPortDesignatedPortGet", "value", "designatedPort"},
        {"dot1d-stp-port-forward-transitions", "StpPortForwardTransitionsGet", "value", "forwardTransitions"},
        {"dot1d-tp-port-max-info", "TpPortMaxInfoGet", "size", "maxInfo"},
        {"dot1d-tp-port-in-frames", "TpPortInFramesGet", "count", "inFrames"},
        {"dot1d-tp-port-out-frames", "TpPortOutFramesGet", "count", "outFrames"},
        {"dot1d-tp-port-in-discards", "TpPortInDiscardsGet", "count", "inDiscards"},
    };
    int value = 60000;
    for (const auto &row : rows) {
        std::string name = std::string(OP) + row.operation, output = row.output, number = std::to_string(value++);
        tell("fault " + name + " code=0 times=1 " + output + "=" + number);
        expect({"GET", std::string("bridge/") + row.endpoint + "?x=1&port=3", "",
                name + " port=3 " + output + "=0 -> 0 " + output + "=" + number,
                success(std::string("\"bridge\":{\"") + row.key + "\":" + number + "}")});
        /* the model's own refusal of a port it does not have */
        expect({"GET", std::string("bridge/") + row.endpoint, "", name + " port=0 " + output + "=0 -> -22", failure(10003)});
    }
    expectAll({
        {"GET", "bridge/dot1d-base-port-circuit?port=7", "",
         OP R"(BasePortCircuitGet port=7 circuit=[256]"" -> 0 circuit=[256]"0.0.7")", success(R"("bridge":{"circuit":"0.0.7"})")},
        {"GET", "bridge/dot1d-stp-port-designated-root?port=7", "",
         OP R"(StpPortDesignatedRootGet port=7 root=[18]"" -> 0 root=[18]"02:A0:C9:00:00:01")",
         success(R"("bridge":{"designatedRoot":"02:A0:C9:00:00:01"})")},
        {"GET", "bridge/dot1d-stp-port-designated-bridge?port=7", "",
         OP R"(StpPortDesignatedBridgeGet port=7 bridge=[18]"" -> 0 bridge=[18]"02:A0:C9:00:00:01")",
         success(R"("bridge":{"designatedBridge":"02:A0:C9:00:00:01"})")},
        {"GET", "bridge/dot1d-base-port-entry?port=28", "", OP "BasePortEntryGet port=28 -> 0",
         success(R"("bridge":{"valid":true})")},
        {"GET", "bridge/dot1d-base-port-entry?port=29", "", OP "BasePortEntryGet port=29 -> -22",
         success(R"("bridge":{"valid":false})")},
    });
}

TEST_F(Bridge, setsTheAgeingTime)
{
    expectAll({
        {"PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingtime":400})", "rpcclt_openapiDbDot1dTpAgingTimeSet seconds=400 -> 0",
         successLine()},
        {"GET", "bridge/db-dot1d-tp-aging-time", "", "rpcclt_openapiDbDot1dTpAgingTimeGet seconds=0 -> 0 seconds=400",
         success(R"("bridge":{"agingTime":400})")},
        {"PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingTime":-5})", "rpcclt_openapiDbDot1dTpAgingTimeSet seconds=0 -> -22",
         failureLine(10003)},
        {"PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingTime":"400"})", "rpcclt_openapiDbDot1dTpAgingTimeSet seconds=0 -> -22",
         failureLine(10003)},
        {"PUT", "bridge/db-dot1d-tp-aging-time", R"({"other":400})", "", failureLine(10003)},
        {"PUT", "bridge/db-dot1d-tp-aging-time", "", "", failureLine(10003)},
    });
}

TEST_F(Bridge, walksTheForwardingTable)
{
    std::string address, seen;
    for (int steps = 0; steps < 20; steps++) {
        std::string answer = send("GET", "bridge/dot1d-tp-fdb-entry-next?address=" + address);
        if (answer == failure(10000))
            break;
        size_t at = answer.find("\"address\":\t\"") + 12;
        address = answer.substr(at, 17);
        seen += address.substr(9) + " ";
    }
    EXPECT_EQ(seen, "00:01:01 00:02:02 00:03:03 00:04:04 00:05:05 00:06:06 00:07:07 00:08:08 00:00:01 ");

    expectAll({
        {"GET", "bridge/dot1d-tp-fdb-entry-next", "",
         OP R"(TpFdbEntryNextGet address=[24]"" -> 0 address=[24]"02:00:00:00:01:01")",
         success(R"("bridge":{"address":"02:00:00:00:01:01"})")},
        {"GET", "bridge/dot1d-tp-fdb-entry?address=02:00:00:00:02:02", "",
         OP R"(TpFdbEntryGet address=[24]"02:00:00:00:02:02" -> 0 address=[24]"02:00:00:00:02:02")",
         success(R"("bridge":{"address":"02:00:00:00:02:02","exists":true})")},
        {"GET", "bridge/dot1d-tp-fdb-entry?address=02:00:00:00:02:03", "",
         OP R"(TpFdbEntryGet address=[24]"02:00:00:00:02:03" -> -1)",
         success(R"("bridge":{"address":"02:00:00:00:02:03","exists":false})")},
        {"GET", "bridge/dot1d-tp-fdb-entry?address=123456789012345678901234567890", "",
         OP R"(TpFdbEntryGet address=[24]"12345678901234567890123" -> -1)",
         success(R"("bridge":{"address":"12345678901234567890123","exists":false})")},
        {"GET", "bridge/dot1d-tp-fdb-port?address=02:00:00:00:02:02", "",
         OP R"(TpFdbPortGet address=[18]"02:00:00:00:02:02" port=0 -> 0 address=[18]"02:00:00:00:02:02" port=2)",
         success(R"("bridge":{"port":2})")},
        {"GET", "bridge/dot1d-tp-fdb-status?address=02:00:00:00:02:02", "",
         OP R"(TpFdbStatusGet address=[18]"02:00:00:00:02:02" status=0 -> 0 address=[18]"02:00:00:00:02:02" status=3)",
         success(R"("bridge":{"status":3})")},
        {"GET", "bridge/dot1d-tp-fdb-status", "", OP R"(TpFdbStatusGet address=[1]"" status=0 -> -1)", failure(10000)},
    });
}

TEST_F(Bridge, takesTheInterfaceByItsExactKey)
{
    tell("fault " OP "IsInterfaceInCurrentInstance code=0 value=2");
    expectAll({
        {"GET", "bridge/dot1d-base-port-entry-next?nextintIfNum=4&intIfNum=7", "", OP "BasePortEntryNextGet intIfNum=7 next=0 -> 0 next=8",
         success(R"("bridge":{"nextIntIfNum":8})")},
        {"GET", "bridge/dot1d-base-port-entry-next?port=3", "", OP "BasePortEntryNextGet intIfNum=0 next=0 -> 0 next=1",
         success(R"("bridge":{"nextIntIfNum":1})")},
        {"GET", "bridge/dot1d-base-port-entry-next?intIfNum=28", "", OP "BasePortEntryNextGet intIfNum=28 next=0 -> -1",
         failure(10000)},
        {"POST", "bridge/dot1d-is-valid-intf?intIfNum=28", R"({"intIfNum":99})", OP "IsValidIntf intIfNum=28 -> 0", successLine()},
        {"POST", "bridge/dot1d-is-valid-intf", R"({"intIfNum":1})", OP "IsValidIntf intIfNum=0 -> -22", failureLine(10003)},
        {"POST", "bridge/dot1d-is-interface-in-current-instance?intIfNum=3", "",
         OP "IsInterfaceInCurrentInstance intIfNum=3 value=0 -> 0 value=2", success(R"("bridge":{"isInInstance":2})")},
        {"POST", "bridge/dot1d-instance-member-get-next?intIfNum=12", "", OP "InstanceMemberGetNext intIfNum=12 next=0 -> 0 next=13",
         success(R"("bridge":{"nextIntIfNum":13})")},
        {"POST", "bridge/dot1d-instance-member-get-next?intIfNum=36", "", OP "InstanceMemberGetNext intIfNum=36 next=0 -> -1",
         failureLine(10000)},
    });
    tell("fault " OP "IsInterfaceInCurrentInstance code=-29");
    expect({"POST", "bridge/dot1d-is-interface-in-current-instance?intIfNum=3", "",
            OP "IsInterfaceInCurrentInstance intIfNum=3 value=0 -> -29", failureLine(10023)});
}

TEST_F(Bridge, zeroesWhatOpenLeavesUntouched)
{
    tell("fault * code=0");
    expectAll({
        {"GET", "bridge/dot1d-stp-root-cost", "", OP "StpRootCostGet value=0 -> 0 value=0", success(R"("bridge":{"rootCost":0})")},
        {"GET", "bridge/dot1d-stp-designated-root", "", OP R"(StpDesignatedRootGet root=[18]"" -> 0 root=[18]"")",
         success(R"("bridge":{"designatedRoot":""})")},
    });
    /* a text that fills all that was offered still ends */
    tell("clear");
    tell("fault " OP "StpDesignatedRootGet code=0 root=1234567890123456789012345");
    expect({"GET", "bridge/dot1d-stp-designated-root", "",
            OP R"(StpDesignatedRootGet root=[18]"" -> 0 root=[18]"123456789012345678")",
            success(R"("bridge":{"designatedRoot":"123456789012345678"})")});
}
