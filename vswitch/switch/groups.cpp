/*
 * groups.cpp - the group addresses that neighbours register by GMRP and MMRP: on which ports are members of a group?
 *
 * What a neighbour declared is kept by VLAN and address. It is in force while GMRP or MMRP runs on the port and the
 * port is in the VLAN.
 */
#include <algorithm>
#include <map>

#include "vswitch/switch/addresses.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/fdb.h"
#include "vswitch/switch/state.h"

static const size_t MAX_GROUPS = 1024;

static std::map<GroupKey, PortSet> declared;

bool groupIsRegistrable(uint64_t group)
{
    return group == ALL_GROUPS || group == UNREGISTERED_GROUPS || (isGroup(group) && !macRestricted(group));
}

bool declareGroup(uint32_t port, const GroupKey &group)
{
    auto found = declared.find(group);
    if (found == declared.end()) {
        if (!groupIsRegistrable(group.second) || declared.size() == MAX_GROUPS)
            return false;
        found = declared.insert({group, {}}).first;
    }
    if (found->second.insert(port).second)
        stateChanged();
    return true;
}

bool withdrawGroup(uint32_t port, const GroupKey &group)
{
    auto found = declared.find(group);
    if (found == declared.end() || !found->second.erase(port))
        return false;
    if (found->second.empty())
        declared.erase(found);
    stateChanged();
    return true;
}

bool declaresGroup(uint32_t port, const GroupKey &group)
{
    auto found = declared.find(group);
    return found != declared.end() && found->second.contains(port);
}

std::vector<GroupKey> declaredGroups(uint32_t port)
{
    std::vector<GroupKey> groups;
    for (const auto &[group, ports] : declared)
        if (ports.contains(port))
            groups.push_back(group);
    return groups;
}

void withdrawGroups(uint32_t port)
{
    for (const GroupKey &group : declaredGroups(port))
        withdrawGroup(port, group);
}

static bool isInForce(uint32_t port, uint32_t vlan)
{
    return (registrationRuns(GMRP, port) || registrationRuns(MMRP, port)) && portInVlan(port, vlan);
}

PortSet groupPorts(const GroupKey &group)
{
    PortSet ports = valueIn(declared, group);
    std::erase_if(ports, [=](uint32_t port) { return !isInForce(port, group.first); });
    return ports;
}

std::vector<RegisteredGroup> registeredGroups()
{
    std::vector<RegisteredGroup> groups;
    std::map<uint32_t, bool> inForce; /* by port, of `ofVlan` */
    uint32_t ofVlan = 0;
    for (const auto &[group, ports] : declared) {
        if (group.first != ofVlan)
            inForce.clear();
        ofVlan = group.first;
        RegisteredGroup found = {group, 0, 0};
        for (auto port = ports.begin(); port != ports.end() && !found.second; ++port) {
            auto [place, isNew] = inForce.try_emplace(*port);
            if (isNew)
                place->second = isInForce(*port, ofVlan);
            if (place->second)
                (found.first ? found.second : found.first) = *port;
        }
        if (found.first)
            groups.push_back(found);
    }
    return groups;
}

void addGroupEntries(std::map<GroupKey, FdbEntry> *entries)
{
    for (const RegisteredGroup &group : registeredGroups())
        if (isGroup(group.key.second))
            entries->insert({group.key, {group.first, FDB_GMRP_LEARNED, 0}});
}

void registerGroups()
{
    onVlanEnd([](uint32_t vlan) {
        declared.erase(declared.lower_bound({vlan, 0}), declared.lower_bound({vlan + 1, 0}));
    });
}

void resetGroups()
{
    declared.clear();
}
