/*
 * admission.cpp - may a frame enter the switch, and in which VLAN? On which ports may it leave? Real frames, simulated
 * stations and storms ask the same functions.
 */
#include "vswitch/switch/state.h"

static uint32_t vlanOfUntagged(const Arrival &frame)
{
    uint32_t vlan = 0;
    if (!modeDecides(frame.port)) {
        vlan = vlanOfSource(frame.source);
        if (!vlan)
            vlan = voipSource(frame.port, frame.source).vlan;
        if (!vlan)
            vlan = vlanOfProtocol(frame.port, frame.etherType);
    }
    return vlan ? vlan : portPvid(frame.port);
}

/* In a private VLAN, a host sends in its secondary VLAN and a promiscuous port in the primary one. 0: in any. */
static uint32_t privateVlanOf(uint32_t port, uint32_t vlan)
{
    const PrivatePort *association = privatePort(port);
    if (!association || privateVlanType(vlan) == PRIVATE_NONE)
        return 0;
    return association->role == HOST ? *association->secondaries.begin() : association->primary;
}

Admission admit(const Arrival &frame)
{
    if (!portLearns(frame.port))
        return {PORT_IS_DOWN, 0};
    AcceptedFrames accepted = acceptedFrames(frame.port);
    if (frame.tag ? accepted == ACCEPT_UNTAGGED : accepted == ACCEPT_TAGGED)
        return {TYPE_NOT_ACCEPTED, 0};
    uint32_t vlan = frame.tag ? frame.tag : vlanOfUntagged(frame);
    if (!vlanExists(vlan))
        return {VLAN_MISSING, vlan};
    if (filtersIngress(frame.port) && !portInVlan(frame.port, vlan))
        return {INGRESS_FILTERED, vlan};
    uint32_t only = privateVlanOf(frame.port, vlan);
    return {only && only != vlan ? OTHER_PRIVATE_VLAN : ADMITTED, vlan};
}

std::string refusalText(const Arrival &frame, const Admission &admission)
{
    std::string vlan = std::to_string(admission.vlan);
    switch (admission.verdict) {
    case PORT_IS_DOWN:
        return std::string("it is ") + portStatusText(frame.port);
    case TYPE_NOT_ACCEPTED:
        return std::string(frame.tag ? "tagged" : "untagged") + " frames are not accepted";
    case VLAN_MISSING:
        return "VLAN " + vlan + " does not exist";
    case INGRESS_FILTERED:
        return "VLAN " + vlan + " not admitted: ingress filtering";
    case OTHER_PRIVATE_VLAN:
        return "private VLAN " + vlan + " not admitted: the port sends in VLAN " +
               std::to_string(privateVlanOf(frame.port, admission.vlan));
    case ADMITTED:
        break;
    }
    return "";
}

uint32_t egressVlan(uint32_t from, uint32_t vlan, uint32_t to)
{
    const PrivatePort *association = privatePort(to);
    PrivateVlanType type = association ? privateVlanType(vlan) : PRIVATE_NONE;
    if (type == PRIVATE_NONE)
        return portInVlan(to, vlan) ? vlan : 0;
    if (association->role == PROMISCUOUS) {
        bool carries = vlan == association->primary || association->secondaries.contains((uint16_t)vlan);
        return carries ? association->primary : 0;
    }
    uint16_t secondary = *association->secondaries.begin();
    const PrivatePort *sender = privatePort(from);
    if (vlan == association->primary)
        return !sender || sender->secondaries.contains(secondary) ? secondary : 0;
    return vlan == secondary && type == PRIVATE_COMMUNITY ? secondary : 0;
}

static void addPorts(PortSet *to, const PortSet &ports)
{
    to->insert(ports.begin(), ports.end());
}

/* In a private VLAN, members of a group can be in any of its VLANs. */
static PortSet membersOf(uint32_t vlan, uint64_t group)
{
    PortSet members = groupPorts({vlan, group});
    uint32_t primary = privateVlanType(vlan) == PRIVATE_PRIMARY ? vlan : primaryVlan(vlan);
    if (!primary)
        return members;
    addPorts(&members, groupPorts({primary, group}));
    for (uint32_t secondary : secondaryVlans(primary))
        addPorts(&members, groupPorts({secondary, group}));
    return members;
}

/* What the filtering mode says of a group. `named`: a filter names it, and can have set reach->ports. */
static void addMembers(uint32_t vlan, uint64_t group, bool named, Reach *reach)
{
    FilteringMode mode = filteringMode(vlan);
    PortSet members = membersOf(vlan, group);
    if (reach->anywhere && (mode == FORWARD_ALL || (members.empty() && (named || mode == FORWARD_UNREGISTERED))))
        return;
    if (reach->anywhere && members.empty())
        addPorts(&members, membersOf(vlan, UNREGISTERED_GROUPS));
    reach->anywhere = false;
    addPorts(&reach->ports, members);
    addPorts(&reach->ports, membersOf(vlan, ALL_GROUPS));
    if (reach->ports.empty())
        reach->verdict = Reach::NOT_REGISTERED;
}

Reach reachOf(uint32_t from, uint32_t vlan, uint64_t destination)
{
    Reach reach;
    const Filter *filter = filterFor(vlan, destination);
    if (uint32_t primary = filter ? 0 : primaryVlan(vlan))
        filter = filterFor(primary, destination);
    if (filter && !filter->sources.empty() && !filter->sources.contains(from))
        reach.verdict = Reach::SOURCE_NOT_NAMED;
    if (filter) {
        reach.anywhere = filter->destinations.empty();
        reach.ports = filter->destinations;
        reach.never = &filter->filtered;
    }
    if (!reach.verdict && isGroup(destination) && destination != BROADCAST)
        addMembers(vlan, destination, filter, &reach);
    return reach;
}

std::string refusalText(const Reach &reach, uint32_t vlan, uint64_t destination)
{
    if (reach.verdict == Reach::SOURCE_NOT_NAMED)
        return "the filter of " + macText(destination) + " does not name the port as source";
    return reach.verdict ? macText(destination) + " is not registered in VLAN " + std::to_string(vlan) : "";
}

bool areProtected(uint32_t port, uint32_t other)
{
    uint32_t group = protectedGroup(port);
    return group && group == protectedGroup(other);
}
