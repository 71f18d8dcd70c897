/*
 * model_private_vlan.cpp - the virtual switch's private VLANs: primary VLANs with the secondary VLANs associated with
 * them, and the ports that are hosts in one secondary VLAN or promiscuous in several.
 */
#include <algorithm>
#include <map>

#include "model.h"
#include "model_vlan.h"
#include "operations.h"

enum PrivateType : uint32_t { PRIVATE_NONE = 0, PRIVATE_PRIMARY = 1, PRIVATE_ISOLATED = 2, PRIVATE_COMMUNITY = 3 };

/* What an association makes of a port: the trunk modes are those of an associated port that is a trunk. */
enum PrivatePortMode : uint32_t { PORT_NONE = 0, PORT_HOST = 1, PORT_PROMISCUOUS = 2, PORT_PROMISCUOUS_TRUNK = 3,
                                  PORT_ISOLATED_TRUNK = 4 };

struct PrivateVlan {
    PrivateType type;
    uint32_t primary; /* of a secondary VLAN that is associated with one, else 0 */
};

static std::map<uint32_t, PrivateVlan> privateVlans; /* without those of type none */
static std::map<uint32_t, PrivatePort> ports;

static PrivateType typeOf(uint32_t vlan)
{
    auto found = privateVlans.find(vlan);
    return found == privateVlans.end() ? PRIVATE_NONE : found->second.type;
}

static uint32_t primaryOf(uint32_t vlan)
{
    auto found = privateVlans.find(vlan);
    return found == privateVlans.end() ? 0 : found->second.primary;
}

static std::vector<uint16_t> secondariesOf(uint32_t primary)
{
    std::vector<uint16_t> ids;
    for (const auto &[id, vlan] : privateVlans)
        if (vlan.primary == primary)
            ids.push_back((uint16_t)id);
    return ids;
}

const PrivatePort *privatePort(uint32_t port)
{
    auto found = ports.find(port);
    return found == ports.end() ? nullptr : &found->second;
}

bool isPrivateVlan(uint32_t vlan)
{
    return typeOf(vlan) != PRIVATE_NONE;
}

static PrivatePortMode modeOf(uint32_t port)
{
    const PrivatePort *own = privatePort(port);
    if (!own)
        return PORT_NONE;
    bool trunk = switchportMode(port) == MODE_TRUNK;
    if (!own->host)
        return trunk ? PORT_PROMISCUOUS_TRUNK : PORT_PROMISCUOUS;
    return trunk && typeOf(*own->secondaries.begin()) == PRIVATE_ISOLATED ? PORT_ISOLATED_TRUNK : PORT_HOST;
}

/* VLANs */

/* VLAN 1 is never private; a VLAN that is associated keeps its type. */
static int setType(uint32_t vlan, uint32_t type)
{
    if (!vlanExists(vlan) || vlan == 1 || type > PRIVATE_COMMUNITY)
        return OPEN_BAD_ARGUMENT;
    if (type == typeOf(vlan))
        return OPEN_OK;
    if (primaryOf(vlan) || (typeOf(vlan) == PRIVATE_PRIMARY && !secondariesOf(vlan).empty()))
        return OPEN_FAILED;
    if (type == PRIVATE_NONE)
        privateVlans.erase(vlan);
    else
        privateVlans[vlan] = {(PrivateType)type, 0};
    return OPEN_OK;
}

/* All or none of them. A secondary VLAN has one primary VLAN, which has one isolated VLAN at most. */
static int associate(uint32_t primary, VlanIdList list)
{
    std::set<uint16_t> ids = idsOf(list);
    if (typeOf(primary) != PRIVATE_PRIMARY || ids.empty())
        return OPEN_BAD_ARGUMENT;
    for (uint16_t id : ids)
        if (typeOf(id) != PRIVATE_ISOLATED && typeOf(id) != PRIVATE_COMMUNITY)
            return OPEN_BAD_ARGUMENT;
    if (std::any_of(ids.begin(), ids.end(), primaryOf))
        return OPEN_EXISTS;
    auto isolated = [](uint16_t id) { return typeOf(id) == PRIVATE_ISOLATED; };
    std::vector<uint16_t> before = secondariesOf(primary);
    if (std::count_if(ids.begin(), ids.end(), isolated) + std::count_if(before.begin(), before.end(), isolated) > 1)
        return OPEN_FAILED;
    for (uint16_t id : ids)
        privateVlans.at(id).primary = primary;
    return OPEN_OK;
}

