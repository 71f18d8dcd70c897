/*
 * classification.cpp - which VLAN does an untagged frame belong to? By its source address, by the address's OUI (its
 * first three octets), or by its protocol, in groups.
 */
#include <algorithm>
#include <map>
#include <string>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

static std::map<uint64_t, uint32_t> vlanOfMac;
static std::map<uint32_t, uint32_t> vlanOfOui;

/* A protocol is an EtherType. */
enum : size_t { MOST_MACS = 1024, MOST_OUIS = 256, MOST_PROTOCOLS = 16 /* of a group */ };

struct ProtocolGroup {
    std::string name;  /* empty: none */
    uint32_t vlan = 0; /* 0: none */
    std::set<uint32_t> protocols;
    PortSet ports;
};

static std::map<uint32_t, ProtocolGroup> groups;

uint32_t vlanOfSource(uint64_t mac)
{
    if (auto found = vlanOfMac.find(mac); found != vlanOfMac.end())
        return found->second;
    auto found = vlanOfOui.find((uint32_t)(mac >> 24));
    return found == vlanOfOui.end() ? 0 : found->second;
}

uint32_t vlanOfProtocol(uint32_t port, uint32_t etherType)
{
    for (const auto &[id, group] : groups)
        if (group.vlan && group.ports.contains(port) && group.protocols.contains(etherType))
            return group.vlan;
    return 0;
}

/* The first key > `after`, which need not exist. */
template <class Container> static int stepAfter(const Container &container, uint32_t after, uint32_t *next)
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

/* Fails if the key is there, or the table holds `most` entries. */
template <class Map> static int insertNew(Map &map, size_t most, typename Map::key_type key, uint32_t vlan)
{
    if (map.contains(key))
        return OPEN_EXISTS;
    if (map.size() == most)
        return OPEN_FAILED;
    map[key] = vlan;
    return OPEN_OK;
}

/* By address */

static int addMac(OpenBufferDesc *text, uint32_t vlan)
{
    uint64_t mac = 0;
    if (!parseMac(textOf(text), &mac) || !isStation(mac) || !vlanIsConfigured(vlan))
        return OPEN_BAD_ARGUMENT;
    return insertNew(vlanOfMac, MOST_MACS, mac, vlan);
}

static int getMac(OpenBufferDesc *text, uint32_t *vlan)
{
    uint64_t mac = 0;
    if (!parseMac(textOf(text), &mac))
        return OPEN_BAD_ARGUMENT;
    auto found = vlanOfMac.find(mac);
    return found == vlanOfMac.end() ? (int)OPEN_FAILED : store(found->second, vlan);
}

/* Refused unless `vlan` is the VLAN of the entry. */
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

/* A step of a walk; the empty text starts it. The address need not be in the table. */
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

/* By OUI */

static int addOui(OpenBufferDesc *text, uint32_t vlan)
{
    uint32_t oui;
    if (!parseOui(textOf(text), &oui) || !vlanIsConfigured(vlan))
        return OPEN_BAD_ARGUMENT;
    return insertNew(vlanOfOui, MOST_OUIS, oui, vlan);
}

/* Deletes all OUIs of the VLAN. */
static int deleteOuis(uint32_t vlan)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    return std::erase_if(vlanOfOui, [vlan](const auto &entry) { return entry.second == vlan; }) ? OPEN_OK : OPEN_FAILED;
}

static int storeOui(std::map<uint32_t, uint32_t>::const_iterator found, OpenBufferDesc *text, uint32_t *vlan)
{
    if (found == vlanOfOui.end())
        return OPEN_FAILED;
    *vlan = found->second;
    return setText(text, ouiText(found->first));
}

static int firstOui(OpenBufferDesc *first, uint32_t *vlan)
{
    return storeOui(vlanOfOui.begin(), first, vlan);
}

static int nextOui(OpenBufferDesc *text, OpenBufferDesc *next, uint32_t *vlan)
{
    uint32_t oui;
    std::string from = textOf(text);
    if (from.empty())
        return firstOui(next, vlan);
    return parseOui(from, &oui) ? storeOui(vlanOfOui.upper_bound(oui), next, vlan) : OPEN_BAD_ARGUMENT;
}

