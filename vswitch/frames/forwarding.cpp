/*
 * forwarding.cpp - the way of a frame through the switch. README.md has its steps, DECISIONS.md the reasons. Each
 * frame asks state.h what is in force. The only state here is what frames leave behind: the buckets of storm control.
 */
#include "vswitch/frames/forwarding.h"

#include <algorithm>
#include <map>

#include "vswitch/base/clock.h"
#include "vswitch/frames/frame.h"
#include "vswitch/frames/groups.h"
#include "vswitch/frames/mrp.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/frames/probes.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : uint32_t { TYPE_IPV4 = 0x0800, TYPE_VLAN = 0x8100 };
enum : uint32_t { MANAGEMENT_VLAN = 1 };
enum : uint64_t { VLAN_REGISTRATION = 0x0180C2000021, GROUP_REGISTRATION = 0x0180C2000020 };

/* What becomes of a frame. */
enum Fate { FORWARDED, ENDED /* at the switch */, DISCARDED };

/* Where the reason goes if the current frame is not forwarded; null: the caller does not need it. */
static std::string *reason;

template <class T> static void append(std::string *to, const T &part)
{
    if constexpr (std::is_arithmetic_v<T>)
        to->append(std::to_string(part));
    else
        to->append(part);
}

/* Sets the reason, in case the frame is not forwarded. Joins texts and numbers, but only if the caller needs it. */
template <class... T> static void explain(const T &...parts)
{
    if (!reason)
        return;
    reason->clear();
    (append(reason, parts), ...);
}

/* The frame is discarded for this reason. Returns false. */
template <class... T> static bool discard(const T &...parts)
{
    explain(parts...);
    return false;
}

/* Parsing */

static uint16_t defaultPriority(uint32_t port)
{
    return port == MANAGEMENT_PORT ? 0 : (uint16_t)(untaggedPriority(port) << 13);
}

static bool readFrame(uint32_t port, std::string_view bytes, Frame *frame)
{
    if (bytes.size() < ETHERNET_HEADER)
        return discard("a frame of ", bytes.size(), " bytes");
    uint32_t type = (uint32_t)numberAt(bytes, 12, 2);
    bool hasTag = type == TYPE_VLAN && bytes.size() >= ETHERNET_HEADER + VLAN_TAG;
    if (type == TYPE_VLAN && !hasTag)
        return discard("a tag that is cut off");
    uint32_t tag = hasTag ? (uint32_t)numberAt(bytes, 14, 2) : 0;
    std::string_view rest = bytes.substr(hasTag ? 16 : 12);
    *frame = {port,
              bytes,
              numberAt(bytes, 0, 6),
              numberAt(bytes, 6, 6),
              (tag & 0xFFF) != 0,
              hasTag ? (uint16_t)(tag & 0xF000) : defaultPriority(port),
              tag & 0xFFF,
              hasTag ? (uint32_t)numberAt(rest, 0, 2) : type,
              rest};
    return true;
}

static bool fitsPort(const Frame &frame)
{
    size_t longest = FRAME_MAX + (frame.rest.size() + 12 == frame.bytes.size() ? 0 : (size_t)VLAN_TAG);
    if (frame.bytes.size() <= longest)
        return true;
    if (frame.port != MANAGEMENT_PORT)
        countersOf(frame.port).tooLong++;
    return discard("a frame of ", frame.bytes.size(), " bytes; the port takes ", longest);
}

static bool hasGoodSource(const Frame &frame)
{
    if (frame.source == bridgeMac() && frame.port != MANAGEMENT_PORT)
        return discard("its source is the switch's own address");
    if (isGroup(frame.source) || frame.source == 0)
        return discard(macText(frame.source), " is not a valid source");
    return true;
}

/* Admission to a VLAN */

static void prioritise(Frame *frame)
{
    VoipSource voip = voipSource(frame->port, frame->source);
    if (voip.recognised)
        frame->priority = (uint16_t)(voip.priority << 13);
    else if (voiceOverridesPriority(frame->port) && frame->vlan != voiceVlan(frame->port))
        frame->priority = defaultPriority(frame->port);
}

static bool enterManagementVlan(Frame *frame)
{
    frame->vlan = MANAGEMENT_VLAN;
    return !frame->tagged || discard("tagged frames are not accepted");
}

static bool enterVlan(Frame *frame)
{
    if (frame->port == MANAGEMENT_PORT)
        return enterManagementVlan(frame);
    Arrival arrival = {frame->port, frame->vlan, frame->source, frame->type};
    Admission admission = admit(arrival);
    if (admission.verdict != ADMITTED)
        return reason && discard(refusalText(arrival, admission));
    frame->vlan = admission.vlan;
    prioritise(frame);
    return true;
}

