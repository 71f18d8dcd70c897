/*
 * bridge.cpp - the operations of the 802.1D bridge. The bridge has the ports only; the spanning tree has the LAGs as
 * well.
 */
#include "vswitch/base/clock.h"
#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/spanning_tree.h"
#include "vswitch/switch/state.h"

/* Timers in hundredths of a second. */
enum : uint32_t { MAX_AGE = 2000, HELLO_TIME = 200, HOLD_TIME = 100, FORWARD_DELAY = 1500 };

static const uint32_t STP_PORT_PRIORITY = 128;

static Setting baseType = {.name = "Dot1dBaseType", .initial = BRIDGE_TRANSPARENT};
static Setting maxInfo = {.name = "Dot1dTpPortMaxInfo", .scope = FOR_PORT, .initial = 1518};
static Setting stpProtocol = {.name = "Dot1dStpProtocolSpecification", .initial = STP_802_1D};
static Setting priority = {.name = "Dot1dStpPriority", .initial = BRIDGE_PRIORITY};
static Setting maxAge = {.name = "Dot1dStpMaxAge", .initial = MAX_AGE};
static Setting helloTime = {.name = "Dot1dStpHelloTime", .initial = HELLO_TIME};
static Setting holdTime = {.name = "Dot1dStpHoldTime", .initial = HOLD_TIME};
static Setting forwardDelay = {.name = "Dot1dStpForwardDelay", .initial = FORWARD_DELAY};
static Setting bridgeMaxAge = {.name = "Dot1dStpBridgeMaxAge", .initial = MAX_AGE};
static Setting bridgeHelloTime = {.name = "Dot1dStpBridgeHelloTime", .initial = HELLO_TIME};
static Setting bridgeForwardDelay = {.name = "Dot1dStpBridgeForwardDelay", .initial = FORWARD_DELAY};
static Setting portPriority = {.name = "Dot1dStpPortPriority", .scope = FOR_INTERFACE, .initial = STP_PORT_PRIORITY};

static int validInterface(uint32_t port)
{
    return interfaceExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT;
}

static int bridgeAddress(OpenBufferDesc *address)
{
    return setText(address, macText(bridgeMac()));
}

/* Bridge identifiers are only the address of the bridge, without its priority. */
static int rootIdentifier(OpenBufferDesc *identifier)
{
    return setText(identifier, macText(spanningTree().root.mac));
}

static int rootOn(uint32_t port, OpenBufferDesc *identifier)
{
    return interfaceExists(port) ? rootIdentifier(identifier) : (int)OPEN_BAD_ARGUMENT;
}

/* The designated bridge of a port that leads to the root is the root, of all other ports the switch. */
static int designatedBridge(uint32_t port, OpenBufferDesc *identifier)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    return leadsToRoot(port) ? rootIdentifier(identifier) : bridgeAddress(identifier);
}

static uint32_t designatedCost(uint32_t port)
{
    return leadsToRoot(port) ? 0 : spanningTree().root.cost;
}

static void registerBase()
{
    ASK(rpcclt_openapiDot1dBaseBridgeAddressGet, bridgeAddress);
    ASK(rpcclt_openapiDot1dBaseNumPortsGet, [](uint32_t *numPorts) { return store(deviceOptions().ports, numPorts); });
    ASK(rpcclt_openapiDot1dBasePortEntryGet,
        [](uint32_t port) -> int { return portExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT; });
    ASK(rpcclt_openapiDot1dBasePortCircuitGet, [](uint32_t port, OpenBufferDesc *circuit) -> int {
        return portExists(port) ? setText(circuit, "0.0." + std::to_string(port)) : OPEN_BAD_ARGUMENT;
    });
    ASK(rpcclt_openapiDot1dBasePortIfIndexGet, ofPort<[](uint32_t port) { return port; }>);
    ASK(rpcclt_openapiDot1dBasePortEntryNextGet,
        [](uint32_t port, uint32_t *next) { return storeNext(nextPort(port), next); });
    ASK(rpcclt_openapiDot1dIsValidIntf, validInterface);

    ASK(rpcclt_openapiDot1dBasePortDelayExceededDiscardsGet,
        ofPort<[](uint32_t port) { return portCounters(port).outDiscards; }>);
    ASK(rpcclt_openapiDot1dBasePortMtuExceededDiscardsGet,
        ofPort<[](uint32_t port) { return portCounters(port).tooLong; }>);
    ASK(rpcclt_openapiDot1dTpPortInFramesGet, ofInterface<[](uint32_t port) { return portCounters(port).inFrames; }>);
    ASK(rpcclt_openapiDot1dTpPortOutFramesGet, ofInterface<[](uint32_t port) { return portCounters(port).outFrames; }>);
    ASK(rpcclt_openapiDot1dTpPortInDiscardsGet,
        ofInterface<[](uint32_t port) { return portCounters(port).inDiscards; }>);
}

static void registerTree()
{
    ASK(rpcclt_openapiDot1dStpTopChangesGet, [](uint32_t *count) { return store(topologyChanges(), count); });
    ASK(rpcclt_openapiDot1dStpTimeSinceTopologyChangeGet, [](uint64_t *time) -> int {
        *time = 100 * (uptimeSeconds() - lastTopologyChange()); /* hundredths of a second */
        return OPEN_OK;
    });
    ASK(rpcclt_openapiDot1dStpDesignatedRootGet, rootIdentifier);
    ASK(rpcclt_openapiDot1dStpRootCostGet, [](uint32_t *cost) { return store(spanningTree().root.cost, cost); });
    ASK(rpcclt_openapiDot1dStpRootPortGet, [](uint32_t *port) { return store(spanningTree().rootPort, port); });
    ASK(rpcclt_openapiDot1dStpPortStateGet, ofInterface<portTreeState>);
    ASK(rpcclt_openapiDot1dStpPortPathCostGet, ofInterface<pathCost>);
    ASK(rpcclt_openapiDot1dStpPortDesignatedRootGet, rootOn);
    ASK(rpcclt_openapiDot1dStpPortDesignatedCostGet, ofInterface<designatedCost>);
    ASK(rpcclt_openapiDot1dStpPortDesignatedBridgeGet, designatedBridge);
    ASK(rpcclt_openapiDot1dStpPortDesignatedPortGet, [](uint32_t port, uint16_t *designated) -> int {
        *designated = (uint16_t)(STP_PORT_PRIORITY << 8 | port);
        return validInterface(port);
    });
    ASK(rpcclt_openapiDot1dStpPortForwardTransitionsGet, ofInterface<forwardTransitions>);
    ASK(rpcclt_openapiDot1dIsInterfaceInCurrentInstance, ofInterface<[](uint32_t) { return 1; }>);
    ASK(rpcclt_openapiDot1dInstanceMemberGetNext,
        [](uint32_t port, uint32_t *next) { return storeNext(nextInterface(port), next); });
}

void registerBridge()
{
    registerSettings({&baseType, &maxInfo, &stpProtocol, &priority, &maxAge, &helloTime, &holdTime,
                      &forwardDelay, &bridgeMaxAge, &bridgeHelloTime, &bridgeForwardDelay, &portPriority});
    registerBase();
    registerTree();
}
