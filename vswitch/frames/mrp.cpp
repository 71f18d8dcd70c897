/*
 * mrp.cpp - MVRP and GVRP (IEEE 802.1Q). Both register VLANs in the same way; only their PDUs differ.
 *
 * A port declares its configured VLANs and those that neighbours registered on other ports. It sends this when it
 * changes, after a LeaveAll, and every second while MVRP's periodic state machine is on. A VLAN that a neighbour
 * leaves, or does not declare again after a LeaveAll, stays registered until the port's leave timer ends.
 */
#include "vswitch/frames/mrp.h"

#include <algorithm>
#include <array>
#include <string>

#include "vswitch/base/clock.h"
#include "vswitch/frames/frame.h"
#include "vswitch/frames/registrars.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : size_t { GARP_VLANS = 300 /* in one PDU */ };
enum : uint64_t { VLAN_GROUP = 0x0180C2000021 };

static const AttributeSizes sizes = {2, 0}; /* VLANs are type 1 */

struct Registrar : RegistrarTimes {
    VlanBits declared;                 /* the VLANs that the port declared last */
    VlanBits leaving;                  /* registrations that end, unless the neighbour joins again */
    std::array<uint64_t, 4096> ends{}; /* when they end */
};
static Registrars<Registrar> registrars;

/* Begins and ends with the protocols, and with neighbours. */
static void update()
{
    for (uint32_t port : updateRegistrars({GVRP, MVRP}, &registrars))
        neighbourHasGone(port);
}

/* Receiving */

/* A PDU that is being read. What its events need is computed once: there can be thousands of them. */
struct Reception {
    RegistrationProtocol protocol;
    uint32_t port;
    Registrar *registrar;
    VlanBits registrable;
    uint64_t now;
};

static Reception receptionOn(RegistrationProtocol protocol, uint32_t port)
{
    return {protocol, port, &registrars[{protocol, port}], registrableVlans(port), uptimeMillis()};
}

static void join(const Reception &pdu, uint32_t vlan)
{
    if (vlan < 1 || vlan > HIGHEST_VLAN)
        return;
    pdu.registrar->leaving.reset(vlan);
    if (!pdu.registrable[vlan])
        countRegistration(pdu.protocol, pdu.port, MRP_REGISTRATION_FAILED);
    neighbourDeclares(pdu.port, vlan, true);
}

static void leave(const Reception &pdu, uint32_t vlan)
{
    if (vlan > HIGHEST_VLAN || !declaredVlans(pdu.port)[vlan] || pdu.registrar->leaving[vlan])
        return;
    pdu.registrar->leaving.set(vlan);
    pdu.registrar->ends[vlan] = pdu.now + leaveMillis(pdu.port);
}

static void leaveAll(const Reception &pdu)
{
    Registrar *registrar = pdu.registrar;
    const VlanBits staying = declaredVlans(pdu.port) & ~registrar->leaving;
    for (uint32_t vlan = vlanAfter(staying, 0); vlan <= HIGHEST_VLAN; vlan = vlanAfter(staying, vlan))
        leave(pdu, vlan);
    registrar->nextLeaveAll = pdu.now + leaveAllMillis(pdu.protocol, pdu.port);
    registrar->nextJoin = 0; /* at once */
}

bool handleRegistration(uint32_t port, std::string_view frame)
{
    bool mvrp = numberAt(frame, 0, 2) == TYPE_MVRP;
    RegistrationProtocol protocol = mvrp ? MVRP : GVRP;
    if (!registrationRuns(protocol, port))
        return false;
    update();
    const Reception reception = receptionOn(protocol, port);
    auto handle = [&](RegistrationEvent event, size_t, uint64_t vlan) {
        if (event == ALL_LEAVE)
            leaveAll(reception);
        else
            (event == ATTRIBUTE_JOINS ? join : leave)(reception, (uint32_t)vlan);
    };
    if (mvrp)
        countRegistration(MVRP, port, readMrpPdu(frame.substr(2), sizes, handle));
    else if (readGarpPdu(frame, sizes, handle))
        countRegistration(GVRP, port, MRP_RECEIVED);
    else
        return false;
    bringUpToNow();
    return true;
}

/* Sending */

/* The VLANs that the port has by configuration, and those that neighbours registered on other ports. */
static VlanBits declarations(uint32_t port)
{
    VlanBits vlans;
    for (uint32_t other = nextPlugged(MANAGEMENT_PORT); other != UINT32_MAX; other = nextPlugged(other))
        if (other != port)
            vlans |= registeredVlans(other);
    vlans &= registrableVlans(port);
    const VlanBits &configured = configuredVlans();
    for (uint32_t vlan = vlanAfter(configured, 0); vlan <= HIGHEST_VLAN; vlan = vlanAfter(configured, vlan))
        if (portInVlan(port, vlan) && !isAdded(port, vlan))
            vlans.set(vlan);
    return vlans;
}

/* MVRP names all VLANs in one vector. */
static void sendVlans(RegistrationProtocol protocol, uint32_t port, const VlanBits &joined, const VlanBits &left,
                      bool all)
{
    Declarations vlans = {1, sizes.first, HIGHEST_VLAN, all, {}};
    auto flush = [&] {
        std::string pdu = protocol == MVRP ? mrpPdu(TYPE_MVRP, {vlans}) : garpPdu({vlans});
        sendRegistrationPdu(protocol, port, VLAN_GROUP, 0, pdu);
        vlans.all = false;
        vlans.values.clear();
    };
    const VlanBits named = joined | left;
    for (uint32_t vlan = vlanAfter(named, 0); vlan <= HIGHEST_VLAN; vlan = vlanAfter(named, vlan)) {
        vlans.values.push_back({vlan, joined[vlan]});
        if (protocol == GVRP && vlans.values.size() == GARP_VLANS)
            flush();
    }
    if (protocol == MVRP || all || !vlans.values.empty())
        flush();
}

static void endRegistrations(uint32_t port, Registrar *registrar, uint64_t now)
{
    VlanBits *leaving = &registrar->leaving;
    for (uint32_t vlan = vlanAfter(*leaving, 0); vlan <= HIGHEST_VLAN; vlan = vlanAfter(*leaving, vlan))
        if (registrar->ends[vlan] <= now) {
            leaving->reset(vlan);
            neighbourDeclares(port, vlan, false);
        }
    bringUpToNow(); /* what a port declares depends on what has left */
}

/* What is declared is computed only after a change. */
static void advanceRegistrar(RegistrationProtocol protocol, uint32_t port, Registrar *registrar, uint64_t now)
{
    endRegistrations(port, registrar, now);
    bool all = registrar->nextLeaveAll <= now;
    if (all)
        leaveAll(receptionOn(protocol, port));
    if (registrar->declaredAt == changeNumber() && now < registrar->nextJoin)
        return;
    registrar->declaredAt = changeNumber();
    const VlanBits vlans = declarations(port), left = registrar->declared & ~vlans;
    if (vlans == registrar->declared && now < registrar->nextJoin)
        return;
    sendVlans(protocol, port, vlans, left, all);
    registrar->declared = vlans;
    registrar->nextJoin = registrationIsPeriodic(protocol) ? now + 1000 : UINT64_MAX;
}

void sendDueRegistrations()
{
    update();
    bringUpToNow();
    for (auto &[key, registrar] : registrars)
        advanceRegistrar(key.first, key.second, &registrar, uptimeMillis());
    bringUpToNow();
}

void resetMrp()
{
    registrars.clear();
}
