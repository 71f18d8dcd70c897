/*
 * protected_ports.cpp - protected ports: the ports of one group exchange no frames.
 */
#include <map>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/port_list.h"
#include "vswitch/switch/state.h"

static const size_t GROUP_NAME_MAX = 32; /* bytes; an empty name: none */

static std::map<uint32_t, std::string> groupNames;
static std::set<std::pair<uint32_t, uint32_t>> memberships; /* port, group: the order of the walk */

static bool groupExists(uint32_t group)
{
    return PROTECTED_GROUP.contains(group);
}

static PortSet membersOf(uint32_t group)
{
    PortSet members;
    for (auto [port, ofGroup] : memberships)
        if (ofGroup == group)
            members.insert(port);
    return members;
}

uint32_t protectedGroup(uint32_t port)
{
    auto found = memberships.lower_bound({port, 0});
    return found != memberships.end() && found->first == port ? found->second : 0;
}

static int addMember(uint32_t port, uint32_t group)
{
    if (!interfaceExists(port) || !groupExists(group))
        return OPEN_BAD_ARGUMENT;
    if (uint32_t present = protectedGroup(port))
        return present == group ? OPEN_EXISTS : OPEN_FAILED;
    memberships.insert({port, group});
    return OPEN_OK;
}

static int removeMember(uint32_t port, uint32_t group)
{
    if (!interfaceExists(port) || !groupExists(group))
        return OPEN_BAD_ARGUMENT;
    return memberships.erase({port, group}) ? OPEN_OK : OPEN_FAILED;
}

static int nextMembership(uint32_t port, uint32_t group, uint32_t *nextMember, uint32_t *nextGroup)
{
    auto next = memberships.upper_bound({port, group});
    if (next == memberships.end())
        return OPEN_FAILED;
    *nextMember = next->first;
    return store(next->second, nextGroup);
}

static int setName(uint32_t group, OpenBufferDesc *name)
{
    std::string text = textOf(name);
    if (!groupExists(group) || text.size() > GROUP_NAME_MAX)
        return OPEN_BAD_ARGUMENT;
    groupNames[group] = text;
    return OPEN_OK;
}

void registerProtectedPorts()
{
    ASK(rpcclt_openapiProtectedPortMaxGroups,
        [](uint32_t *maxGroups) { return store(PROTECTED_GROUP.highest, maxGroups); });
    ASK(rpcclt_openapiProtectedPortGroupNameGet, [](uint32_t group, OpenBufferDesc *name) -> int {
        return groupExists(group) ? setText(name, valueIn(groupNames, group)) : OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiProtectedPortGroupNameSet, setName);
    ASK(rpcclt_openapiProtectedPortGroupIntfCountGet, [](uint32_t group, uint32_t *count) -> int {
        return groupExists(group) ? store((uint32_t)membersOf(group).size(), count) : OPEN_BAD_ARGUMENT;
    });
    /* Without ranges: the program's buffer has room for every member. */
    ASK(rpcclt_openapiProtectedPortGroupIntfListGet, [](uint32_t group, OpenBufferDesc *list) -> int {
        return groupExists(group) ? setText(list, portsSingly(membersOf(group))) : OPEN_BAD_ARGUMENT;
    });
    ASK(rpcclt_openapiProtectedPortGroupGet, [](uint32_t port, uint32_t *group) -> int {
        return interfaceExists(port) ? storeNext(protectedGroup(port), group) : OPEN_BAD_ARGUMENT;
    });
    ASK(rpcclt_openapiProtectedPortNextGroupGet, nextMembership);
    DO(rpcclt_openapiProtectedPortGroupIntfAdd, addMember);
    DO(rpcclt_openapiProtectedPortGroupIntfDelete, removeMember);
}

void resetProtectedPorts()
{
    groupNames.clear();
    memberships.clear();
}
