/*
 * model_vlan_groups.cpp - the virtual switch's ways to find the VLAN of untagged traffic: by its source's address, by
 * the address' OUI (its first three octets), and by its protocol, in groups.
 */
#include <map>
#include <string>

#include "model.h"
#include "model_vlan.h"
#include "operations.h"

/* By MAC address, and by OUI; a VLAN by which an OUI is deleted has one at most. */

static std::map<uint64_t, uint32_t> vlanOfMac, vlanOfOui;

/* Reads three octets with ":" or "-" between them. */
static bool parseOui(const std::string &text, uint64_t *oui)
{
    bool good = parseMac(text + ":00:00:00", oui);
    *oui >>= 24;
    return good;
}

static std::string ouiText(uint64_t oui)
{
    return macText(oui << 24).substr(0, 8);
}

static int addMac(OpenBufferDesc *text, uint32_t vlan)
{
    uint64_t mac = 0;
    if (!parseMac(textOf(text), &mac) || !vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    return vlanOfMac.insert({mac, vlan}).second ? OPEN_OK : OPEN_EXISTS;
}

static int getMac(OpenBufferDesc *text, uint32_t *vlan)
{
    uint64_t mac = 0;
    if (!parseMac(textOf(text), &mac))
        return OPEN_BAD_ARGUMENT;
    auto found = vlanOfMac.find(mac);
    if (found == vlanOfMac.end())
        return OPEN_FAILED;
    *vlan = found->second;
    return OPEN_OK;
}

/* Only from the VLAN it is bound to. */
static int deleteMac(OpenBufferDesc *text, uint32_t vlan)
{
    uint64_t mac = 0;
    if (!parseMac(textOf(text), &mac) || !vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    auto found = vlanOfMac.find(mac);
    if (found == vlanOfMac.end() || found->second != vlan)
        return OPEN_FAILED;
    vlanOfMac.erase(found);
    return OPEN_OK;
}

/* A step of a walk, from the empty text to the first entry. The address need not be in the table. */
static int nextMac(OpenBufferDesc *text, OpenBufferDesc *next, uint32_t *vlan)
{
    uint64_t mac = 0;
    std::string from = textOf(text);
    if (!from.empty() && !parseMac(from, &mac))
        return OPEN_BAD_ARGUMENT;
    auto found = from.empty() ? vlanOfMac.begin() : vlanOfMac.upper_bound(mac);
    if (found == vlanOfMac.end())
        return OPEN_FAILED;
    *vlan = found->second;
    return setText(next, macText(found->first));
}

static int addOui(OpenBufferDesc *text, uint32_t vlan)
{
    uint64_t oui = 0;
    if (!parseOui(textOf(text), &oui) || !vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    for (const auto &entry : vlanOfOui)
        if (entry.first == oui || entry.second == vlan)
            return OPEN_EXISTS;
    vlanOfOui[oui] = vlan;
    return OPEN_OK;
}

static int deleteOui(uint32_t vlan)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    return std::erase_if(vlanOfOui, [vlan](const auto &entry) { return entry.second == vlan; }) ? OPEN_OK : OPEN_FAILED;
}

static int nextOui(OpenBufferDesc *text, OpenBufferDesc *next, uint32_t *vlan)
{
    uint64_t oui = 0;
    std::string from = textOf(text);
    if (!from.empty() && !parseOui(from, &oui))
        return OPEN_BAD_ARGUMENT;
    auto found = from.empty() ? vlanOfOui.begin() : vlanOfOui.upper_bound(oui);
    if (found == vlanOfOui.end())
        return OPEN_FAILED;
    *vlan = found->second;
    return setText(next, ouiText(found->first));
}

static void serveSources()
{
    SERVE(rpcclt_openapiVlanMacAdd, addMac);
    SERVE(rpcclt_openapiVlanMacGet, getMac);
    SERVE(rpcclt_openapiVlanMacDelete, deleteMac);
    SERVE(rpcclt_openapiVlanMacGetNext, nextMac);
    SERVE(rpcclt_openapiVlanMacOuiVlanAdd, addOui);
    SERVE(rpcclt_openapiVlanMacOuiVlanDelete, deleteOui);
    SERVE(rpcclt_openapiVlanMacOuiVlanFirstGet, [](OpenBufferDesc *first, uint32_t *vlan) {
        char start[] = "";
        OpenBufferDesc none = {sizeof start, start};
        return nextOui(&none, first, vlan);
    });
    SERVE(rpcclt_openapiVlanMacOuiVlanNextGet, nextOui);
    SERVE(rpcclt_openapiVlanMacOuiVlanCountGet, [](uint32_t *count) -> int {
        *count = (uint32_t)vlanOfOui.size();
        return OPEN_OK;
    });
}

/* By protocol. A protocol is an Ethernet type; a group's protocols as one text are decimal, with commas between. */

enum : uint32_t { HIGHEST_GROUP = 128, MOST_PROTOCOLS = 16, LOWEST_ETHERTYPE = 0x0600, HIGHEST_ETHERTYPE = 0xFFFF };

struct ProtocolGroup {
    std::string name;     /* empty while it has none */
    uint32_t vlan = 0;    /* 0 while it has none */
    std::set<uint32_t> protocols;
    std::set<uint32_t> ports;
};

static std::map<uint32_t, ProtocolGroup> groups;

/* The group, or the code that says why there is none. */
static int findGroup(uint32_t id, ProtocolGroup **group)
{
    if (id < 1 || id > HIGHEST_GROUP)
        return OPEN_BAD_ARGUMENT;
    auto found = groups.find(id);
    if (found == groups.end())
        return OPEN_FAILED;
    *group = &found->second;
    return OPEN_OK;
}

/* The key that follows `after`, which need not be there. */
template <class Container> static int stepBehind(const Container &container, uint32_t after, uint32_t *next)
{
    auto found = container.upper_bound(after);
    if (found == container.end())
        return OPEN_FAILED;
    if constexpr (requires { found->first; })
        *next = found->first;
    else
        *next = *found;
    return OPEN_OK;
}

/* A new group applies to every port: nothing that a client can reach adds one. */
static int createGroup(uint32_t id)
{
    ProtocolGroup *group;
    int rc = findGroup(id, &group);
    if (rc != OPEN_FAILED)
        return rc == OPEN_OK ? OPEN_EXISTS : rc;
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        groups[id].ports.insert(port);
    return OPEN_OK;
}

static int deleteGroup(uint32_t id)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    groups.erase(id);
    return OPEN_OK;
}

static int idOfName(OpenBufferDesc *name, uint32_t *id)
{
    std::string wanted = textOf(name);
    if (wanted.empty())
        return OPEN_BAD_ARGUMENT;
    for (const auto &[groupId, group] : groups)
        if (group.name == wanted) {
            *id = groupId;
            return OPEN_OK;
        }
    return OPEN_FAILED;
}

/* A name is one group's only; the empty one takes a group's name away. */
static int setName(uint32_t id, OpenBufferDesc *name)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    uint32_t other;
    if (idOfName(name, &other) == OPEN_OK && other != id)
        return OPEN_EXISTS;
    group->name = textOf(name);
    return OPEN_OK;
}

