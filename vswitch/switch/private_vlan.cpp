/*
 * private_vlan.cpp - private VLANs: which secondary VLANs belong to a primary VLAN, and which ports are hosts (in one
 * secondary VLAN) or promiscuous (in several)?
 */
#include <algorithm>
#include <map>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/switchport.h"

struct PrivateVlan {
    PrivateVlanType type;
    uint32_t primary; /* of an associated secondary VLAN, else 0 */
};

static std::map<uint32_t, PrivateVlan> privateVlans; /* by VLAN; none of type PRIVATE_NONE */
static std::map<uint32_t, PrivatePort> associations; /* by port */

PrivateVlanType privateVlanType(uint32_t vlan)
{
    auto found = privateVlans.find(vlan);
    return found == privateVlans.end() ? PRIVATE_NONE : found->second.type;
}

uint32_t primaryVlan(uint32_t vlan)
{
    auto found = privateVlans.find(vlan);
    return found == privateVlans.end() ? 0 : found->second.primary;
}

std::vector<uint16_t> secondaryVlans(uint32_t primary)
{
    std::vector<uint16_t> ids;
    for (const auto &[id, vlan] : privateVlans)
        if (vlan.primary == primary)
            ids.push_back((uint16_t)id);
    return ids;
}

const PrivatePort *privatePort(uint32_t port)
{
    auto found = associations.find(port);
    return found == associations.end() ? nullptr : &found->second;
}

bool modeDecides(uint32_t port)
{
    return switchportMode(port) != MODE_GENERAL || privatePort(port);
}

bool isForbidden(uint32_t port, uint32_t vlan)
{
    return !modeDecides(port) && participationSet(port, vlan) == PARTICIPATION_EXCLUDE;
}

static PrivatePortMode modeOf(uint32_t port)
{
    const PrivatePort *association = privatePort(port);
    if (!association)
        return PORT_NONE;
    bool trunk = switchportMode(port) == MODE_TRUNK;
    if (association->role == PROMISCUOUS)
        return trunk ? PORT_PROMISCUOUS_TRUNK : PORT_PROMISCUOUS;
    bool isolated = privateVlanType(*association->secondaries.begin()) == PRIVATE_ISOLATED;
    return trunk && isolated ? PORT_ISOLATED_TRUNK : PORT_HOST;
}

/* VLANs */

/* VLAN 1 is never private. The type of an associated VLAN cannot change. */
static int setType(uint32_t vlan, uint32_t type)
{
    if (!vlanIsConfigured(vlan) || vlan == 1 || type > PRIVATE_COMMUNITY)
        return OPEN_BAD_ARGUMENT;
    if (type == privateVlanType(vlan))
        return OPEN_OK;
    if (primaryVlan(vlan) || (privateVlanType(vlan) == PRIVATE_PRIMARY && !secondaryVlans(vlan).empty()))
        return OPEN_FAILED;
    if (type == PRIVATE_NONE)
        privateVlans.erase(vlan);
    else
        privateVlans[vlan] = {(PrivateVlanType)type, 0};
    return OPEN_OK;
}

/*
 * Associates all of the list or none. VLANs that already belong to `primary` stay so. A secondary VLAN has one primary
 * VLAN; a primary VLAN has at most one isolated VLAN.
 */
static int associate(uint32_t primary, VlanIdList list)
{
    VlanSet ids = idsOf(list);
    if (privateVlanType(primary) != PRIVATE_PRIMARY || ids.empty())
        return OPEN_BAD_ARGUMENT;
    for (uint16_t id : ids)
        if (privateVlanType(id) != PRIVATE_ISOLATED && privateVlanType(id) != PRIVATE_COMMUNITY)
            return OPEN_BAD_ARGUMENT;
    std::erase_if(ids, [primary](uint16_t id) { return primaryVlan(id) == primary; });
    if (std::any_of(ids.begin(), ids.end(), primaryVlan))
        return OPEN_EXISTS;
    auto isolated = [](uint16_t id) { return privateVlanType(id) == PRIVATE_ISOLATED; };
    std::vector<uint16_t> before = secondaryVlans(primary);
    if (std::count_if(ids.begin(), ids.end(), isolated) + std::count_if(before.begin(), before.end(), isolated) > 1)
        return OPEN_FAILED;
    for (uint16_t id : ids)
        privateVlans.at(id).primary = primary;
    return OPEN_OK;
}

/* Ports leave the secondary VLAN. A port without secondary VLANs loses its association. */
static void dissociate(uint16_t secondary)
{
    privateVlans.at(secondary).primary = 0;
    for (auto &[port, association] : associations)
        association.secondaries.erase(secondary);
    std::erase_if(associations, [](const auto &entry) { return entry.second.secondaries.empty(); });
}

/* An empty list stands for all secondary VLANs of `primary`. */
static int dissociateList(uint32_t primary, VlanIdList list)
{
    if (privateVlanType(primary) != PRIVATE_PRIMARY)
        return OPEN_BAD_ARGUMENT;
    VlanSet ids = idsOf(list);
    if (ids.empty())
        for (uint16_t id : secondaryVlans(primary))
            ids.insert(id);
    if (!std::all_of(ids.begin(), ids.end(), [primary](uint16_t id) { return primaryVlan(id) == primary; }))
        return OPEN_FAILED;
    for (uint16_t id : ids)
        dissociate(id);
    return OPEN_OK;
}

static void forgetVlan(uint32_t vlan)
{
    if (privateVlanType(vlan) == PRIVATE_PRIMARY)
        for (uint16_t secondary : secondaryVlans(vlan))
            dissociate(secondary);
    if (primaryVlan(vlan))
        dissociate((uint16_t)vlan);
    privateVlans.erase(vlan);
}

