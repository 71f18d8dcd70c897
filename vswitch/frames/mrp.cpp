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
#include <map>
#include <string>
#include <utility>

#include "vswitch/base/clock.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : uint32_t { TYPE_MVRP = 0x88F5, ATTRIBUTE_VLAN = 1, FIRST_HEADER_LEAVE_ALL = 0x2000, HEADER_VALUES = 0x1FFF };
enum MrpEvent : uint32_t { MRP_NEW, MRP_JOIN_IN, MRP_IN, MRP_JOIN_EMPTY, MRP_EMPTY, MRP_LEAVE };
enum GarpEvent : uint32_t { GARP_LEAVE_ALL, GARP_JOIN_EMPTY, GARP_JOIN_IN, GARP_LEAVE_EMPTY, GARP_LEAVE_IN };
enum : size_t { GARP_VLANS = 300 /* in one PDU */ };

static const std::string_view llcHeader("\x42\x42\x03\x00\x01", 5); /* the SAPs of spanning tree, protocol 1 */
static const std::string_view group("\x01\x80\xC2\x00\x00\x21", 6);

/* Times are milliseconds of uptime. */
struct Registrar {
    VlanBits declared;                 /* what the port declared to the neighbour last */
    uint64_t declaredAt = 0;           /* the changeNumber() at that time */
    VlanBits leaving;                  /* registrations that end, unless the neighbour joins again */
    std::array<uint64_t, 4096> ends{}; /* when they end */
    uint64_t nextLeaveAll = 0, nextJoin = 0;
};
static std::map<std::pair<RegistrationProtocol, uint32_t>, Registrar> registrars; /* where a protocol runs */

static uint64_t leaveMillis(uint32_t port)
{
    return 10ull * garpTimers(port).leave;
}

static uint64_t leaveAllMillis(RegistrationProtocol protocol, uint32_t port)
{
    return protocol == GVRP ? 10ull * garpTimers(port).leaveAll : 10000;
}

/* Receiving */

/* A PDU that is being read, and what its events need: a PDU can have thousands of them. */
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

/* Takes a big-endian number off the front; bytes beyond the end are left out. */
static uint32_t takeNumber(std::string_view *from, size_t size)
{
    uint32_t number = (uint32_t)numberAt(*from, 0, size);
    from->remove_prefix(std::min(size, from->size()));
    return number;
}

/* Reads a list of vectors, with three events in a byte. False: it is malformed. The PDU may end without end marks. */
static bool readVectors(const Reception &reception, std::string_view *pdu)
{
    while (pdu->size() >= 4) {
        uint32_t header = takeNumber(pdu, 2);
        if (!header)
            return true; /* the end mark */
        uint32_t first = takeNumber(pdu, 2), values = header & HEADER_VALUES, packed = 0;
        if (pdu->size() < (values + 2) / 3)
            return false;
        if (header & FIRST_HEADER_LEAVE_ALL)
            leaveAll(reception);
        for (uint32_t i = 0; i < values; i++) {
            static const uint32_t place[] = {36, 6, 1};
            packed = i % 3 ? packed : takeNumber(pdu, 1);
            uint32_t event = packed / place[i % 3] % 6;
            if (event == MRP_NEW || event == MRP_JOIN_IN || event == MRP_JOIN_EMPTY)
                join(reception, first + i);
            else if (event == MRP_LEAVE)
                leave(reception, first + i);
        }
    }
    return pdu->size() < 2 || takeNumber(pdu, 2) == 0;
}

/* Skips the vectors of an attribute that this version does not know. */
static bool skipVectors(size_t attributeLength, std::string_view *pdu)
{
    while (pdu->size() >= 2) {
        uint32_t header = takeNumber(pdu, 2);
        size_t length = attributeLength + ((header & HEADER_VALUES) + 2) / 3;
        if (!header)
            return true;
        if (pdu->size() < length)
            return false;
        pdu->remove_prefix(length);
    }
    return true;
}

/* A PDU of a newer version is read like one of this version: what is unknown in it has no effect. */
static MrpCounter readMvrp(uint32_t port, std::string_view pdu)
{
    if (pdu.empty())
        return MRP_BAD_HEADER;
    takeNumber(&pdu, 1); /* the version */
    const Reception reception = receptionOn(MVRP, port);
    while (pdu.size() >= 2) {
        uint32_t type = takeNumber(&pdu, 1), length = takeNumber(&pdu, 1);
        if (!type)
            break; /* the end mark */
        if (type == ATTRIBUTE_VLAN && length != 2)
            return MRP_BAD_FORMAT;
        if (!(type == ATTRIBUTE_VLAN ? readVectors(reception, &pdu) : skipVectors(length, &pdu)))
            return MRP_BAD_FORMAT;
    }
    return MRP_RECEIVED;
}

static void readGvrp(uint32_t port, std::string_view pdu)
{
    if (takeNumber(&pdu, 1) != ATTRIBUTE_VLAN)
        return;
    const Reception reception = receptionOn(GVRP, port);
    while (pdu.size() >= 2 && (unsigned char)pdu[0] >= 2) {
        std::string_view attribute = pdu.substr(0, (unsigned char)pdu[0]);
        pdu.remove_prefix(attribute.size());
        takeNumber(&attribute, 1);
        uint32_t event = takeNumber(&attribute, 1), vlan = takeNumber(&attribute, 2);
        if (event == GARP_LEAVE_ALL)
            leaveAll(reception);
        else if (event == GARP_JOIN_EMPTY || event == GARP_JOIN_IN)
            join(reception, vlan);
        else if (event == GARP_LEAVE_EMPTY || event == GARP_LEAVE_IN)
            leave(reception, vlan);
    }
}

