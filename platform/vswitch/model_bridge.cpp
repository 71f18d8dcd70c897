/*
 * model_bridge.cpp - the virtual switch's 802.1D bridge: a root bridge.
 */
#include "model.h"
#include "operations.h"
#include "settings.h"

static const Setting settings[] = {
    {"rpcclt_openapiDot1dBaseTypeGet", nullptr, FOR_SWITCH, 2, 0, 0}, /* transparent only */
    {"rpcclt_openapiDot1dBasePortDelayExceededDiscardsGet", nullptr, FOR_PORT, 0, 0, 0},
    {"rpcclt_openapiDot1dBasePortMtuExceededDiscardsGet", nullptr, FOR_PORT, 0, 0, 0},
    {"rpcclt_openapiDot1dTpLearnedEntryDiscardsGet", nullptr, FOR_SWITCH, 0, 0, 0},
    {"rpcclt_openapiDbDot1dTpAgingTimeGet", "rpcclt_openapiDbDot1dTpAgingTimeSet", FOR_SWITCH, 300, 10, 1000000},
    {"rpcclt_openapiDot1dTpPortMaxInfoGet", nullptr, FOR_PORT, 1518, 0, 0},
    {"rpcclt_openapiDot1dTpPortInDiscardsGet", nullptr, FOR_PORT, 0, 0, 0},
    {"rpcclt_openapiDot1dStpProtocolSpecificationGet", nullptr, FOR_SWITCH, 3, 0, 0}, /* 802.1D */
    {"rpcclt_openapiDot1dStpPriorityGet", nullptr, FOR_SWITCH, 32768, 0, 0},
    {"rpcclt_openapiDot1dStpTopChangesGet", nullptr, FOR_SWITCH, 2, 0, 0},
    {"rpcclt_openapiDot1dStpRootCostGet", nullptr, FOR_SWITCH, 0, 0, 0},
    {"rpcclt_openapiDot1dStpRootPortGet", nullptr, FOR_SWITCH, 0, 0, 0},
    {"rpcclt_openapiDot1dStpMaxAgeGet", nullptr, FOR_SWITCH, 2000, 0, 0}, /* hundredths of a second */
    {"rpcclt_openapiDot1dStpHelloTimeGet", nullptr, FOR_SWITCH, 200, 0, 0},
    {"rpcclt_openapiDot1dStpHoldTimeGet", nullptr, FOR_SWITCH, 100, 0, 0},
    {"rpcclt_openapiDot1dStpForwardDelayGet", nullptr, FOR_SWITCH, 1500, 0, 0},
    {"rpcclt_openapiDot1dStpBridgeMaxAgeGet", nullptr, FOR_SWITCH, 2001, 0, 0},
    {"rpcclt_openapiDot1dStpBridgeHelloTimeGet", nullptr, FOR_SWITCH, 201, 0, 0},
    {"rpcclt_openapiDot1dStpBridgeForwardDelayGet", nullptr, FOR_SWITCH, 1501, 0, 0},
    {"rpcclt_openapiDot1dStpPortPriorityGet", nullptr, FOR_PORT, 128, 0, 0},
    {"rpcclt_openapiDot1dStpPortPathCostGet", nullptr, FOR_PORT, 20000, 0, 0},
    {"rpcclt_openapiDot1dStpPortDesignatedCostGet", nullptr, FOR_PORT, 0, 0, 0},
};

static int onPort(uint32_t port, uint32_t value, uint32_t *result)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    *result = value;
    return OPEN_OK;
}

static int portAfter(uint32_t port, uint32_t *next)
{
    uint32_t found = nextPort(port);
    if (!found)
        return OPEN_FAILED;
    *next = found;
    return OPEN_OK;
}

/* What the model gives as a bridge identifier: the address. */
static int bridgeIdentifier(OpenBufferDesc *identifier)
{
    return setText(identifier, macText(bridgeMac()));
}

void serveBridge()
{
    serveSettings(settings);

    SERVE(rpcclt_openapiDot1dBaseBridgeAddressGet,
          [](OpenBufferDesc *address) { return setText(address, macText(bridgeMac())); });
    SERVE(rpcclt_openapiDot1dBaseNumPortsGet, [](uint32_t *numPorts) -> int {
        *numPorts = modelOptions().ports;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDot1dBasePortEntryGet,
          [](uint32_t port) -> int { return portExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT; });
    SERVE(rpcclt_openapiDot1dBasePortCircuitGet, [](uint32_t port, OpenBufferDesc *circuit) -> int {
        return portExists(port) ? setText(circuit, "0.0." + std::to_string(port)) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiDot1dBasePortIfIndexGet,
          [](uint32_t port, uint32_t *ifIndex) { return onPort(port, port, ifIndex); });
    SERVE(rpcclt_openapiDot1dBasePortEntryNextGet, portAfter);
    SERVE(rpcclt_openapiDot1dIsValidIntf,
          [](uint32_t port) -> int { return portExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT; });

    /* Frames flow on the linked ports, the more the longer the switch runs. */
    SERVE(rpcclt_openapiDot1dTpPortInFramesGet, [](uint32_t port, uint32_t *count) {
        return onPort(port, portHasLink(port) ? 1000 * port + (uint32_t)uptimeSeconds() : 0, count);
    });
    SERVE(rpcclt_openapiDot1dTpPortOutFramesGet, [](uint32_t port, uint32_t *count) {
        return onPort(port, portHasLink(port) ? 2000 * port + (uint32_t)uptimeSeconds() : 0, count);
    });

    SERVE(rpcclt_openapiDot1dStpTimeSinceTopologyChangeGet, [](uint64_t *time) -> int {
        *time = 100 * uptimeSeconds(); /* hundredths of a second */
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDot1dStpDesignatedRootGet, bridgeIdentifier);
    SERVE(rpcclt_openapiDot1dStpPortStateGet, [](uint32_t port, uint32_t *state) {
        return onPort(port, portHasLink(port) ? 5 : 1, state); /* forwarding, disabled */
    });
    SERVE(rpcclt_openapiDot1dStpPortDesignatedRootGet, [](uint32_t port, OpenBufferDesc *root) -> int {
        return portExists(port) ? bridgeIdentifier(root) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiDot1dStpPortDesignatedBridgeGet, [](uint32_t port, OpenBufferDesc *bridge) -> int {
        return portExists(port) ? bridgeIdentifier(bridge) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiDot1dStpPortDesignatedPortGet, [](uint32_t port, uint16_t *designated) -> int {
        if (!portExists(port))
            return OPEN_BAD_ARGUMENT;
        *designated = (uint16_t)(0x8000 | port); /* the port's priority, then its number */
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDot1dStpPortForwardTransitionsGet, [](uint32_t port, uint32_t *count) {
        return onPort(port, portHasLink(port) ? 1 : 0, count);
    });
    SERVE(rpcclt_openapiDot1dIsInterfaceInCurrentInstance,
          [](uint32_t port, uint32_t *value) { return onPort(port, 1, value); });
    SERVE(rpcclt_openapiDot1dInstanceMemberGetNext, portAfter);
}