static void registerSources()
{
    DO(rpcclt_openapiVlanMacAdd, addMac);
    ASK(rpcclt_openapiVlanMacGet, getMac);
    DO(rpcclt_openapiVlanMacDelete, deleteMac);
    ASK(rpcclt_openapiVlanMacGetNext, nextMac);
    DO(rpcclt_openapiVlanMacOuiVlanAdd, addOui);
    DO(rpcclt_openapiVlanMacOuiVlanDelete, deleteOuis);
    ASK(rpcclt_openapiVlanMacOuiVlanFirstGet, firstOui);
    ASK(rpcclt_openapiVlanMacOuiVlanNextGet, nextOui);
    ASK(rpcclt_openapiVlanMacOuiVlanCountGet, [](uint32_t *count) { return store((uint32_t)vlanOfOui.size(), count); });
}

/* By protocol */

/* Runs `use` on the group. OPEN_FAILED when it does not exist. */
template <class Use> static int inGroup(uint32_t id, Use use)
{
    if (!PROTOCOL_GROUP.contains(id))
        return OPEN_BAD_ARGUMENT;
    auto found = groups.find(id);
    return found == groups.end() ? (int)OPEN_FAILED : use(found->second);
}

/* A new group has every port, because no endpoint adds ports to a group. */
static int createGroup(uint32_t id)
{
    if (!PROTOCOL_GROUP.contains(id))
        return OPEN_BAD_ARGUMENT;
    if (groups.contains(id))
        return OPEN_EXISTS;
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        groups[id].ports.insert(port);
    return OPEN_OK;
}

static int deleteGroup(uint32_t id)
{
    return inGroup(id, [=](const ProtocolGroup &) -> int {
        groups.erase(id);
        return OPEN_OK;
    });
}

static int idOfName(OpenBufferDesc *name, uint32_t *id)
{
    std::string wanted = textOf(name);
    if (wanted.empty())
        return OPEN_BAD_ARGUMENT;
    for (const auto &[groupId, group] : groups)
        if (group.name == wanted)
            return store(groupId, id);
    return OPEN_FAILED;
}

/* Names are unique; an empty one removes the group's name. */
static int setName(uint32_t id, OpenBufferDesc *name)
{
    return inGroup(id, [=](ProtocolGroup &group) -> int {
        uint32_t other;
        if (idOfName(name, &other) == OPEN_OK && other != id)
            return OPEN_EXISTS;
        group.name = textOf(name);
        return OPEN_OK;
    });
}

static int addProtocol(uint32_t id, uint32_t protocol)
{
    return inGroup(id, [=](ProtocolGroup &group) -> int {
        if (!ETHER_TYPE.contains(protocol))
            return OPEN_BAD_ARGUMENT;
        if (group.protocols.contains(protocol))
            return OPEN_EXISTS;
        if (group.protocols.size() == MOST_PROTOCOLS)
            return OPEN_FAILED;
        group.protocols.insert(protocol);
        return OPEN_OK;
    });
}

static int deleteProtocol(uint32_t id, uint32_t protocol)
{
    return inGroup(id, [=](ProtocolGroup &group) -> int {
        return group.protocols.erase(protocol) ? OPEN_OK : OPEN_FAILED;
    });
}

/* Decimal, with commas between. */
static int listProtocols(uint32_t id, OpenBufferDesc *list)
{
    return inGroup(id, [=](const ProtocolGroup &group) {
        std::string text;
        for (uint32_t protocol : group.protocols)
            text.append(text.empty() ? "" : ",").append(std::to_string(protocol));
        return setText(list, text);
    });
}

static int addVlan(uint32_t id, uint32_t vlan)
{
    return inGroup(id, [=](ProtocolGroup &group) -> int {
        if (!vlanIsConfigured(vlan))
            return OPEN_BAD_ARGUMENT;
        if (group.vlan)
            return OPEN_EXISTS;
        group.vlan = vlan;
        return OPEN_OK;
    });
}