/* Finds an address in the VLAN, or in all VLANs of the same private VLAN: the entry that was heard last. */
static const FdbEntry *whereIs(uint32_t vlan, uint64_t mac)
{
    const FdbEntry *found = fdbFind(vlan, mac);
    PrivateVlanType type = privateVlanType(vlan);
    uint32_t primary = type == PRIVATE_PRIMARY ? vlan : primaryVlan(vlan);
    if (type == PRIVATE_NONE || !primary)
        return found;
    auto lookIn = [&](uint32_t other) {
        const FdbEntry *entry = fdbFind(other, mac);
        if (entry && (!found || entry->learning > found->learning))
            found = entry;
    };
    lookIn(primary);
    for (uint32_t secondary : secondaryVlans(primary))
        lookIn(secondary);
    return found;
}

/* Storm control: a token bucket for each port and kind of traffic. It holds the packets of one second. */

struct Bucket {
    double packets;
    uint64_t filled; /* the last time, in milliseconds of uptime */
};
static std::map<std::pair<uint32_t, uint32_t>, Bucket> buckets;

static bool passesStormControl(const Frame &frame, bool known)
{
    static const char *const kinds[] = {"", "unicast", "broadcast", "multicast"};
    StormKind kind = frame.destination == BROADCAST ? STORM_BROADCAST
                     : isGroup(frame.destination)   ? STORM_MULTICAST
                                                    : STORM_UNICAST;
    if (frame.port == MANAGEMENT_PORT || (kind == STORM_UNICAST && known))
        return true;
    StormLimit limit = stormLimit(frame.port, kind);
    if (limit.packetsPerSecond == UINT64_MAX) {
        buckets.erase({frame.port, kind});
        return true;
    }
    uint64_t now = uptimeMillis();
    double most = (double)limit.packetsPerSecond;
    Bucket &bucket = buckets.try_emplace({frame.port, kind}, Bucket{most, now}).first->second;
    bucket.packets = std::min(most, bucket.packets + most * (double)(now - bucket.filled) / 1000);
    bucket.filled = now;
    if (bucket.packets >= 1) {
        bucket.packets -= 1;
        return true;
    }
    stormExceeded(frame.port, kind);
    return discard(kinds[kind], " storm: more than ", limit.packetsPerSecond, " packets a second");
}

/* Egress */

/* A frame that loses its tag and gets too short for Ethernet is padded. */
static void send(const Frame &frame, uint32_t port, bool tagged, uint32_t vlan)
{
    OutgoingFrame out = {frame.bytes.substr(0, 12), tagged, (uint16_t)(frame.priority | vlan), frame.rest};
    bool losesTag = !tagged && frame.rest.size() + 12 < frame.bytes.size();
    std::string padded;
    if (losesTag && frame.rest.size() < SHORTEST_REST) {
        padded = frame.rest;
        padded.resize(SHORTEST_REST);
        out.rest = padded;
    }
    sendFrame(port, out);
}

static bool leavesPort(const Frame &frame, uint32_t port)
{
    uint32_t vlan = egressVlan(frame.port, frame.vlan, port);
    if (!vlan && privateVlanType(frame.vlan) == PRIVATE_NONE)
        return false; /* stores no reason: most ports of a flood are not in the VLAN */
    if (!vlan)
        return discard("port ", port, " is separated from private VLAN ", frame.vlan);
    if (areProtected(port, frame.port))
        return discard("port ", port, " is in the same protected group");
    if (!portIsUp(port))
        return discard("port ", port, " is ", portStatusText(port));
    send(frame, port, portTags(port, vlan), vlan);
    return true;
}

/* Does the active access list permit the frame to the management port? */
static bool isPermitted(const Frame &frame)
{
    std::string_view packet = frame.rest.substr(2);
    size_t header = packet.empty() ? 0 : 4 * (size_t)(packet[0] & 0xF);
    if (frame.type != TYPE_IPV4 || header < 20 || packet.size() < header)
        return true;
    ManagementPacket asked = {frame.port, frame.vlan, 0, false, 0, (uint32_t)frame.bytes.size()};
    std::copy_n(packet.data() + 12, 4, (char *)&asked.source);
    bool first = (numberAt(packet, 6, 2) & 0x1FFF) == 0; /* later fragments have no ports */
    asked.tcpOrUdp = (packet[9] == 6 || packet[9] == 17) && first && packet.size() >= header + 4;
    if (asked.tcpOrUdp)
        asked.destinationPort = (uint32_t)numberAt(packet, header + 2, 2);
    return managementPermits(asked) || discard("the access list does not permit it");
}