/* Ports lose what they had of the secondary VLAN, and with the last one their association. */
static void dissociate(uint16_t secondary)
{
    privateVlans.at(secondary).primary = 0;
    for (auto &[port, own] : ports)
        own.secondaries.erase(secondary);
    std::erase_if(ports, [](const auto &entry) { return entry.second.secondaries.empty(); });
}

static int dissociateAll(uint32_t primary, VlanIdList list)
{
    std::set<uint16_t> ids = idsOf(list);
    if (typeOf(primary) != PRIVATE_PRIMARY || ids.empty())
        return OPEN_BAD_ARGUMENT;
    if (!std::all_of(ids.begin(), ids.end(), [primary](uint16_t id) { return primaryOf(id) == primary; }))
        return OPEN_FAILED;
    for (uint16_t id : ids)
        dissociate(id);
    return OPEN_OK;
}

void forgetPrivateVlan(uint32_t vlan)
{
    if (typeOf(vlan) == PRIVATE_PRIMARY)
        for (uint16_t secondary : secondariesOf(vlan))
            dissociate(secondary);
    if (primaryOf(vlan))
        dissociate((uint16_t)vlan);
    privateVlans.erase(vlan);
}

static void servePrivateTable()
{
    SERVE(rpcclt_openapiDot1qPrivateVlanEnable, setType);
    SERVE(rpcclt_openapiDot1qPrivateVlanGet, [](uint32_t vlan, uint32_t *type) -> int {
        if (!vlanExists(vlan))
            return OPEN_BAD_ARGUMENT;
        *type = typeOf(vlan);
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDot1qApiPrivateVlanAssocAdd, associate);
    SERVE(rpcclt_openapiDot1qApiPrivateVlanAssocRemove, dissociateAll);
    SERVE(rpcclt_openapiDot1qPrivateVlanAssociationGet, [](uint32_t vlan, VlanIdList *list) -> int {
        if (!vlanExists(vlan))
            return OPEN_BAD_ARGUMENT;
        setList(list, secondariesOf(vlan));
        return OPEN_OK;
    });
}

/* Ports */

/* A port is a host or promiscuous: it has to leave the one before it can be the other. */
static int setAssociation(uint32_t port, const PrivatePort &wanted)
{
    bool known = std::all_of(wanted.secondaries.begin(), wanted.secondaries.end(),
                             [&](uint16_t id) { return primaryOf(id) == wanted.primary; });
    if (!portExists(port) || wanted.primary == 0 || wanted.secondaries.empty() || !known)
        return OPEN_BAD_ARGUMENT;
    const PrivatePort *own = privatePort(port);
    if (own && own->host != wanted.host)
        return OPEN_FAILED;
    ports[port] = wanted;
    return OPEN_OK;
}

static int setHost(uint32_t port, uint32_t primary, uint32_t secondary)
{
    if (!vlanExists(secondary))
        return OPEN_BAD_ARGUMENT;
    return setAssociation(port, {true, primary, {(uint16_t)secondary}});
}

static int setPromiscuous(uint32_t port, uint32_t primary, VlanIdList secondaries)
{
    return setAssociation(port, {false, primary, idsOf(secondaries)});
}

/* The port's association, if it is of that kind; otherwise the code that says why not. */
static int findAssociation(uint32_t port, bool host, const PrivatePort **found)
{
    *found = privatePort(port);
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    return *found && (*found)->host == host ? OPEN_OK : OPEN_FAILED;
}

static int removeAssociation(uint32_t port, bool host)
{
    const PrivatePort *own;
    if (int rc = findAssociation(port, host, &own))
        return rc;
    ports.erase(port);
    return OPEN_OK;
}

static int getHost(uint32_t port, uint32_t *primary, uint32_t *secondary)
{
    const PrivatePort *own;
    if (int rc = findAssociation(port, true, &own))
        return rc;
    *primary = own->primary;
    *secondary = *own->secondaries.begin();
    return OPEN_OK;
}

static int getPromiscuous(uint32_t port, uint32_t *primary, VlanIdList *secondaries)
{
    const PrivatePort *own;
    if (int rc = findAssociation(port, false, &own))
        return rc;
    *primary = own->primary;
    setList(secondaries, {own->secondaries.begin(), own->secondaries.end()});
    return OPEN_OK;
}

/* A step of the walk over a trunk's primary VLANs, of which there is one at most: is it behind `after`? */
static int stepTrunk(uint32_t port, PrivatePortMode mode, uint32_t after)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    return modeOf(port) == mode && privatePort(port)->primary > after ? OPEN_OK : OPEN_FAILED;
}

