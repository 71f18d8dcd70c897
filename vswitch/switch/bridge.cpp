/*
 * model_bridge.cpp - the virtual switch's 802.1D bridge: a root bridge. Its ports are those with a socket; the spanning tree
 * has the LAGs as well.
 */
#include "vswitch/base/operations.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

/* The root's timers are its own, in hundredths of a second. */
enum : uint32_t { MAX_AGE = 2000, HELLO_TIME = 200, HOLD_TIME = 100, FORWARD_DELAY = 1500 };

static const uint32_t STP_PORT_PRIORITY = 128;

static Setting baseType = {"rpcclt_openapiDot1dBaseTypeGet", nullptr, FOR_SWITCH, BRIDGE_TRANSPARENT, 0,
                           0};
static Setting maxInfo = {"rpcclt_openapiDot1dTpPortMaxInfoGet", nullptr, FOR_PORT, 1518, 0, 0};
static Setting stpProtocol = {"rpcclt_openapiDot1dStpProtocolSpecificationGet", nullptr, FOR_SWITCH, STP_802_1D,
                              0, 0};
static Setting priority = {"rpcclt_openapiDot1dStpPriorityGet", nullptr, FOR_SWITCH, 32768, 0, 0};
static Setting rootCost = {"rpcclt_openapiDot1dStpRootCostGet", nullptr, FOR_SWITCH, 0, 0, 0};
static Setting rootPort = {"rpcclt_openapiDot1dStpRootPortGet", nullptr, FOR_SWITCH, 0, 0, 0};
static Setting maxAge = {"rpcclt_openapiDot1dStpMaxAgeGet", nullptr, FOR_SWITCH, MAX_AGE, 0, 0};
static Setting helloTime = {"rpcclt_openapiDot1dStpHelloTimeGet", nullptr, FOR_SWITCH, HELLO_TIME, 0, 0};
static Setting holdTime = {"rpcclt_openapiDot1dStpHoldTimeGet", nullptr, FOR_SWITCH, HOLD_TIME, 0, 0};
static Setting forwardDelay = {"rpcclt_openapiDot1dStpForwardDelayGet", nullptr, FOR_SWITCH, FORWARD_DELAY, 0, 0};
static Setting bridgeMaxAge = {"rpcclt_openapiDot1dStpBridgeMaxAgeGet", nullptr, FOR_SWITCH, MAX_AGE, 0, 0};
static Setting bridgeHelloTime = {"rpcclt_openapiDot1dStpBridgeHelloTimeGet", nullptr, FOR_SWITCH, HELLO_TIME, 0, 0};
static Setting bridgeForwardDelay = {"rpcclt_openapiDot1dStpBridgeForwardDelayGet", nullptr, FOR_SWITCH, FORWARD_DELAY,
                                     0, 0};
static Setting portPriority = {"rpcclt_openapiDot1dStpPortPriorityGet", nullptr, FOR_INTERFACE, STP_PORT_PRIORITY, 0, 0};
static Setting pathCost = {"rpcclt_openapiDot1dStpPortPathCostGet", nullptr, FOR_INTERFACE, 20000, 0, 0};
static Setting designatedCost = {"rpcclt_openapiDot1dStpPortDesignatedCostGet", nullptr, FOR_INTERFACE, 0, 0, 0};

static int validInterface(uint32_t port)
{
    return interfaceExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT;
}

/* What the model gives as a bridge identifier: the address. */
static int bridgeIdentifier(OpenBufferDesc *identifier)
{
    return setText(identifier, macText(bridgeMac()));
}

static int bridgeIdentifierOn(uint32_t port, OpenBufferDesc *identifier)
{
    return interfaceExists(port) ? bridgeIdentifier(identifier) : (int)OPEN_BAD_ARGUMENT;
}

