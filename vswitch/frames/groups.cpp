/*
 * groups.cpp - MMRP and GMRP (IEEE 802.1Q and 802.1D). Both register groups in the same way; only their PDUs differ.
 *
 * A PDU is about one VLAN, the one of its frame. The LeaveAll timer of a port is for all its VLANs. A port declares to
 * its neighbour the groups that neighbours on other ports of the VLAN joined.
 */
#include "vswitch/frames/groups.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vswitch/base/clock.h"
#include "vswitch/frames/frame.h"
#include "vswitch/frames/registrars.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : uint64_t { MULTICAST_GROUP = 0x0180C2000020 };
enum : size_t { ADDRESS = 6, SERVICE = 1 /* the bytes of a value */, PDU_GROUPS = 150 /* at most */ };

using Groups = std::vector<GroupKey>; /* ascending */

struct GroupRegistrar : RegistrarTimes {
    Groups declared;                      /* the groups that the port declared last */
    std::map<GroupKey, uint64_t> leaving; /* registrations that end at that time, unless the neighbour joins again */
    bool all = false;                     /* the next PDU is a LeaveAll */
};
static Registrars<GroupRegistrar> registrars;

/* Begins and ends with the protocols, and with neighbours. */
static void update()
{
    for (uint32_t port : updateRegistrars({GMRP, MMRP}, &registrars))
        withdrawGroups(port);
}

/* Receiving */

/* The group leaves, unless the neighbour joins it again. */
static void leave(uint32_t port, GroupRegistrar *registrar, const GroupKey &group)
{
    if (declaresGroup(port, group))
        registrar->leaving.insert({group, uptimeMillis() + leaveMillis(port)});
}

/* All groups of the VLAN leave, or all service requirements. */
static void leaveAll(uint32_t port, GroupRegistrar *registrar, uint32_t vlan, bool services)
{
    for (const GroupKey &group : declaredGroups(port))
        if (group.first == vlan && isGroup(group.second) != services)
            leave(port, registrar, group);
    registrar->nextJoin = 0; /* at once */
}

static void join(RegistrationProtocol protocol, uint32_t port, GroupRegistrar *registrar, const GroupKey &group)
{
    registrar->leaving.erase(group);
    if (!portInVlan(port, group.first) || !declareGroup(port, group))
        countRegistration(protocol, port, MRP_REGISTRATION_FAILED);
}

bool handleGroupRegistration(uint32_t port, uint32_t vlan, std::string_view frame)
{
    bool mmrp = numberAt(frame, 0, 2) == TYPE_MMRP;
    RegistrationProtocol protocol = mmrp ? MMRP : GMRP;
    if (!registrationRuns(protocol, port))
        return false;
    update();
    GroupRegistrar *registrar = &registrars[{protocol, port}];
    std::set<size_t> left; /* a PDU's second LeaveAll of a kind has no effect */
    auto handle = [&](RegistrationEvent event, size_t size, uint64_t value) {
        if (size == ADDRESS && !isGroup(value))
            value = BROADCAST; /* which is never registered */
        if (event == ATTRIBUTE_JOINS)
            join(protocol, port, registrar, {vlan, value});
        else if (event == ATTRIBUTE_LEAVES)
            leave(port, registrar, {vlan, value});
        else if (left.insert(size).second)
            leaveAll(port, registrar, vlan, size == SERVICE);
    };
    if (mmrp)
        countRegistration(MMRP, port, readMrpPdu(frame.substr(2), {SERVICE, ADDRESS}, handle));
    else if (readGarpPdu(frame, {ADDRESS, SERVICE}, handle))
        countRegistration(GMRP, port, MRP_RECEIVED);
    else
        return false;
    bringUpToNow();
    return true;
}

/* Sending */

/* The groups that neighbours on other ports have joined in the port's VLANs. */
static Groups declarations(uint32_t port, const std::vector<RegisteredGroup> &registered)
{
    Groups groups;
    uint32_t vlan = 0;
    bool inVlan = false;
    for (const auto &[group, first, second] : registered) {
        if (group.first != vlan)
            inVlan = portInVlan(port, group.first);
        vlan = group.first;
        if (inVlan && (first != port || second))
            groups.push_back(group);
    }
    return groups;
}

static Declarations messageOf(bool services, bool all, bool mmrp)
{
    size_t size = services ? SERVICE : ADDRESS;
    return {services == mmrp ? 1u : 2u, size, 3 * size, all, {}};
}