static int getName(uint32_t id, OpenBufferDesc *name)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    return setText(name, group->name);
}

static int addProtocol(uint32_t id, uint32_t protocol)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    if (protocol < LOWEST_ETHERTYPE || protocol > HIGHEST_ETHERTYPE)
        return OPEN_BAD_ARGUMENT;
    if (group->protocols.contains(protocol))
        return OPEN_EXISTS;
    if (group->protocols.size() == MOST_PROTOCOLS)
        return OPEN_FAILED;
    group->protocols.insert(protocol);
    return OPEN_OK;
}

static int deleteProtocol(uint32_t id, uint32_t protocol)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    return group->protocols.erase(protocol) ? OPEN_OK : OPEN_FAILED;
}

static int listProtocols(uint32_t id, OpenBufferDesc *list)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    std::string text;
    for (uint32_t protocol : group->protocols)
        text.append(text.empty() ? "" : ",").append(std::to_string(protocol));
    return setText(list, text);
}

static int nextProtocol(uint32_t id, uint32_t after, uint32_t *next)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    return stepBehind(group->protocols, after, next);
}

static int addVlan(uint32_t id, uint32_t vlan)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    if (group->vlan)
        return OPEN_EXISTS;
    group->vlan = vlan;
    return OPEN_OK;
}

