/*
 * model_registration.cpp - the virtual switch's registration protocols: GMRP and GVRP, MVRP and MMRP.
 *
 * Each of them is enabled in two places, for the switch and for a port, and runs where both say so and a neighbour is.
 * A port that begins to run one exchanges a round of PDUs with its neighbour, and then the line falls silent: counters
 * never move between two requests.
 */
#include <array>
#include <map>
#include <set>

#include "model.h"
#include "model_vlan.h"
#include "operations.h"
#include "settings.h"

/* Timers in hundredths of a second, in the ranges of the protocol. */
static const Setting settings[] = {
    {"rpcclt_openapiGarpJoinTimeGet", "rpcclt_openapiGarpJoinTimeSet", FOR_PORT, 20, 10, 100},
    {"rpcclt_openapiGarpLeaveTimeGet", "rpcclt_openapiGarpLeaveTimeSet", FOR_PORT, 60, 20, 600},
    {"rpcclt_openapiGarpLeaveAllTimeGet", "rpcclt_openapiGarpLeaveAllTimeSet", FOR_PORT, 1000, 200, 6000},
    {"rpcclt_openapiMvrpPeriodicStateMachineModeGet", "rpcclt_openapiMvrpPeriodicStateMachineModeSet", FOR_SWITCH,
     0, 0, 1},
    {"rpcclt_openapiMmrpPeriodicStateMachineModeGet", "rpcclt_openapiMmrpPeriodicStateMachineModeSet", FOR_SWITCH,
     0, 0, 1},
};

enum Protocol { GMRP, GVRP, MVRP, MMRP, PROTOCOLS };

/* What is counted, by the counter types of MVRP (all of them) and of MMRP (the first five). */
enum Counter : uint32_t { RECEIVED, BAD_HEADER, BAD_FORMAT, SENT, SEND_FAILED, REGISTRATION_FAILED, COUNTERS };
using Counters = std::array<uint32_t, COUNTERS>;

/* A round of PDUs; on port N, N more are received and sent. */
static const Counters firstRound = {30, 2, 1, 40, 4, 3};

struct ProtocolState {
    bool enabled;
    std::set<uint32_t> ports; /* where it is enabled */
    std::map<uint32_t, Counters> counted;
    Counters total; /* of the switch: cleared apart from the ports' */
};
static ProtocolState states[PROTOCOLS];

static bool runs(Protocol protocol, uint32_t port)
{
    return states[protocol].enabled && states[protocol].ports.contains(port) && portHasLink(port);
}

static void exchangeFirstRound(Protocol protocol, uint32_t port)
{
    for (uint32_t i = 0; i < COUNTERS; i++) {
        uint32_t count = firstRound[i] + (i == RECEIVED || i == SENT ? port : 0);
        states[protocol].counted[port][i] += count;
        states[protocol].total[i] += count;
    }
}

/* What all four protocols have; a flag is 0 or 1. */

template <Protocol P> static int enableGet(uint32_t *flag)
{
    *flag = states[P].enabled;
    return OPEN_OK;
}

template <Protocol P> static int enableSet(uint32_t flag)
{
    if (flag > 1)
        return OPEN_BAD_ARGUMENT;
    bool before = states[P].enabled;
    states[P].enabled = flag;
    for (uint32_t port : states[P].ports)
        if (!before && runs(P, port))
            exchangeFirstRound(P, port);
    return OPEN_OK;
}

template <Protocol P> static int portEnableGet(uint32_t port, uint32_t *flag)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    *flag = states[P].ports.contains(port);
    return OPEN_OK;
}

template <Protocol P> static int portEnableSet(uint32_t port, uint32_t flag)
{
    if (!portExists(port) || flag > 1)
        return OPEN_BAD_ARGUMENT;
    bool before = runs(P, port);
    if (flag)
        states[P].ports.insert(port);
    else
        states[P].ports.erase(port);
    if (!before && runs(P, port))
        exchangeFirstRound(P, port);
    return OPEN_OK;
}

template <Protocol P> static int portCounter(uint32_t port, uint32_t type, uint32_t *count)
{
    if (!portExists(port) || type > (P == MMRP ? SEND_FAILED : REGISTRATION_FAILED))
        return OPEN_BAD_ARGUMENT;
    *count = states[P].counted[port][type];
    return OPEN_OK;
}

template <Protocol P, Counter C> static int portCounterGet(uint32_t port, uint32_t *count)
{
    return portCounter<P>(port, C, count);
}

template <Protocol P> static int totalCounter(uint32_t type, uint32_t *count)
{
    if (type > (P == MMRP ? SEND_FAILED : REGISTRATION_FAILED))
        return OPEN_BAD_ARGUMENT;
    *count = states[P].total[type];
    return OPEN_OK;
}

template <Protocol P> static int clearPort(uint32_t port)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    states[P].counted.erase(port);
    return OPEN_OK;
}

template <Protocol P> static int clearTotal()
{
    states[P].total = {};
    return OPEN_OK;
}

template <Protocol P> static int clearAll()
{
    states[P].counted.clear();
    return clearTotal<P>();
}

