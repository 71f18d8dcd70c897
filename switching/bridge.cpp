/*
 * bridge.cpp - /api/v2/switching/bridge: the IEEE 802.1D bridge, its ports, its forwarding table and its spanning tree.
 * Only the ageing time can be set. OpEN defines what numbers mean and which are valid. Keys: "port" and "address"
 * (loose lookup), "intIfNum" (exact).
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

/* The port that most endpoints ask about; 0 without the key. */
static uint32_t queryPort()
{
    uint32_t port = 0;
    readParams({uintParam("port", &port)});
    return port;
}

static void answerBridge(int rc, Data data)
{
    answerData("bridge", openResult(rc), data);
}

/* The base bridge */

static void baseBridgeAddressGet()
{
    OpenText<18> address;
    int rc = rpcclt_openapiDot1dBaseBridgeAddressGet(&openClient, bufferSized(address));
    answerBridge(rc, {string("bridgeAddress", address.bytes)});
}

static void baseNumPortsGet()
{
    uint32_t numPorts = 0;
    int rc = rpcclt_openapiDot1dBaseNumPortsGet(&openClient, &numPorts);
    answerBridge(rc, {number("numPorts", numPorts)});
}

static void baseTypeGet()
{
    uint32_t type = 0;
    int rc = rpcclt_openapiDot1dBaseTypeGet(&openClient, &type);
    answerBridge(rc, {number("type", type)});
}

/* A port that does not exist is an answer, not a failure. */
static void basePortEntryGet()
{
    int rc = rpcclt_openapiDot1dBasePortEntryGet(&openClient, queryPort());
    answerBridge(OPEN_OK, {boolean("valid", rc == OPEN_OK)});
}

static void basePortCircuitGet()
{
    OpenText<256> circuit;
    int rc = rpcclt_openapiDot1dBasePortCircuitGet(&openClient, queryPort(), bufferSized(circuit));
    answerBridge(rc, {string("circuit", circuit.bytes)});
}

static void basePortIfIndexGet()
{
    uint32_t ifIndex = 0;
    int rc = rpcclt_openapiDot1dBasePortIfIndexGet(&openClient, queryPort(), &ifIndex);
    answerBridge(rc, {number("ifIndex", ifIndex)});
}

static void basePortDelayExceededDiscardsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dBasePortDelayExceededDiscardsGet(&openClient, queryPort(), &count);
    answerBridge(rc, {number("delayExceededDiscardsValue", count)});
}

static void basePortMtuExceededDiscardsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dBasePortMtuExceededDiscardsGet(&openClient, queryPort(), &count);
    answerBridge(rc, {number("mtuExceededDiscardsValue", count)});
}

/* The spanning tree of the bridge */

static void stpProtocolSpecificationGet()
{
    uint32_t value = 0;
    int rc = rpcclt_openapiDot1dStpProtocolSpecificationGet(&openClient, &value);
    answerBridge(rc, {number("protocolSpecification", value)});
}

static void stpPriorityGet()
{
    uint32_t priority = 0;
    int rc = rpcclt_openapiDot1dStpPriorityGet(&openClient, &priority);
    answerBridge(rc, {number("priority", priority)});
}

static void stpTimeSinceTopologyChangeGet()
{
    uint64_t time = 0;
    int rc = rpcclt_openapiDot1dStpTimeSinceTopologyChangeGet(&openClient, &time);
    answerBridge(rc, {number64("timeSinceTopologyChange", time)});
}

static void stpTopChangesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dStpTopChangesGet(&openClient, &count);
    answerBridge(rc, {number("topChanges", count)});
}

static void stpDesignatedRootGet()
{
    OpenText<18> root;
    int rc = rpcclt_openapiDot1dStpDesignatedRootGet(&openClient, bufferSized(root));
    answerBridge(rc, {string("designatedRoot", root.bytes)});
}

static void stpRootCostGet()
{
    uint32_t cost = 0;
    int rc = rpcclt_openapiDot1dStpRootCostGet(&openClient, &cost);
    answerBridge(rc, {number("rootCost", cost)});
}

static void stpRootPortGet()
{
    uint32_t port = 0;
    int rc = rpcclt_openapiDot1dStpRootPortGet(&openClient, &port);
    answerBridge(rc, {number("rootPort", port)});
}

