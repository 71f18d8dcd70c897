/*
 * model_vlan.cpp - the virtual switch's VLAN table: the VLANs that were configured, and those that neighbours registered.
 */
#include <algorithm>

#include "vswitch/base/operations.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

static VlanSet configured;
static uint32_t mostVlans, deletes;

static Setting nameLength = {"rpcclt_openapiVlanNameLenGet", nullptr, FOR_SWITCH, 32, 0, 0};
static Setting mostSupported = {"rpcclt_openapiDot1qMaxSupportedVlansGet", nullptr, FOR_SWITCH, HIGHEST_VLAN, 0, 0};

bool vlanIsConfigured(uint32_t vlan)
{
    return vlan <= HIGHEST_VLAN && configured.contains((uint16_t)vlan);
}

bool vlanExists(uint32_t vlan)
{
    return vlanIsConfigured(vlan) || (vlan <= HIGHEST_VLAN && registeredVlans().contains((uint16_t)vlan));
}

bool vlanIsDynamic(uint32_t vlan)
{
    return vlanExists(vlan) && !vlanIsConfigured(vlan);
}

std::vector<uint16_t> existingVlans()
{
    VlanSet all = registeredVlans();
    all.insert(configured.begin(), configured.end());
    return {all.begin(), all.end()};
}

static uint32_t dynamicVlans()
{
    VlanSet registered = registeredVlans();
    return (uint32_t)std::count_if(registered.begin(), registered.end(),
                                   [](uint16_t vlan) { return !configured.contains(vlan); });
}

void passVlans()
{
    mostVlans = std::max(mostVlans, (uint32_t)configured.size() + dynamicVlans());
}

static int createVlan(uint32_t vlan)
{
    if (vlan < 1 || vlan > HIGHEST_VLAN)
        return OPEN_BAD_ARGUMENT;
    return configured.insert((uint16_t)vlan).second ? OPEN_OK : OPEN_EXISTS;
}

/* VLAN 1 stays, and so does what a neighbour holds. */
static int deleteVlan(uint32_t vlan)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    if (vlan == 1 || vlanIsDynamic(vlan))
        return OPEN_FAILED;
    configured.erase((uint16_t)vlan);
    deletes++;
    forgetVlanOfSwitchports(vlan);
    forgetVlanOfPrivateVlans(vlan);
    forgetVlanOfClassification(vlan);
    forgetVlanOfFilters(vlan);
    forgetVlanOfVoice(vlan);
    return OPEN_OK;
}

static uint32_t typeOf(uint32_t vlan)
{
    return vlan == 1 ? VLAN_DEFAULT : vlanIsConfigured(vlan) ? VLAN_STATIC : VLAN_DYNAMIC;
}

/* 0 behind the last one. */
static uint32_t vlanAfter(uint32_t vlan)
{
    std::vector<uint16_t> ids = existingVlans();
    auto found = std::upper_bound(ids.begin(), ids.end(), vlan);
    return found == ids.end() ? 0 : *found;
}

void serveVlans()
{
    serveSettings({&nameLength, &mostSupported});

    SERVE(rpcclt_openapiVlanCreate, createVlan);
    SERVE(rpcclt_openapiVlanDelete, deleteVlan);
    SERVE(rpcclt_openapiMostVlanEntriesGet, [](uint32_t *count) { return tell(mostVlans, count); });
    SERVE(rpcclt_openapiStaticVlanEntriesGet,
          [](uint32_t *count) { return tell((uint32_t)configured.size(), count); });
    SERVE(rpcclt_openapiDynamicVlanEntriesGet,
          [](uint32_t *count) { return tell(dynamicVlans(), count); });
    SERVE(rpcclt_openapiDot1qVlanNumDeletesGet, [](uint32_t *count) { return tell(deletes, count); });
    SERVE(rpcclt_openapiNextVlanGet,
          [](uint32_t vlan, uint32_t *next) { return tellNext(vlanAfter(vlan), next); });
    SERVE(rpcclt_openapiVlanTypeGet, [](uint32_t vlan, uint32_t *type) -> int {
        return vlanExists(vlan) ? tell(typeOf(vlan), type) : OPEN_BAD_ARGUMENT;
    });
}

void resetVlans()
{
    configured.clear();
    mostVlans = deletes = 0;
    for (uint32_t vlan = 1; vlan <= modelOptions().stationVlans; vlan++)
        configured.insert((uint16_t)vlan);
}
