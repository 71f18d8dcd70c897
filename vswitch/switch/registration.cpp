/*
 * model_registration.cpp - the virtual switch's registration protocols: GMRP and GVRP, MVRP and MMRP.
 *
 * Each of them is enabled in two places, for the switch and for a port, and runs where both say so, the port is up and a
 * neighbour is. Then a PDU goes either way at once and with every LeaveAll timer; MVRP and MMRP send one every second
 * besides while their periodic state machine is on. Where GVRP or MVRP runs, the neighbour registers its VLANs, unless the
 * port may not be in one: that counts as a failed registration each time. The neighbours of a switch made up have three
 * VLANs, 3001 and 3002 on port 1, 3002 and 3003 on port 2. Real ones are registrar.cpp's.
 */
#include <algorithm>
#include <array>

#include "vswitch/base/operations.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

/* Timers in hundredths of a second, in the ranges of the protocol. */
static Setting joinTime = {"rpcclt_openapiGarpJoinTimeGet", "rpcclt_openapiGarpJoinTimeSet", FOR_PORT, 20, 10, 100};
static Setting leaveTime = {"rpcclt_openapiGarpLeaveTimeGet", "rpcclt_openapiGarpLeaveTimeSet", FOR_PORT, 60, 20, 600};
static Setting leaveAllTime = {"rpcclt_openapiGarpLeaveAllTimeGet", "rpcclt_openapiGarpLeaveAllTimeSet", FOR_PORT, 1000,
                               200, 6000};
static Setting mvrpPeriodic = {"rpcclt_openapiMvrpPeriodicStateMachineModeGet",
                               "rpcclt_openapiMvrpPeriodicStateMachineModeSet", FOR_SWITCH, 0, 0, 1};
static Setting mmrpPeriodic = {"rpcclt_openapiMmrpPeriodicStateMachineModeGet",
                               "rpcclt_openapiMmrpPeriodicStateMachineModeSet", FOR_SWITCH, 0, 0, 1};

/* What is counted, by MrpCounter. */
using Counters = std::array<uint64_t, MRP_REGISTRATION_FAILED + 1>;

/* A port that runs a protocol: what is due when, in seconds of uptime. */
struct Session {
    bool running = false;
    uint64_t nextLeaveAll = 0, periodicUntil = 0;
};

struct ProtocolState {
    bool enabled;
    PortSet ports; /* where it is enabled */
    std::map<uint32_t, Session> sessions;
    std::map<uint32_t, Counters> counted;
    Counters total; /* of the switch: cleared apart from the ports' */
};

static ProtocolState states[REGISTRATION_PROTOCOLS];
static std::map<uint32_t, VlanSet> declared; /* by the neighbour on a port */

bool registrationRuns(RegistrationProtocol protocol, uint32_t port)
{
    const ProtocolState &state = states[protocol];
    return state.enabled && state.ports.contains(port) && portIsUp(port) && portHasNeighbour(port);
}

/* VLANs */

void neighbourDeclares(uint32_t port, uint32_t vlan, bool joins)
{
    if (joins)
        declared[port].insert((uint16_t)vlan);
    else
        declared[port].erase((uint16_t)vlan);
    stateChanged();
}

void neighbourHasGone(uint32_t port)
{
    declared.erase(port);
    stateChanged();
}

const VlanSet &declaredVlans(uint32_t port)
{
    return declared[port];
}

GarpTimers garpTimers(uint32_t port)
{
    return {(uint32_t)leaveTime.value(port), (uint32_t)leaveAllTime.value(port)};
}

bool mvrpIsPeriodic()
{
    return mvrpPeriodic.value();
}

bool vlanRegistered(uint32_t port, uint32_t vlan)
{
    auto known = declared.find(port);
    return known != declared.end() && known->second.contains((uint16_t)vlan) && (registrationRuns(GVRP, port) || registrationRuns(MVRP, port)) &&
           portMayRegister(port, vlan);
}