static int removeVlan(uint32_t id, uint32_t vlan)
{
    return inGroup(id, [=](ProtocolGroup &group) -> int {
        if (!vlanExists(vlan))
            return OPEN_BAD_ARGUMENT;
        if (group.vlan != vlan)
            return OPEN_FAILED;
        group.vlan = 0;
        return OPEN_OK;
    });
}

static int addPort(uint32_t id, uint32_t port)
{
    return inGroup(id, [=](ProtocolGroup &group) -> int {
        if (!interfaceExists(port))
            return OPEN_BAD_ARGUMENT;
        return group.ports.insert(port).second ? OPEN_OK : OPEN_EXISTS;
    });
}

static int deletePort(uint32_t id, uint32_t port)
{
    return inGroup(id, [=](ProtocolGroup &group) -> int {
        if (!interfaceExists(port))
            return OPEN_BAD_ARGUMENT;
        return group.ports.erase(port) ? OPEN_OK : OPEN_FAILED;
    });
}

static void registerProtocolGroups()
{
    ASK(rpcclt_openapiPbVlanGroupGetFirst, [](uint32_t *first) { return stepAfter(groups, 0, first); });
    ASK(rpcclt_openapiPbVlanGroupGetNext, [](uint32_t id, uint32_t *next) { return stepAfter(groups, id, next); });
    DO(rpcclt_openapiPbVlanGroupCreate, createGroup);
    DO(rpcclt_openapiPbVlanGroupDelete, deleteGroup);
    ASK(rpcclt_openapiPbVlanGroupIdGet, idOfName);
    DO(rpcclt_openapiPbVlanGroupNameSet, setName);
    ASK(rpcclt_openapiPbVlanGroupNameGet, [](uint32_t id, OpenBufferDesc *name) {
        return inGroup(id, [=](const ProtocolGroup &group) { return setText(name, group.name); });
    });
    DO(rpcclt_openapiPbVlanGroupProtocolAdd, addProtocol);
    DO(rpcclt_openapiPbVlanGroupProtocolDelete, deleteProtocol);
    ASK(rpcclt_openapiPbVlanGroupProtocolGet, listProtocols);
    ASK(rpcclt_openapiPbVlanGroupProtocolGetNext, [](uint32_t id, uint32_t after, uint32_t *next) {
        return inGroup(id, [=](const ProtocolGroup &group) { return stepAfter(group.protocols, after, next); });
    });
    DO(rpcclt_openapiPbVlanGroupVlanIDAdd, addVlan);
    DO(rpcclt_openapiPbVlanGroupVlanIDDelete, removeVlan);
    ASK(rpcclt_openapiPbVlanGroupVlanIDGet, [](uint32_t id, uint32_t *vlan) {
        return inGroup(id, [=](const ProtocolGroup &group) { return storeNext(group.vlan, vlan); });
    });
    DO(rpcclt_openapiPbVlanGroupPortAdd, addPort);
    DO(rpcclt_openapiPbVlanGroupPortDelete, deletePort);
    ASK(rpcclt_openapiPbVlanGroupPortGetNext, [](uint32_t id, uint32_t after, uint32_t *next) {
        return inGroup(id, [=](const ProtocolGroup &group) { return stepAfter(group.ports, after, next); });
    });
    ASK(rpcclt_openapiPbVlanIntfValidate,
        [](uint32_t port) -> int { return interfaceExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT; });
}

static void forgetVlan(uint32_t vlan)
{
    auto isBound = [vlan](const auto &entry) { return entry.second == vlan; };
    std::erase_if(vlanOfMac, isBound);
    std::erase_if(vlanOfOui, isBound);
    for (auto &[id, group] : groups)
        if (group.vlan == vlan)
            group.vlan = 0;
}

void registerClassification()
{
    onVlanEnd(forgetVlan);
    registerSources();
    registerProtocolGroups();
}

void resetClassification()
{
    vlanOfMac.clear();
    vlanOfOui.clear();
    groups.clear();
}