static void stpMaxAgeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiDot1dStpMaxAgeGet(&openClient, &time);
    answerBridge(rc, {number("maxAge", time)});
}

static void stpHelloTimeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiDot1dStpHelloTimeGet(&openClient, &time);
    answerBridge(rc, {number("helloTime", time)});
}

static void stpHoldTimeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiDot1dStpHoldTimeGet(&openClient, &time);
    answerBridge(rc, {number("holdTime", time)});
}

static void stpForwardDelayGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiDot1dStpForwardDelayGet(&openClient, &time);
    answerBridge(rc, {number("forwardDelay", time)});
}

static void stpBridgeMaxAgeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiDot1dStpBridgeMaxAgeGet(&openClient, &time);
    answerBridge(rc, {number("bridgeMaxAge", time)});
}

static void stpBridgeHelloTimeGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiDot1dStpBridgeHelloTimeGet(&openClient, &time);
    answerBridge(rc, {number("bridgeHelloTime", time)});
}

static void stpBridgeForwardDelayGet()
{
    uint32_t time = 0;
    int rc = rpcclt_openapiDot1dStpBridgeForwardDelayGet(&openClient, &time);
    answerBridge(rc, {number("bridgeForwardDelay", time)});
}

/* The spanning tree of a port */

static void stpPortPriorityGet()
{
    uint32_t priority = 0;
    int rc = rpcclt_openapiDot1dStpPortPriorityGet(&openClient, queryPort(), &priority);
    answerBridge(rc, {number("portPriority", priority)});
}

static void stpPortStateGet()
{
    uint32_t state = 0;
    int rc = rpcclt_openapiDot1dStpPortStateGet(&openClient, queryPort(), &state);
    answerBridge(rc, {number("portState", state)});
}

static void stpPortPathCostGet()
{
    uint32_t cost = 0;
    int rc = rpcclt_openapiDot1dStpPortPathCostGet(&openClient, queryPort(), &cost);
    answerBridge(rc, {number("portPathCost", cost)});
}

static void stpPortDesignatedRootGet()
{
    OpenText<18> root;
    int rc = rpcclt_openapiDot1dStpPortDesignatedRootGet(&openClient, queryPort(), bufferSized(root));
    answerBridge(rc, {string("designatedRoot", root.bytes)});
}

static void stpPortDesignatedCostGet()
{
    uint32_t cost = 0;
    int rc = rpcclt_openapiDot1dStpPortDesignatedCostGet(&openClient, queryPort(), &cost);
    answerBridge(rc, {number("designatedCost", cost)});
}

static void stpPortDesignatedBridgeGet()
{
    OpenText<18> bridge;
    int rc = rpcclt_openapiDot1dStpPortDesignatedBridgeGet(&openClient, queryPort(), bufferSized(bridge));
    answerBridge(rc, {string("designatedBridge", bridge.bytes)});
}

static void stpPortDesignatedPortGet()
{
    uint16_t port = 0;
    int rc = rpcclt_openapiDot1dStpPortDesignatedPortGet(&openClient, queryPort(), &port);
    answerBridge(rc, {number("designatedPort", port)});
}

static void stpPortForwardTransitionsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dStpPortForwardTransitionsGet(&openClient, queryPort(), &count);
    answerBridge(rc, {number("forwardTransitions", count)});
}

/* Transparent bridging */

static void tpLearnedEntryDiscardsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dTpLearnedEntryDiscardsGet(&openClient, &count);
    answerBridge(rc, {number("learnedEntryDiscards", count)});
}

static void tpAgingTimeGet()
{
    uint32_t seconds = 0;
    int rc = rpcclt_openapiDbDot1dTpAgingTimeGet(&openClient, &seconds);
    answerBridge(rc, {number("agingTime", seconds)});
}

static void tpAgingTimeSet()
{
    uint32_t seconds = 0;
    if (!readBody({required(saturatedMember("agingTime", &seconds))}))
        return;
    answerResult(rpcclt_openapiDbDot1dTpAgingTimeSet(&openClient, seconds));
}