VlanSet registeredVlans()
{
    VlanSet ids;
    if (states[GVRP].enabled || states[MVRP].enabled)
        for (const auto &[port, vlans] : declared)
            for (uint16_t vlan : vlans)
                if (vlanRegistered(port, vlan))
                    ids.insert(vlan);
    return ids;
}

static uint32_t refusedVlans(uint32_t port)
{
    const VlanSet &vlans = declared[port];
    return (uint32_t)std::count_if(vlans.begin(), vlans.end(), [=](uint16_t vlan) { return !portMayRegister(port, vlan); });
}

/* PDUs */

void countRegistration(RegistrationProtocol protocol, uint32_t port, MrpCounter counter, uint64_t number)
{
    states[protocol].counted[port][counter] += number;
    states[protocol].total[counter] += number;
}

static void exchange(RegistrationProtocol protocol, uint32_t port, uint64_t rounds)
{
    if (!trafficIsMadeUp())
        return;
    countRegistration(protocol, port, MRP_SENT, rounds);
    countRegistration(protocol, port, MRP_RECEIVED, rounds);
    if (protocol == GVRP || protocol == MVRP)
        countRegistration(protocol, port, MRP_REGISTRATION_FAILED, rounds * refusedVlans(port));
}

static uint64_t leaveAllSeconds(RegistrationProtocol protocol, uint32_t port)
{
    return protocol == GMRP || protocol == GVRP ? leaveAllTime.value(port) / 100 : 10;
}

static void passSession(RegistrationProtocol protocol, uint32_t port, uint64_t now)
{
    Session &session = states[protocol].sessions[port];
    if (!registrationRuns(protocol, port)) {
        session.running = false;
        return;
    }
    uint64_t interval = leaveAllSeconds(protocol, port);
    if (!session.running) {
        session = {true, now + interval, now};
        exchange(protocol, port, 1);
    }
    session.nextLeaveAll = std::min(session.nextLeaveAll, now + interval); /* the timer may have been made shorter */
    if (session.nextLeaveAll <= now) {
        uint64_t rounds = (now - session.nextLeaveAll) / interval + 1;
        exchange(protocol, port, rounds);
        session.nextLeaveAll += rounds * interval;
    }
    if (!trafficIsMadeUp())
        return;
    if ((protocol == MVRP && mvrpPeriodic.value()) || (protocol == MMRP && mmrpPeriodic.value()))
        countRegistration(protocol, port, MRP_SENT, now - session.periodicUntil);
    session.periodicUntil = now;
}

void passRegistration(uint64_t now)
{
    for (RegistrationProtocol protocol : {GMRP, GVRP, MVRP, MMRP})
        for (uint32_t port : states[protocol].ports)
            passSession(protocol, port, now);
}

/* What all four protocols have; a flag is 0 or 1. */

template <RegistrationProtocol P> static int enableGet(uint32_t *flag)
{
    return tell(states[P].enabled, flag);
}

template <RegistrationProtocol P> static int enableSet(uint32_t flag)
{
    if (flag > 1)
        return OPEN_BAD_ARGUMENT;
    states[P].enabled = flag;
    return OPEN_OK;
}

template <RegistrationProtocol P> static int portEnableGet(uint32_t port, uint32_t *flag)
{
    return onPort(port, states[P].ports.contains(port), flag);
}

template <RegistrationProtocol P> static int portEnableSet(uint32_t port, uint32_t flag)
{
    if (!portExists(port) || flag > 1)
        return OPEN_BAD_ARGUMENT;
    if (flag) {
        states[P].ports.insert(port);
    } else {
        states[P].ports.erase(port);
        states[P].sessions.erase(port);
    }
    return OPEN_OK;
}

template <RegistrationProtocol P> static int portCounter(uint32_t port, uint32_t type, uint32_t *value)
{
    if (!portExists(port) || type > (P == MMRP ? MRP_SEND_FAILED : MRP_REGISTRATION_FAILED))
        return OPEN_BAD_ARGUMENT;
    return tell((uint32_t)states[P].counted[port][type], value);
}

template <RegistrationProtocol P, MrpCounter C> static int portCounterGet(uint32_t port, uint32_t *value)
{
    return portCounter<P>(port, C, value);
}