/* The VLANs MVRP knows: those of the VLAN table, where it runs. */
static int registeredVlans(bool running, uint32_t vlanType, VlanIdList *vlans, uint32_t *count)
{
    enum { VLANS_ALL, VLANS_STATIC, VLANS_DYNAMIC };
    if (vlanType > VLANS_DYNAMIC)
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> known = running ? existingVlans() : std::vector<uint16_t>();
    if (vlanType != VLANS_ALL)
        std::erase_if(known, [=](uint16_t vlan) { return vlanIsDynamic(vlan) != (vlanType == VLANS_DYNAMIC); });
    setList(vlans, known);
    *count = vlans->count;
    return OPEN_OK;
}

void serveRegistration()
{
    serveSettings(settings);

    SERVE(rpcclt_openapiGarpGmrpEnableGet, enableGet<GMRP>);
    SERVE(rpcclt_openapiGarpGmrpEnableSet, enableSet<GMRP>);
    SERVE(rpcclt_openapiGarpGvrpEnableGet, enableGet<GVRP>);
    SERVE(rpcclt_openapiGarpGvrpEnableSet, enableSet<GVRP>);
    SERVE(rpcclt_openapiMvrpModeGet, enableGet<MVRP>);
    SERVE(rpcclt_openapiMvrpModeSet, enableSet<MVRP>);
    SERVE(rpcclt_openapiMmrpModeGet, enableGet<MMRP>);
    SERVE(rpcclt_openapiMmrpModeSet, enableSet<MMRP>);

    SERVE(rpcclt_openapiGarpGmrpPortEnableGet, portEnableGet<GMRP>);
    SERVE(rpcclt_openapiGarpGmrpPortEnableSet, portEnableSet<GMRP>);
    SERVE(rpcclt_openapiGarpGvrpPortEnableGet, portEnableGet<GVRP>);
    SERVE(rpcclt_openapiGarpGvrpPortEnableSet, portEnableSet<GVRP>);
    SERVE(rpcclt_openapiMvrpIntfModeGet, portEnableGet<MVRP>);
    SERVE(rpcclt_openapiMvrpIntfModeSet, portEnableSet<MVRP>);
    SERVE(rpcclt_openapiMmrpIntfModeGet, portEnableGet<MMRP>);
    SERVE(rpcclt_openapiMmrpIntfModeSet, portEnableSet<MMRP>);

    SERVE(rpcclt_openapiGarpGmrpFailedRegistrationsGet, portCounterGet<GMRP, REGISTRATION_FAILED>);
    SERVE(rpcclt_openapiGarpGmrpReceivePDUCountGet, portCounterGet<GMRP, RECEIVED>);
    SERVE(rpcclt_openapiGarpGmrpTransmitPDUCountGet, portCounterGet<GMRP, SENT>);
    SERVE(rpcclt_openapiGarpGvrpFailedRegistrationsGet, portCounterGet<GVRP, REGISTRATION_FAILED>);
    SERVE(rpcclt_openapiGarpGvrpReceivePDUCountGet, portCounterGet<GVRP, RECEIVED>);
    SERVE(rpcclt_openapiGarpGvrpTransmitPDUCountGet, portCounterGet<GVRP, SENT>);
    SERVE(rpcclt_openapiMvrpTrafficPduCounterGet, totalCounter<MVRP>);
    SERVE(rpcclt_openapiMvrpIntfTrafficPduCounterGet, portCounter<MVRP>);
    SERVE(rpcclt_openapiMvrpTrafficCountersPerIfClear, clearPort<MVRP>);
    SERVE(rpcclt_openapiMvrpTrafficGlobalCountersClear, clearTotal<MVRP>);
    SERVE(rpcclt_openapiMvrpTrafficCountersClear, clearAll<MVRP>);
    SERVE(rpcclt_openapiMmrpCounterGet, totalCounter<MMRP>);
    SERVE(rpcclt_openapiMmrpIntfCounterGet, portCounter<MMRP>);
    SERVE(rpcclt_openapiMmrpIntfCountersClear, clearPort<MMRP>);
    SERVE(rpcclt_openapiMmrpCountersClear, clearAll<MMRP>);

    /* MVRP can run on every port. */
    SERVE(rpcclt_openapiMvrpIsValidIntfGet, [](uint32_t port, uint32_t *flag) -> int {
        *flag = portExists(port);
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMvrpValidIntfNextGet, [](uint32_t port, uint32_t *next) -> int {
        uint32_t found = nextPort(port);
        if (!found)
            return OPEN_FAILED;
        *next = found;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMvrpVlanArrayGet, [](uint32_t vlanType, VlanIdList *vlans, uint32_t *count) {
        return registeredVlans(states[MVRP].enabled, vlanType, vlans, count);
    });
    SERVE(rpcclt_openapiMvrpIntfVlanArrayGet,
          [](uint32_t port, uint32_t vlanType, VlanIdList *vlans, uint32_t *count) -> int {
              return portExists(port) ? registeredVlans(runs(MVRP, port), vlanType, vlans, count) : OPEN_BAD_ARGUMENT;
          });
}

void resetRegistration()
{
    for (ProtocolState &state : states)
        state = {};
}
