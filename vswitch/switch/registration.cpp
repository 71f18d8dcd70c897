/*
 * registration.cpp - GMRP, GVRP, MVRP and MMRP: where does each run, what do neighbours register, what is counted?
 *
 * A protocol runs on a port if it is enabled for the switch and for the port, and the port is up with a neighbour. It
 * sends a PDU and receives one when it starts and at each LeaveAll timer. MVRP and MMRP send another one every second
 * while their periodic state machine is on. Where GVRP or MVRP runs, the neighbour registers the VLANs that it
 * declares. A VLAN that the port may not be in counts as a failed registration each time. Simulated neighbours declare
 * the VLANs 3001 and 3002 on port 1, 3002 and 3003 on port 2, until the command `neighbour` changes that. groups.cpp
 * keeps the groups that are declared. frames/mrp.cpp and frames/groups.cpp handle real neighbours.
 */
#include <algorithm>
#include <array>
#include <map>

#include "vswitch/base/clock.h"
#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

/* Timers in hundredths of a second. */
static Setting joinTime = {.name = "GarpJoinTime", .scope = FOR_PORT, .initial = 20, .settable = true};
static Setting leaveTime = {.name = "GarpLeaveTime", .scope = FOR_PORT, .initial = 60, .settable = true};
static Setting leaveAllTime = {.name = "GarpLeaveAllTime", .scope = FOR_PORT, .initial = 1000, .settable = true};
static Setting mvrpPeriodic = {.name = "MvrpPeriodicStateMachineMode", .settable = true};
static Setting mmrpPeriodic = {.name = "MmrpPeriodicStateMachineMode", .settable = true};

/* By MrpCounter. */
using Counters = std::array<uint64_t, MRP_REGISTRATION_FAILED + 1>;

/* A protocol on a port. Times are uptime in seconds. */
struct Session {
    bool running = false;
    uint64_t nextLeaveAll = 0, periodicUntil = 0; /* periodic PDUs are counted until then */
};

struct ProtocolState {
    bool enabled;
    PortSet ports; /* that it is enabled on */
    std::map<uint32_t, Session> sessions;
    std::map<uint32_t, Counters> counted, inTotal; /* by port; the total is the sum of inTotal */
};

static ProtocolState states[REGISTRATION_PROTOCOLS];
static std::map<uint32_t, VlanBits> declared; /* by port: what the neighbour declares */

bool registrationRuns(RegistrationProtocol protocol, uint32_t port)
{
    const ProtocolState &state = states[protocol];
    return state.enabled && state.ports.contains(port) && portIsUp(port) && portHasNeighbour(port);
}

/* VLANs */

void neighbourDeclares(uint32_t port, uint32_t vlan, bool joins)
{
    if (declaredVlans(port)[vlan] == joins)
        return;
    declared[port].set(vlan, joins);
    stateChanged();
}

void neighbourHasGone(uint32_t port)
{
    declared.erase(port);
    setRegisteredVlans(port, {});
    stateChanged();
}

const VlanBits &declaredVlans(uint32_t port)
{
    static const VlanBits none;
    auto found = declared.find(port);
    return found == declared.end() ? none : found->second;
}

GarpTimers garpTimers(uint32_t port)
{
    return {(uint32_t)leaveTime.value(port), (uint32_t)leaveAllTime.value(port)};
}

bool registrationIsPeriodic(RegistrationProtocol protocol)
{
    return (protocol == MVRP && mvrpPeriodic.value()) || (protocol == MMRP && mmrpPeriodic.value());
}

/* Stores in the VLAN table what neighbours declare, if GVRP or MVRP runs and the port may be in the VLAN. */
static void registerDeclared()
{
    for (const auto &[port, vlans] : declared) {
        bool runs = vlans.any() && (registrationRuns(GVRP, port) || registrationRuns(MVRP, port));
        setRegisteredVlans(port, runs ? vlans & registrableVlans(port) : VlanBits());
    }
}

static uint32_t refusedVlans(uint32_t port)
{
    return (uint32_t)(declaredVlans(port) & ~registrableVlans(port)).count();
}

/* PDUs */

void countRegistration(RegistrationProtocol protocol, uint32_t port, MrpCounter counter, uint64_t number)
{
    states[protocol].counted[port][counter] += number;
    states[protocol].inTotal[port][counter] += number;
}

