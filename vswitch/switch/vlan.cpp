/*
 * vlan.cpp - which VLANs exist: those that were configured, and those that neighbours registered.
 */
#include <algorithm>
#include <map>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

static VlanBits configured;
static std::map<uint32_t, VlanBits> registeredOn; /* by port */
static VlanBits registered;                       /* on any port */
static uint32_t mostVlans, deletes;
static std::vector<void (*)(uint32_t)> endHooks;

static Setting nameLength = {.name = "VlanNameLen", .initial = 32};
static Setting mostSupported = {.name = "Dot1qMaxSupportedVlans", .initial = HIGHEST_VLAN};

bool vlanIsConfigured(uint32_t vlan)
{
    return vlan <= HIGHEST_VLAN && configured[vlan];
}

bool vlanExists(uint32_t vlan)
{
    return vlanIsConfigured(vlan) || (vlan <= HIGHEST_VLAN && registered[vlan]);
}

bool vlanIsDynamic(uint32_t vlan)
{
    return vlanExists(vlan) && !vlanIsConfigured(vlan);
}

std::vector<uint16_t> existingVlans()
{
    const VlanBits existing = configured | registered;
    std::vector<uint16_t> ids;
    for (uint32_t vlan = vlanAfter(existing, 0); vlan <= HIGHEST_VLAN; vlan = vlanAfter(existing, vlan))
        ids.push_back((uint16_t)vlan);
    return ids;
}

const VlanBits &configuredVlans()
{
    return configured;
}

const VlanBits &registeredVlans(uint32_t port)
{
    static const VlanBits none;
    auto found = registeredOn.find(port);
    return found == registeredOn.end() ? none : found->second;
}

bool vlanRegistered(uint32_t port, uint32_t vlan)
{
    return vlan <= HIGHEST_VLAN && registeredVlans(port)[vlan];
}

void onVlanEnd(void (*ended)(uint32_t vlan))
{
    endHooks.push_back(ended);
}

static void endVlan(uint32_t vlan)
{
    for (auto ended : endHooks)
        ended(vlan);
}

void setRegisteredVlans(uint32_t port, const VlanBits &vlans)
{
    if (vlans == registeredVlans(port))
        return;
    const VlanBits before = registered;
    registeredOn[port] = vlans;
    registered.reset();
    for (const auto &[onPort, bits] : registeredOn)
        registered |= bits;
    for (uint32_t vlan = 1; vlan <= HIGHEST_VLAN; vlan++)
        if (before[vlan] && !vlanExists(vlan))
            endVlan(vlan);
    stateChanged();
}

static uint32_t dynamicVlans()
{
    return (uint32_t)(registered & ~configured).count();
}

void advanceVlans()
{
    mostVlans = std::max(mostVlans, (uint32_t)configured.count() + dynamicVlans());
}

static int createVlan(uint32_t vlan)
{
    if (vlan < 1 || vlan > HIGHEST_VLAN)
        return OPEN_BAD_ARGUMENT;
    if (configured[vlan])
        return OPEN_EXISTS;
    configured.set(vlan);
    return OPEN_OK;
}

/* VLAN 1 and VLANs that only a neighbour registered cannot be deleted. */
static int deleteVlan(uint32_t vlan)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    if (vlan == 1 || vlanIsDynamic(vlan))
        return OPEN_FAILED;
    configured.reset(vlan);
    deletes++;
    endVlan(vlan);
    return OPEN_OK;
}

static uint32_t typeOf(uint32_t vlan)
{
    return vlan == 1 ? VLAN_DEFAULT : vlanIsConfigured(vlan) ? VLAN_STATIC : VLAN_DYNAMIC;
}

/* 0 after the last one. */
static uint32_t nextVlan(uint32_t vlan)
{
    uint32_t next = vlan < HIGHEST_VLAN ? vlanAfter(configured | registered, vlan) : 0;
    return next <= HIGHEST_VLAN ? next : 0;
}

void registerVlans()
{
    registerSettings({&nameLength, &mostSupported});

    DO(rpcclt_openapiVlanCreate, createVlan);
    DO(rpcclt_openapiVlanDelete, deleteVlan);
    ASK(rpcclt_openapiMostVlanEntriesGet, [](uint32_t *count) { return store(mostVlans, count); });
    ASK(rpcclt_openapiStaticVlanEntriesGet, [](uint32_t *count) { return store((uint32_t)configured.count(), count); });
    ASK(rpcclt_openapiDynamicVlanEntriesGet, [](uint32_t *count) { return store(dynamicVlans(), count); });
    ASK(rpcclt_openapiDot1qVlanNumDeletesGet, [](uint32_t *count) { return store(deletes, count); });
    ASK(rpcclt_openapiNextVlanGet, [](uint32_t vlan, uint32_t *next) { return storeNext(nextVlan(vlan), next); });
    ASK(rpcclt_openapiVlanTypeGet, [](uint32_t vlan, uint32_t *type) -> int {
        return vlanExists(vlan) ? store(typeOf(vlan), type) : OPEN_BAD_ARGUMENT;
    });
}

void resetVlans()
{
    configured.reset();
    registeredOn.clear();
    registered.reset();
    mostVlans = deletes = 0;
    for (uint32_t vlan = 1; vlan <= deviceOptions().stationVlans; vlan++)
        configured.set(vlan);
}