/* Sends the events of one VLAN, ascending. */
static void sendVlan(RegistrationProtocol protocol, uint32_t port, uint32_t vlan, bool all,
                     const std::vector<std::pair<uint64_t, bool>> &events)
{
    bool mmrp = protocol == MMRP;
    uint32_t tag = portTags(port, vlan) ? vlan : 0;
    for (size_t first = 0; !first || first < events.size(); first += PDU_GROUPS) {
        Declarations services = messageOf(true, all && !first, mmrp), groups = messageOf(false, all && !first, mmrp);
        for (size_t i = first; i < std::min(events.size(), first + PDU_GROUPS); i++)
            (isGroup(events[i].first) ? groups : services).values.push_back(events[i]);
        std::vector<Declarations> messages = {groups};
        if (services.all || !services.values.empty())
            messages.push_back(services);
        std::string pdu = mmrp ? mrpPdu(TYPE_MMRP, messages) : garpPdu(messages);
        sendRegistrationPdu(protocol, port, MULTICAST_GROUP, tag, pdu);
    }
}

/* LeaveAll goes out in each VLAN that has groups, or in the VLAN of untagged frames. */
static void sendGroups(RegistrationProtocol protocol, uint32_t port, const Groups &joined, const Groups &left, bool all)
{
    std::map<uint32_t, std::vector<std::pair<uint64_t, bool>>> events; /* by VLAN */
    Groups named;
    std::set_union(joined.begin(), joined.end(), left.begin(), left.end(), std::back_inserter(named));
    for (const GroupKey &group : named)
        events[group.first].push_back({group.second, std::binary_search(joined.begin(), joined.end(), group)});
    for (const auto &[group, ends] : registrars[{protocol, port}].leaving)
        if (all)
            events.try_emplace(group.first);
    if (events.empty())
        events.try_emplace(portPvid(port));
    for (const auto &[vlan, ofVlan] : events)
        if (portInVlan(port, vlan))
            sendVlan(protocol, port, vlan, all, ofVlan);
}

/* Ends the registrations that are due. Everything leaves with a LeaveAll, unless the neighbour joins again. */
static void endRegistrations(RegistrationProtocol protocol, uint32_t port, GroupRegistrar *registrar)
{
    uint64_t now = uptimeMillis();
    std::erase_if(registrar->leaving, [=](const auto &leaving) {
        if (leaving.second <= now)
            withdrawGroup(port, leaving.first);
        return leaving.second <= now;
    });
    registrar->all = registrar->nextLeaveAll <= now;
    if (!registrar->all)
        return;
    for (const GroupKey &group : declaredGroups(port))
        leave(port, registrar, group);
    registrar->nextLeaveAll = now + leaveAllMillis(protocol, port);
    registrar->nextJoin = 0;
}

/* What is declared is computed only after a change. */
static bool mayDeclare(const GroupRegistrar &registrar)
{
    return registrar.declaredAt != changeNumber() || uptimeMillis() >= registrar.nextJoin;
}

static void declare(RegistrationProtocol protocol, uint32_t port, GroupRegistrar *registrar,
                    const std::vector<RegisteredGroup> &registered)
{
    Groups groups = declarations(port, registered), left;
    std::set_difference(registrar->declared.begin(), registrar->declared.end(), groups.begin(), groups.end(),
                        std::back_inserter(left));
    registrar->declaredAt = changeNumber();
    if (groups == registrar->declared && uptimeMillis() < registrar->nextJoin)
        return;
    sendGroups(protocol, port, groups, left, registrar->all);
    registrar->declared = groups;
    registrar->nextJoin = registrationIsPeriodic(protocol) ? uptimeMillis() + 1000 : UINT64_MAX;
}

void sendDueGroupRegistrations()
{
    update();
    for (auto &[key, registrar] : registrars)
        endRegistrations(key.first, key.second, &registrar);
    bringUpToNow();
    if (std::none_of(registrars.begin(), registrars.end(), [](const auto &entry) { return mayDeclare(entry.second); }))
        return;
    const std::vector<RegisteredGroup> registered = registeredGroups();
    for (auto &[key, registrar] : registrars)
        if (mayDeclare(registrar))
            declare(key.first, key.second, &registrar, registered);
}

void resetGroupRegistrations()
{
    registrars.clear();
}