static bool leavesToManagement(const Frame &frame)
{
    if (!managementHasHost() || frame.vlan != MANAGEMENT_VLAN || !isPermitted(frame))
        return false;
    send(frame, MANAGEMENT_PORT, false, 0);
    return true;
}

/* Sends to `ports` (null: all ports, and groups to the management port too), except the source port and `never`. */
static bool flood(const Frame &frame, const PortSet *ports, const PortSet *never)
{
    bool left = false;
    for (uint32_t port = nextPlugged(UINT32_MAX); port != UINT32_MAX; port = nextPlugged(port)) {
        if (port == frame.port || (never && never->contains(port)))
            continue;
        if (port == MANAGEMENT_PORT)
            left |= !ports && isGroup(frame.destination) && leavesToManagement(frame);
        else if (!ports || ports->contains(port))
            left |= leavesPort(frame, port);
    }
    return left;
}

static bool forward(const Frame &frame, const FdbEntry *known)
{
    Reach reach = reachOf(frame.port, frame.vlan, frame.destination);
    if (reach.verdict)
        return reason && discard(refusalText(reach, frame.vlan, frame.destination));
    if (reach.anywhere)
        explain("no other port is in VLAN ", frame.vlan); /* a port may store a more exact reason */
    else
        explain("no other port is a member of ", macText(frame.destination));
    if (!reach.anywhere || isGroup(frame.destination))
        return flood(frame, reach.anywhere ? nullptr : &reach.ports, reach.never);
    if (frame.destination == bridgeMac()) {
        explain("management is not in VLAN ", frame.vlan);
        return frame.port != MANAGEMENT_PORT && leavesToManagement(frame);
    }
    if (!known || known->port == MANAGEMENT_PORT)
        return flood(frame, nullptr, reach.never);
    if (known->port == frame.port)
        return discard(macText(frame.destination), " is on the same port");
    if (!reach.contains(known->port))
        return discard("the filter of ", macText(frame.destination), " keeps it from port ", known->port);
    explain("port ", known->port, " is not in VLAN ", frame.vlan);
    return leavesPort(frame, known->port);
}

void resetForwarding()
{
    buckets.clear();
}

/* Ends a frame that is for the switch itself. `what` says what it is. */
static Fate end(const char *what)
{
    explain("it ends at the switch: ", what);
    return ENDED;
}

/* The group addresses that no bridge forwards. */
static Fate endReserved(uint64_t group)
{
    static const std::map<uint64_t, const char *> names = {
        {0x0, "spanning tree"}, {0x1, "PAUSE"}, {0x2, "LACP"}, {0x3, "EAPOL"}, {0xE, "LLDP"}};
    return end(valueIn(names, group & 0xF, macText(group).c_str()));
}

/* The whole way of a frame. */
static Fate forwardFrame(uint32_t port, std::string_view bytes)
{
    Frame frame;
    if (port != MANAGEMENT_PORT && !portLearns(port))
        return discard("it is ", portStatusText(port)), DISCARDED;
    if (!readFrame(port, bytes, &frame) || !fitsPort(frame))
        return DISCARDED;
    if ((frame.destination & ~0xFull) == 0x0180C2000000)
        return endReserved(frame.destination);
    if (handleProbe(frame))
        return end("a detection frame");
    if (!hasGoodSource(frame))
        return DISCARDED;
    if (frame.destination == VLAN_REGISTRATION && port != MANAGEMENT_PORT && handleRegistration(port, frame.rest))
        return end("a registration PDU");
    if (!enterVlan(&frame))
        return DISCARDED;
    if (frame.destination == GROUP_REGISTRATION && port != MANAGEMENT_PORT &&
        handleGroupRegistration(port, frame.vlan, frame.rest))
        return end("a registration PDU");
    const FdbEntry *known = whereIs(frame.vlan, frame.destination);
    if (!passesStormControl(frame, known))
        return DISCARDED;
    if (port != MANAGEMENT_PORT && fdbLearn(frame.vlan, frame.source, port))
        known = whereIs(frame.vlan, frame.destination); /* the table has changed */
    if (port != MANAGEMENT_PORT && !portIsUp(port))
        return discard("it is ", portStatusText(port)), DISCARDED;
    return forward(frame, known) ? FORWARDED : DISCARDED;
}

void receiveFrame(uint32_t port, std::string_view frame, std::string *why)
{
    std::string explanation;
    reason = why ? &explanation : nullptr;
    Fate fate = forwardFrame(port, frame);
    reason = nullptr;
    if (port != MANAGEMENT_PORT) {
        countersOf(port).inFrames++;
        if (fate == DISCARDED)
            countersOf(port).inDiscards++;
    }
    if (fate != FORWARDED && why)
        *why = explanation;
}