static void servePrivatePorts()
{
    SERVE(rpcclt_openapiDot1qIntfPVlanHostAssocSet, setHost);
    SERVE(rpcclt_openapiDot1qPVlanIntfHostAssocRemove, [](uint32_t port) { return removeAssociation(port, true); });
    SERVE(rpcclt_openapiPvlanIntfHostAssocGet, getHost);
    SERVE(rpcclt_openapiDot1qIntfPVlanPromiscAssocSet, setPromiscuous);
    SERVE(rpcclt_openapiDot1qPVlanIntfPromiscAssocRemove, [](uint32_t port) { return removeAssociation(port, false); });
    SERVE(rpcclt_openapiPvlanIntfPromiscAssocGet, getPromiscuous);
    SERVE(rpcclt_openapiPvlanIntfModeGet,
          [](uint32_t port, uint32_t *mode) { return onPort(port, modeOf(port), mode); });
    SERVE(rpcclt_openapiPvlanIntfOperAssocGet, [](uint32_t port, VlanIdList *list) -> int {
        if (!portExists(port))
            return OPEN_BAD_ARGUMENT;
        std::set<uint16_t> ids;
        if (const PrivatePort *own = privatePort(port)) {
            ids = own->secondaries;
            ids.insert((uint16_t)own->primary);
        }
        setList(list, {ids.begin(), ids.end()});
        return OPEN_OK;
    });
}

static void servePrivateTrunks()
{
    SERVE(rpcclt_openapiPvlanIntfPromiscTrunkAssocNextGet,
          [](uint32_t port, uint32_t after, uint32_t *next, VlanIdList *secondaries) {
              int rc = stepTrunk(port, PORT_PROMISCUOUS_TRUNK, after);
              return rc == OPEN_OK ? getPromiscuous(port, next, secondaries) : rc;
          });
    SERVE(rpcclt_openapiPvlanIntfIsolatedTrunkAssocNextGet,
          [](uint32_t port, uint32_t after, uint32_t *next, uint32_t *secondary) {
              int rc = stepTrunk(port, PORT_ISOLATED_TRUNK, after);
              return rc == OPEN_OK ? getHost(port, next, secondary) : rc;
          });
    /* Whatever the mode: where the port's untagged frames go. */
    SERVE(rpcclt_openapiPvlanIntfTrunkNativeVlanGet,
          [](uint32_t port, uint32_t *vlan) { return onPort(port, portPvid(port), vlan); });
    SERVE(rpcclt_openapiPvlanIntfTrunkAllowedVlanListGet, [](uint32_t port, VlanIdList *list) -> int {
        if (!portExists(port))
            return OPEN_BAD_ARGUMENT;
        std::vector<uint16_t> ids = trunkAllowedVlans(port);
        std::erase_if(ids, isPrivateVlan);
        setList(list, ids);
        return OPEN_OK;
    });
}

void servePrivateVlans()
{
    servePrivateTable();
    servePrivatePorts();
    servePrivateTrunks();
}

void resetPrivateVlans()
{
    privateVlans.clear();
    ports.clear();
}