static void serveBase()
{
    SERVE(rpcclt_openapiDot1dBaseBridgeAddressGet, bridgeIdentifier);
    SERVE(rpcclt_openapiDot1dBaseNumPortsGet, [](uint32_t *numPorts) { return tell(modelOptions().ports, numPorts); });
    SERVE(rpcclt_openapiDot1dBasePortEntryGet,
          [](uint32_t port) -> int { return portExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT; });
    SERVE(rpcclt_openapiDot1dBasePortCircuitGet, [](uint32_t port, OpenBufferDesc *circuit) -> int {
        return portExists(port) ? setText(circuit, "0.0." + std::to_string(port)) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiDot1dBasePortIfIndexGet,
          [](uint32_t port, uint32_t *ifIndex) { return onPort(port, port, ifIndex); });
    SERVE(rpcclt_openapiDot1dBasePortEntryNextGet,
          [](uint32_t port, uint32_t *next) { return tellNext(nextPort(port), next); });
    SERVE(rpcclt_openapiDot1dIsValidIntf, validInterface);

    SERVE(rpcclt_openapiDot1dBasePortDelayExceededDiscardsGet, [](uint32_t port, uint32_t *count) {
        return onPort(port, (uint32_t)portCounters(port).outDiscards, count);
    });
    SERVE(rpcclt_openapiDot1dBasePortMtuExceededDiscardsGet, [](uint32_t port, uint32_t *count) {
        return onPort(port, (uint32_t)portCounters(port).tooLong, count);
    });
    SERVE(rpcclt_openapiDot1dTpPortInFramesGet, [](uint32_t port, uint32_t *count) {
        return onInterface(port, (uint32_t)portCounters(port).inFrames, count);
    });
    SERVE(rpcclt_openapiDot1dTpPortOutFramesGet, [](uint32_t port, uint32_t *count) {
        return onInterface(port, (uint32_t)portCounters(port).outFrames, count);
    });
    SERVE(rpcclt_openapiDot1dTpPortInDiscardsGet, [](uint32_t port, uint32_t *count) {
        return onInterface(port, (uint32_t)portCounters(port).inDiscards, count);
    });
}

static void serveSpanningTree()
{
    SERVE(rpcclt_openapiDot1dStpTopChangesGet, [](uint32_t *count) { return tell(topologyChanges(), count); });
    SERVE(rpcclt_openapiDot1dStpTimeSinceTopologyChangeGet, [](uint64_t *time) -> int {
        *time = 100 * (uptimeSeconds() - lastTopologyChange()); /* hundredths of a second */
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDot1dStpDesignatedRootGet, bridgeIdentifier);
    SERVE(rpcclt_openapiDot1dStpPortStateGet, [](uint32_t port, uint32_t *state) {
        return onInterface(port, portIsUp(port) ? STP_FORWARDING : STP_DISABLED, state);
    });
    SERVE(rpcclt_openapiDot1dStpPortDesignatedRootGet, bridgeIdentifierOn);
    SERVE(rpcclt_openapiDot1dStpPortDesignatedBridgeGet, bridgeIdentifierOn);
    SERVE(rpcclt_openapiDot1dStpPortDesignatedPortGet, [](uint32_t port, uint16_t *designated) -> int {
        *designated = (uint16_t)(STP_PORT_PRIORITY << 8 | port);
        return validInterface(port);
    });
    SERVE(rpcclt_openapiDot1dStpPortForwardTransitionsGet,
          [](uint32_t port, uint32_t *count) { return onInterface(port, forwardTransitions(port), count); });
    SERVE(rpcclt_openapiDot1dIsInterfaceInCurrentInstance,
          [](uint32_t port, uint32_t *value) { return onInterface(port, 1, value); });
    SERVE(rpcclt_openapiDot1dInstanceMemberGetNext,
          [](uint32_t port, uint32_t *next) { return tellNext(nextInterface(port), next); });
}

void serveBridge()
{
    serveSettings({&baseType, &maxInfo, &stpProtocol, &priority, &rootCost, &rootPort,
                   &maxAge, &helloTime, &holdTime, &forwardDelay, &bridgeMaxAge, &bridgeHelloTime, &bridgeForwardDelay,
                   &portPriority, &pathCost, &designatedCost});
    serveBase();
    serveSpanningTree();
}