/* OpEN replaces the address by the next one. */
static void tpFdbEntryNextGet()
{
    OpenText<24> address;
    readParams({textParam("address", address)});
    int rc = rpcclt_openapiDot1dTpFdbEntryNextGet(&openClient, bufferSized(address));
    answerBridge(rc, {string("address", address.bytes)});
}

/* An unknown address is an answer, not a failure. */
static void tpFdbEntryGet()
{
    OpenText<24> address;
    readParams({textParam("address", address)});
    OpenText<24> asked = address;
    int rc = rpcclt_openapiDot1dTpFdbEntryGet(&openClient, bufferSized(asked));
    answerBridge(OPEN_OK, {string("address", address.bytes), boolean("exists", rc == OPEN_OK)});
}

static void tpFdbPortGet()
{
    OpenText<24> address;
    readParams({textParam("address", address)});
    uint32_t port = 0;
    int rc = rpcclt_openapiDot1dTpFdbPortGet(&openClient, terminatedSized(address), &port);
    answerBridge(rc, {number("port", port)});
}

static void tpFdbStatusGet()
{
    OpenText<24> address;
    readParams({textParam("address", address)});
    uint32_t status = 0;
    int rc = rpcclt_openapiDot1dTpFdbStatusGet(&openClient, terminatedSized(address), &status);
    answerBridge(rc, {number("status", status)});
}

static void tpPortMaxInfoGet()
{
    uint32_t size = 0;
    int rc = rpcclt_openapiDot1dTpPortMaxInfoGet(&openClient, queryPort(), &size);
    answerBridge(rc, {number("maxInfo", size)});
}

static void tpPortInFramesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dTpPortInFramesGet(&openClient, queryPort(), &count);
    answerBridge(rc, {number("inFrames", count)});
}

static void tpPortOutFramesGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dTpPortOutFramesGet(&openClient, queryPort(), &count);
    answerBridge(rc, {number("outFrames", count)});
}

static void tpPortInDiscardsGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiDot1dTpPortInDiscardsGet(&openClient, queryPort(), &count);
    answerBridge(rc, {number("inDiscards", count)});
}

/* Interfaces. The POST endpoints do not read their body. */

static void basePortEntryNextGet()
{
    uint32_t next = 0;
    int rc = rpcclt_openapiDot1dBasePortEntryNextGet(&openClient, queryUintExact("intIfNum"), &next);
    answerBridge(rc, {number("nextIntIfNum", next)});
}

static void isValidIntf()
{
    answerResult(rpcclt_openapiDot1dIsValidIntf(&openClient, queryUintExact("intIfNum")));
}

static void isInterfaceInCurrentInstance()
{
    uint32_t value = 0;
    int rc = rpcclt_openapiDot1dIsInterfaceInCurrentInstance(&openClient, queryUintExact("intIfNum"), &value);
    answerDataOrOutcome("bridge", openResult(rc), {number("isInInstance", value)});
}

static void instanceMemberGetNext()
{
    uint32_t next = 0;
    int rc = rpcclt_openapiDot1dInstanceMemberGetNext(&openClient, queryUintExact("intIfNum"), &next);
    answerDataOrOutcome("bridge", openResult(rc), {number("nextIntIfNum", next)});
}