/* Simulated neighbours: `rounds` PDUs in each direction. */
static void exchange(RegistrationProtocol protocol, uint32_t port, uint64_t rounds)
{
    if (!trafficIsSimulated())
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

static void advanceSession(RegistrationProtocol protocol, uint32_t port, uint64_t now)
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
    session.nextLeaveAll = std::min(session.nextLeaveAll, now + interval); /* the timer may now be shorter */
    if (session.nextLeaveAll <= now) {
        uint64_t rounds = (now - session.nextLeaveAll) / interval + 1;
        exchange(protocol, port, rounds);
        session.nextLeaveAll += rounds * interval;
    }
    if (!trafficIsSimulated())
        return;
    if (registrationIsPeriodic(protocol))
        countRegistration(protocol, port, MRP_SENT, now - session.periodicUntil);
    session.periodicUntil = now;
}

void advanceRegistration(uint64_t now)
{
    registerDeclared();
    for (RegistrationProtocol protocol : {GMRP, GVRP, MVRP, MMRP})
        for (uint32_t port : states[protocol].ports)
            advanceSession(protocol, port, now);
}

void collectRegistrationValues(const PortSet &ports, Values *values)
{
    for (ProtocolState &state : states)
        for (uint32_t port : ports) {
            Session &session = state.sessions[port];
            values->insert(values->end(), {&session.nextLeaveAll, &session.periodicUntil});
            for (Counters *counters : {&state.counted[port], &state.inTotal[port]})
                for (uint64_t &counter : *counters)
                    values->push_back(&counter);
        }
}

/* Operations of all four protocols */

template <RegistrationProtocol P> static int enableGet(uint32_t *flag)
{
    return store(states[P].enabled, flag);
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
    return portExists(port) ? store(states[P].ports.contains(port), flag) : (int)OPEN_BAD_ARGUMENT;
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
    return store((uint32_t)valueIn(states[P].counted, port)[type], value);
}

template <RegistrationProtocol P, MrpCounter C> static int portCounterGet(uint32_t port, uint32_t *value)
{
    return portCounter<P>(port, C, value);
}

template <RegistrationProtocol P> static int totalCounter(uint32_t type, uint32_t *value)
{
    if (type > (P == MMRP ? MRP_SEND_FAILED : MRP_REGISTRATION_FAILED))
        return OPEN_BAD_ARGUMENT;
    uint64_t total = 0;
    for (const auto &[port, counters] : states[P].inTotal)
        total += counters[type];
    return store((uint32_t)total, value);
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
    states[P].inTotal.clear();
    return OPEN_OK;
}

template <RegistrationProtocol P> static int clearAll()
{
    states[P].counted.clear();
    return clearTotal<P>();
}

/* The VLANs that MVRP knows */

static int storeVlans(const std::vector<uint16_t> &known, VlanIdList *vlans, uint32_t *count)
{
    setList(vlans, known);
    return store(vlans->count, count);
}

static int vlansOfSwitch(uint32_t selection, VlanIdList *vlans, uint32_t *count)
{
    if (selection > MVRP_VLANS_DYNAMIC)
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> known = states[MVRP].enabled ? existingVlans() : std::vector<uint16_t>();
    if (selection != MVRP_VLANS_ALL)
        std::erase_if(known, [=](uint16_t vlan) { return vlanIsDynamic(vlan) != (selection == MVRP_VLANS_DYNAMIC); });
    return storeVlans(known, vlans, count);
}

/* Dynamic VLANs are those that the neighbour registered on the port. */
static int vlansOfPort(uint32_t port, uint32_t selection, VlanIdList *vlans, uint32_t *count)
{
    if (!portExists(port) || selection > MVRP_VLANS_DYNAMIC)
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> known = registrationRuns(MVRP, port) ? existingVlans() : std::vector<uint16_t>();
    std::erase_if(known, [=](uint16_t vlan) {
        bool added = isAdded(port, vlan);
        return !portInVlan(port, vlan) || (selection != MVRP_VLANS_ALL && added != (selection == MVRP_VLANS_DYNAMIC));
    });
    return storeVlans(known, vlans, count);
}