static int deleteVlan(uint32_t id, uint32_t vlan)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    if (group->vlan != vlan)
        return OPEN_FAILED;
    group->vlan = 0;
    return OPEN_OK;
}

static int getVlan(uint32_t id, uint32_t *vlan)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    if (!group->vlan)
        return OPEN_FAILED;
    *vlan = group->vlan;
    return OPEN_OK;
}

static int addPort(uint32_t id, uint32_t port)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    return group->ports.insert(port).second ? OPEN_OK : OPEN_EXISTS;
}

static int deletePort(uint32_t id, uint32_t port)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    return group->ports.erase(port) ? OPEN_OK : OPEN_FAILED;
}

static int nextPortOfGroup(uint32_t id, uint32_t after, uint32_t *next)
{
    ProtocolGroup *group;
    if (int rc = findGroup(id, &group))
        return rc;
    return stepBehind(group->ports, after, next);
}

static void serveProtocolGroups()
{
    SERVE(rpcclt_openapiPbVlanGroupGetFirst, [](uint32_t *first) { return stepBehind(groups, 0, first); });
    SERVE(rpcclt_openapiPbVlanGroupGetNext, [](uint32_t id, uint32_t *next) { return stepBehind(groups, id, next); });
    SERVE(rpcclt_openapiPbVlanGroupCreate, createGroup);
    SERVE(rpcclt_openapiPbVlanGroupDelete, deleteGroup);
    SERVE(rpcclt_openapiPbVlanGroupIdGet, idOfName);
    SERVE(rpcclt_openapiPbVlanGroupNameSet, setName);
    SERVE(rpcclt_openapiPbVlanGroupNameGet, getName);
    SERVE(rpcclt_openapiPbVlanGroupProtocolAdd, addProtocol);
    SERVE(rpcclt_openapiPbVlanGroupProtocolDelete, deleteProtocol);
    SERVE(rpcclt_openapiPbVlanGroupProtocolGet, listProtocols);
    SERVE(rpcclt_openapiPbVlanGroupProtocolGetNext, nextProtocol);
    SERVE(rpcclt_openapiPbVlanGroupVlanIDAdd, addVlan);
    SERVE(rpcclt_openapiPbVlanGroupVlanIDDelete, deleteVlan);
    SERVE(rpcclt_openapiPbVlanGroupVlanIDGet, getVlan);
    SERVE(rpcclt_openapiPbVlanGroupPortAdd, addPort);
    SERVE(rpcclt_openapiPbVlanGroupPortDelete, deletePort);
    SERVE(rpcclt_openapiPbVlanGroupPortGetNext, nextPortOfGroup);
    SERVE(rpcclt_openapiPbVlanIntfValidate,
          [](uint32_t port) -> int { return portExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT; });
}

void forgetVlanOfGroups(uint32_t vlan)
{
    auto isBound = [vlan](const auto &entry) { return entry.second == vlan; };
    std::erase_if(vlanOfMac, isBound);
    std::erase_if(vlanOfOui, isBound);
    for (auto &[id, group] : groups)
        if (group.vlan == vlan)
            group.vlan = 0;
}

void serveVlanGroups()
{
    serveSources();
    serveProtocolGroups();
}

void resetVlanGroups()
{
    vlanOfMac.clear();
    vlanOfOui.clear();
    groups.clear();
}