bool handleRegistration(uint32_t port, std::string_view frame)
{
    std::string_view pdu = frame;
    uint32_t type = takeNumber(&pdu, 2);
    if (type == TYPE_MVRP && registrationRuns(MVRP, port)) {
        countRegistration(MVRP, port, readMvrp(port, pdu));
    } else if (pdu.starts_with(llcHeader) && registrationRuns(GVRP, port)) {
        readGvrp(port, pdu.substr(llcHeader.size(), type - std::min<size_t>(type, llcHeader.size())));
        countRegistration(GVRP, port, MRP_RECEIVED);
    } else {
        return false;
    }
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

/* A PDU with one vector from the first VLAN to the last. VLANs between that are in neither set are MRP_EMPTY. */
static std::string mvrpPdu(const VlanBits &joined, const VlanBits &left, bool all)
{
    const VlanBits named = joined | left;
    uint32_t first = named.any() ? vlanAfter(named, 0) : 0, last = HIGHEST_VLAN;
    while (last && !named[last])
        last--;
    uint32_t values = last ? last - first + 1 : 0;
    std::string pdu;
    putNumber(&pdu, 0, 1); /* the version */
    putNumber(&pdu, ATTRIBUTE_VLAN << 8 | 2, 2);
    putNumber(&pdu, values | (all ? (uint32_t)FIRST_HEADER_LEAVE_ALL : 0), 2);
    putNumber(&pdu, first, 2);
    auto eventOf = [&](uint32_t i) -> uint32_t {
        if (i >= values)
            return 0;
        return joined[first + i] ? MRP_JOIN_IN : left[first + i] ? MRP_LEAVE : MRP_EMPTY;
    };
    for (uint32_t i = 0; i < values; i += 3)
        putNumber(&pdu, eventOf(i) * 36 + eventOf(i + 1) * 6 + eventOf(i + 2), 1);
    putNumber(&pdu, 0, 4); /* the end marks of the vectors and of the attributes */
    return pdu;
}

static void sendPdu(RegistrationProtocol protocol, uint32_t port, uint32_t type, const std::string &pdu)
{
    std::string addresses(group), rest;
    putNumber(&addresses, (uint32_t)(bridgeMac() >> 32), 2);
    putNumber(&addresses, (uint32_t)bridgeMac(), 4);
    putNumber(&rest, type, 2);
    rest += pdu;
    rest.resize(std::max<size_t>(rest.size(), SHORTEST_REST));
    bool sent = sendFrame(port, {addresses, false, 0, rest});
    countRegistration(protocol, port, sent ? MRP_SENT : MRP_SEND_FAILED);
}

static void sendGvrp(uint32_t port, const VlanBits &joined, const VlanBits &left, bool all)
{
    std::string attributes;
    if (all)
        putNumber(&attributes, 2 << 8 | GARP_LEAVE_ALL, 2);
    auto flush = [&] {
        std::string pdu(llcHeader);
        putNumber(&pdu, ATTRIBUTE_VLAN, 1);
        pdu += attributes + std::string(2, '\0');
        sendPdu(GVRP, port, (uint32_t)pdu.size(), pdu);
        attributes.clear();
    };
    for (const auto &[vlans, event] : {std::pair(&joined, GARP_JOIN_IN), std::pair(&left, GARP_LEAVE_EMPTY)})
        for (uint32_t vlan = vlanAfter(*vlans, 0); vlan <= HIGHEST_VLAN; vlan = vlanAfter(*vlans, vlan)) {
            putNumber(&attributes, 4 << 8 | event, 2);
            putNumber(&attributes, vlan, 2);
            if (attributes.size() >= 4 * GARP_VLANS)
                flush();
        }
    if (!attributes.empty())
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
    if (protocol == MVRP)
        sendPdu(MVRP, port, TYPE_MVRP, mvrpPdu(vlans, left, all));
    else
        sendGvrp(port, vlans, left, all);
    registrar->declared = vlans;
    registrar->nextJoin = protocol == MVRP && mvrpIsPeriodic() ? now + 1000 : UINT64_MAX;
}

void sendDueRegistrations()
{
    uint64_t now = uptimeMillis();
    for (uint32_t port = nextPlugged(MANAGEMENT_PORT); port != UINT32_MAX; port = nextPlugged(port))
        for (RegistrationProtocol protocol : {GVRP, MVRP}) {
            if (!registrationRuns(protocol, port)) {
                if (registrars.erase({protocol, port}) && !registrars.contains({protocol == GVRP ? MVRP : GVRP, port}))
                    neighbourHasGone(port);
                bringUpToNow();
                continue;
            }
            auto [place, isNew] = registrars.try_emplace({protocol, port});
            if (isNew)
                place->second.nextLeaveAll = now + leaveAllMillis(protocol, port);
            advanceRegistrar(protocol, port, &place->second, now);
        }
    bringUpToNow();
}

void resetMrp()
{
    registrars.clear();
}