void registerRegistration()
{
    registerSettings({&joinTime, &leaveTime, &leaveAllTime, &mvrpPeriodic, &mmrpPeriodic});

    ASK(rpcclt_openapiGarpGmrpEnableGet, enableGet<GMRP>);
    DO(rpcclt_openapiGarpGmrpEnableSet, enableSet<GMRP>);
    ASK(rpcclt_openapiGarpGvrpEnableGet, enableGet<GVRP>);
    DO(rpcclt_openapiGarpGvrpEnableSet, enableSet<GVRP>);
    ASK(rpcclt_openapiMvrpModeGet, enableGet<MVRP>);
    DO(rpcclt_openapiMvrpModeSet, enableSet<MVRP>);
    ASK(rpcclt_openapiMmrpModeGet, enableGet<MMRP>);
    DO(rpcclt_openapiMmrpModeSet, enableSet<MMRP>);

    ASK(rpcclt_openapiGarpGmrpPortEnableGet, portEnableGet<GMRP>);
    DO(rpcclt_openapiGarpGmrpPortEnableSet, portEnableSet<GMRP>);
    ASK(rpcclt_openapiGarpGvrpPortEnableGet, portEnableGet<GVRP>);
    DO(rpcclt_openapiGarpGvrpPortEnableSet, portEnableSet<GVRP>);
    ASK(rpcclt_openapiMvrpIntfModeGet, portEnableGet<MVRP>);
    DO(rpcclt_openapiMvrpIntfModeSet, portEnableSet<MVRP>);
    ASK(rpcclt_openapiMmrpIntfModeGet, portEnableGet<MMRP>);
    DO(rpcclt_openapiMmrpIntfModeSet, portEnableSet<MMRP>);

    ASK(rpcclt_openapiGarpGmrpFailedRegistrationsGet, portCounterGet<GMRP, MRP_REGISTRATION_FAILED>);
    ASK(rpcclt_openapiGarpGmrpReceivePDUCountGet, portCounterGet<GMRP, MRP_RECEIVED>);
    ASK(rpcclt_openapiGarpGmrpTransmitPDUCountGet, portCounterGet<GMRP, MRP_SENT>);
    ASK(rpcclt_openapiGarpGvrpFailedRegistrationsGet, portCounterGet<GVRP, MRP_REGISTRATION_FAILED>);
    ASK(rpcclt_openapiGarpGvrpReceivePDUCountGet, portCounterGet<GVRP, MRP_RECEIVED>);
    ASK(rpcclt_openapiGarpGvrpTransmitPDUCountGet, portCounterGet<GVRP, MRP_SENT>);
    ASK(rpcclt_openapiMvrpTrafficPduCounterGet, totalCounter<MVRP>);
    ASK(rpcclt_openapiMvrpIntfTrafficPduCounterGet, portCounter<MVRP>);
    DO(rpcclt_openapiMvrpTrafficCountersPerIfClear, clearPort<MVRP>);
    DO(rpcclt_openapiMvrpTrafficGlobalCountersClear, clearTotal<MVRP>);
    DO(rpcclt_openapiMvrpTrafficCountersClear, clearAll<MVRP>);
    ASK(rpcclt_openapiMmrpCounterGet, totalCounter<MMRP>);
    ASK(rpcclt_openapiMmrpIntfCounterGet, portCounter<MMRP>);
    DO(rpcclt_openapiMmrpIntfCountersClear, clearPort<MMRP>);
    DO(rpcclt_openapiMmrpCountersClear, clearAll<MMRP>);

    /* MVRP can run on every port. */
    ASK(rpcclt_openapiMvrpIsValidIntfGet, [](uint32_t port, uint32_t *flag) { return store(portExists(port), flag); });
    ASK(rpcclt_openapiMvrpValidIntfNextGet,
        [](uint32_t port, uint32_t *next) { return storeNext(nextPort(port), next); });
    ASK(rpcclt_openapiMvrpVlanArrayGet, vlansOfSwitch);
    ASK(rpcclt_openapiMvrpIntfVlanArrayGet, vlansOfPort);
}

void resetRegistration()
{
    for (ProtocolState &state : states)
        state = {};
    declared.clear();
    if (trafficIsSimulated())
        for (auto [port, vlan] : {std::pair(1u, 3001u), {1u, 3002u}, {2u, 3002u}, {2u, 3003u}})
            declared[port].set(vlan);
}