template <RegistrationProtocol P> static int totalCounter(uint32_t type, uint32_t *value)
{
    if (type > (P == MMRP ? MRP_SEND_FAILED : MRP_REGISTRATION_FAILED))
        return OPEN_BAD_ARGUMENT;
    return tell((uint32_t)states[P].total[type], value);
}

template <RegistrationProtocol P> static int clearPort(uint32_t port)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    states[P].counted.erase(port);
    return OPEN_OK;
}

template <RegistrationProtocol P> static int clearTotal()
{
    states[P].total = {};
    return OPEN_OK;
}

template <RegistrationProtocol P> static int clearAll()
{
    states[P].counted.clear();
    return clearTotal<P>();
}

/* The VLANs that MVRP knows. */

static int tellVlans(const std::vector<uint16_t> &known, VlanIdList *vlans, uint32_t *count)
{
    setList(vlans, known);
    return tell(vlans->count, count);
}

static int vlansOfSwitch(uint32_t selection, VlanIdList *vlans, uint32_t *count)
{
    if (selection > MVRP_VLANS_DYNAMIC)
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> known = states[MVRP].enabled ? existingVlans() : std::vector<uint16_t>();
    if (selection != MVRP_VLANS_ALL)
        std::erase_if(known, [=](uint16_t vlan) { return vlanIsDynamic(vlan) != (selection == MVRP_VLANS_DYNAMIC); });
    return tellVlans(known, vlans, count);
}

/* Static: what the port tells its neighbour. Dynamic: what the neighbour registered. */
static int vlansOfPort(uint32_t port, uint32_t selection, VlanIdList *vlans, uint32_t *count)
{
    if (!portExists(port) || selection > MVRP_VLANS_DYNAMIC)
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> known = registrationRuns(MVRP, port) ? existingVlans() : std::vector<uint16_t>();
    std::erase_if(known, [=](uint16_t vlan) {
        bool added = isAdded(port, vlan);
        return !portInVlan(port, vlan) || (selection != MVRP_VLANS_ALL && added != (selection == MVRP_VLANS_DYNAMIC));
    });
    return tellVlans(known, vlans, count);
}

void serveRegistration()
{
    serveSettings({&joinTime, &leaveTime, &leaveAllTime, &mvrpPeriodic, &mmrpPeriodic});

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

    SERVE(rpcclt_openapiGarpGmrpFailedRegistrationsGet, portCounterGet<GMRP, MRP_REGISTRATION_FAILED>);
    SERVE(rpcclt_openapiGarpGmrpReceivePDUCountGet, portCounterGet<GMRP, MRP_RECEIVED>);
    SERVE(rpcclt_openapiGarpGmrpTransmitPDUCountGet, portCounterGet<GMRP, MRP_SENT>);
    SERVE(rpcclt_openapiGarpGvrpFailedRegistrationsGet, portCounterGet<GVRP, MRP_REGISTRATION_FAILED>);
    SERVE(rpcclt_openapiGarpGvrpReceivePDUCountGet, portCounterGet<GVRP, MRP_RECEIVED>);
    SERVE(rpcclt_openapiGarpGvrpTransmitPDUCountGet, portCounterGet<GVRP, MRP_SENT>);
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
    SERVE(rpcclt_openapiMvrpIsValidIntfGet,
          [](uint32_t port, uint32_t *flag) { return tell(portExists(port), flag); });
    SERVE(rpcclt_openapiMvrpValidIntfNextGet,
          [](uint32_t port, uint32_t *next) { return tellNext(nextPort(port), next); });
    SERVE(rpcclt_openapiMvrpVlanArrayGet, vlansOfSwitch);
    SERVE(rpcclt_openapiMvrpIntfVlanArrayGet, vlansOfPort);
}

void resetRegistration()
{
    for (ProtocolState &state : states)
        state = {};
    declared.clear();
    if (trafficIsMadeUp())
        declared = {{1, {3001, 3002}}, {2, {3002, 3003}}};
}