void addBridgeRoutes(RouteDir *dir)
{
    addRoute(dir, "dot1d-base-bridge-address", HTTP_GET, baseBridgeAddressGet);
    addRoute(dir, "dot1d-base-num-ports", HTTP_GET, baseNumPortsGet);
    addRoute(dir, "dot1d-base-type", HTTP_GET, baseTypeGet);
    addRoute(dir, "dot1d-base-port-entry", HTTP_GET, basePortEntryGet);
    addRoute(dir, "dot1d-base-port-circuit", HTTP_GET, basePortCircuitGet);
    addRoute(dir, "dot1d-base-port-if-index", HTTP_GET, basePortIfIndexGet);
    addRoute(dir, "dot1d-base-port-delay-exceeded-discards", HTTP_GET, basePortDelayExceededDiscardsGet);
    addRoute(dir, "dot1d-base-port-mtu-exceeded-discards", HTTP_GET, basePortMtuExceededDiscardsGet);
    addRoute(dir, "dot1d-stp-protocol-specification", HTTP_GET, stpProtocolSpecificationGet);
    addRoute(dir, "dot1d-stp-priority", HTTP_GET, stpPriorityGet);
    addRoute(dir, "dot1d-stp-time-since-topology-change", HTTP_GET, stpTimeSinceTopologyChangeGet);
    addRoute(dir, "dot1d-stp-top-changes", HTTP_GET, stpTopChangesGet);
    addRoute(dir, "dot1d-stp-designated-root", HTTP_GET, stpDesignatedRootGet);
    addRoute(dir, "dot1d-stp-root-cost", HTTP_GET, stpRootCostGet);
    addRoute(dir, "dot1d-stp-root-port", HTTP_GET, stpRootPortGet);
    addRoute(dir, "dot1d-stp-max-age", HTTP_GET, stpMaxAgeGet);
    addRoute(dir, "dot1d-stp-hello-time", HTTP_GET, stpHelloTimeGet);
    addRoute(dir, "dot1d-stp-hold-time", HTTP_GET, stpHoldTimeGet);
    addRoute(dir, "dot1d-stp-forward-delay", HTTP_GET, stpForwardDelayGet);
    addRoute(dir, "dot1d-stp-bridge-max-age", HTTP_GET, stpBridgeMaxAgeGet);
    addRoute(dir, "dot1d-stp-bridge-hello-time", HTTP_GET, stpBridgeHelloTimeGet);
    addRoute(dir, "dot1d-stp-bridge-forward-delay", HTTP_GET, stpBridgeForwardDelayGet);
    addRoute(dir, "dot1d-stp-port-priority", HTTP_GET, stpPortPriorityGet);
    addRoute(dir, "dot1d-stp-port-state", HTTP_GET, stpPortStateGet);
    addRoute(dir, "dot1d-stp-port-path-cost", HTTP_GET, stpPortPathCostGet);
    addRoute(dir, "dot1d-stp-port-designated-root", HTTP_GET, stpPortDesignatedRootGet);
    addRoute(dir, "dot1d-stp-port-designated-cost", HTTP_GET, stpPortDesignatedCostGet);
    addRoute(dir, "dot1d-stp-port-designated-bridge", HTTP_GET, stpPortDesignatedBridgeGet);
    addRoute(dir, "dot1d-stp-port-designated-port", HTTP_GET, stpPortDesignatedPortGet);
    addRoute(dir, "dot1d-stp-port-forward-transitions", HTTP_GET, stpPortForwardTransitionsGet);
    addRoute(dir, "dot1d-tp-learned-entry-discards", HTTP_GET, tpLearnedEntryDiscardsGet);
    addRoute(dir, "db-dot1d-tp-aging-time", HTTP_GET, tpAgingTimeGet);
    addRoute(dir, "db-dot1d-tp-aging-time", HTTP_PUT, tpAgingTimeSet);
    addRoute(dir, "dot1d-tp-fdb-entry-next", HTTP_GET, tpFdbEntryNextGet);
    addRoute(dir, "dot1d-tp-fdb-entry", HTTP_GET, tpFdbEntryGet);
    addRoute(dir, "dot1d-tp-fdb-port", HTTP_GET, tpFdbPortGet);
    addRoute(dir, "dot1d-tp-fdb-status", HTTP_GET, tpFdbStatusGet);
    addRoute(dir, "dot1d-tp-port-max-info", HTTP_GET, tpPortMaxInfoGet);
    addRoute(dir, "dot1d-tp-port-in-frames", HTTP_GET, tpPortInFramesGet);
    addRoute(dir, "dot1d-tp-port-out-frames", HTTP_GET, tpPortOutFramesGet);
    addRoute(dir, "dot1d-tp-port-in-discards", HTTP_GET, tpPortInDiscardsGet);
    addRoute(dir, "dot1d-base-port-entry-next", HTTP_GET, basePortEntryNextGet);
    addRoute(dir, "dot1d-is-valid-intf", HTTP_POST, isValidIntf);
    addRoute(dir, "dot1d-is-interface-in-current-instance", HTTP_POST, isInterfaceInCurrentInstance);
    addRoute(dir, "dot1d-instance-member-get-next", HTTP_POST, instanceMemberGetNext);
}