static void registerPrivateTable()
{
    DO(rpcclt_openapiDot1qPrivateVlanEnable, setType);
    ASK(rpcclt_openapiDot1qPrivateVlanGet, [](uint32_t vlan, uint32_t *type) -> int {
        return vlanExists(vlan) ? store(privateVlanType(vlan), type) : OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiDot1qApiPrivateVlanAssocAdd, associate);
    DO(rpcclt_openapiDot1qApiPrivateVlanAssocRemove, dissociateList);
    ASK(rpcclt_openapiDot1qPrivateVlanAssociationGet, [](uint32_t vlan, VlanIdList *list) -> int {
        if (!vlanExists(vlan))
            return OPEN_BAD_ARGUMENT;
        setList(list, secondaryVlans(vlan));
        return OPEN_OK;
    });
}

/* Ports */

/* Replaces the association that the port had, in either role. */
static int setAssociation(uint32_t port, const PrivatePort &wanted)
{
    bool known = std::all_of(wanted.secondaries.begin(), wanted.secondaries.end(),
                             [&](uint16_t id) { return primaryVlan(id) == wanted.primary; });
    if (!interfaceExists(port) || wanted.primary == 0 || wanted.secondaries.empty() || !known)
        return OPEN_BAD_ARGUMENT;
    associations[port] = wanted;
    return OPEN_OK;
}

static int setHost(uint32_t port, uint32_t primary, uint32_t secondary)
{
    if (!vlanExists(secondary))
        return OPEN_BAD_ARGUMENT;
    return setAssociation(port, {HOST, primary, {(uint16_t)secondary}});
}

static int setPromiscuous(uint32_t port, uint32_t primary, VlanIdList secondaries)
{
    return setAssociation(port, {PROMISCUOUS, primary, idsOf(secondaries)});
}

/* Finds the association of a port in a role. Otherwise returns the code that says why there is none. */
static int findAssociation(uint32_t port, PrivateRole role, const PrivatePort **found)
{
    *found = privatePort(port);
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    return *found && (*found)->role == role ? OPEN_OK : OPEN_FAILED;
}

template <PrivateRole role> static int removeAssociation(uint32_t port)
{
    const PrivatePort *association;
    if (int rc = findAssociation(port, role, &association))
        return rc;
    associations.erase(port);
    return OPEN_OK;
}

static int getHost(uint32_t port, uint32_t *primary, uint32_t *secondary)
{
    const PrivatePort *association;
    if (int rc = findAssociation(port, HOST, &association))
        return rc;
    *primary = association->primary;
    return store(*association->secondaries.begin(), secondary);
}

static int getPromiscuous(uint32_t port, uint32_t *primary, VlanIdList *secondaries)
{
    const PrivatePort *association;
    if (int rc = findAssociation(port, PROMISCUOUS, &association))
        return rc;
    *primary = association->primary;
    setList(secondaries, {association->secondaries.begin(), association->secondaries.end()});
    return OPEN_OK;
}

/* A step of the walk over a trunk's primary VLANs. There is at most one: OPEN_OK if it comes after `after`. */
static int stepTrunk(uint32_t port, PrivatePortMode mode, uint32_t after)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    return modeOf(port) == mode && privatePort(port)->primary > after ? OPEN_OK : OPEN_FAILED;
}

static void registerPrivatePorts()
{
    DO(rpcclt_openapiDot1qIntfPVlanHostAssocSet, setHost);
    DO(rpcclt_openapiDot1qPVlanIntfHostAssocRemove, removeAssociation<HOST>);
    ASK(rpcclt_openapiPvlanIntfHostAssocGet, getHost);
    DO(rpcclt_openapiDot1qIntfPVlanPromiscAssocSet, setPromiscuous);
    DO(rpcclt_openapiDot1qPVlanIntfPromiscAssocRemove, removeAssociation<PROMISCUOUS>);
    ASK(rpcclt_openapiPvlanIntfPromiscAssocGet, getPromiscuous);
    ASK(rpcclt_openapiPvlanIntfModeGet, ofInterface<modeOf>);
    ASK(rpcclt_openapiPvlanIntfOperAssocGet, [](uint32_t port, VlanIdList *list) -> int {
        if (!interfaceExists(port))
            return OPEN_BAD_ARGUMENT;
        VlanSet ids;
        if (const PrivatePort *association = privatePort(port)) {
            ids = association->secondaries;
            ids.insert((uint16_t)association->primary);
        }
        setList(list, {ids.begin(), ids.end()});
        return OPEN_OK;
    });
}

static void registerPrivateTrunks()
{
    ASK(rpcclt_openapiPvlanIntfPromiscTrunkAssocNextGet,
        [](uint32_t port, uint32_t after, uint32_t *next, VlanIdList *secondaries) {
            int rc = stepTrunk(port, PORT_PROMISCUOUS_TRUNK, after);
            return rc == OPEN_OK ? getPromiscuous(port, next, secondaries) : rc;
        });
    ASK(rpcclt_openapiPvlanIntfIsolatedTrunkAssocNextGet,
        [](uint32_t port, uint32_t after, uint32_t *next, uint32_t *secondary) {
            int rc = stepTrunk(port, PORT_ISOLATED_TRUNK, after);
            return rc == OPEN_OK ? getHost(port, next, secondary) : rc;
        });
}

void registerPrivateVlans()
{
    onVlanEnd(forgetVlan);
    registerPrivateTable();
    registerPrivatePorts();
    registerPrivateTrunks();
}

void resetPrivateVlans()
{
    privateVlans.clear();
    associations.clear();
}
