/*
 * switchport.cpp - what was set for a port and its VLANs: mode, PVID, participation, tagging.
 */
#include "vswitch/switch/switchport.h"

#include <algorithm>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"

static std::map<uint32_t, Switchport> switchports; /* by port; those where something was set */

static Setting acceptFrames = {.name = "VlanIfAcceptFrameType", .scope = FOR_INTERFACE,
                               .initial = ACCEPT_ALL, .settable = true};
static Setting trafficClasses = {.name = "VlanIfNumTrafficClasses", .scope = FOR_INTERFACE, .initial = 8};
static Setting userPriority = {.name = "VlanIfDefaultUserPriority", .scope = FOR_INTERFACE, .settable = true};
static Setting ingressFiltering = {.name = "QportsEnableIngressFiltering", .scope = FOR_INTERFACE, .settable = true};
static Setting autoTrunk = {.name = "VlanGlobalAutoTrunk", .settable = true};

const Switchport &switchport(uint32_t port)
{
    static const Switchport initial;
    auto found = switchports.find(port);
    return found == switchports.end() ? initial : found->second;
}

SwitchportMode switchportMode(uint32_t port)
{
    return switchport(port).mode;
}

uint32_t participationSet(uint32_t port, uint32_t vlan)
{
    return valueIn(switchport(port).participation, vlan, vlan == 1 ? PARTICIPATION_INCLUDE : PARTICIPATION_AUTO);
}

bool isAllowed(uint32_t port, uint32_t vlan)
{
    const Switchport &set = switchport(port);
    return set.allowsAll || set.allowed.contains((uint16_t)vlan);
}

uint32_t untaggedPriority(uint32_t port)
{
    return (uint32_t)userPriority.value(port);
}

AcceptedFrames acceptedFramesSet(uint32_t port)
{
    return (AcceptedFrames)acceptFrames.value(port);
}

bool ingressFilteringSet(uint32_t port)
{
    return ingressFiltering.value(port);
}

/* As it was set, so VLANs that do not exist are in the list too. */
static int listAllowed(uint32_t port, VlanIdList *list)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> ids;
    for (uint16_t vlan = 1; vlan <= HIGHEST_VLAN; vlan++)
        if (isAllowed(port, vlan))
            ids.push_back(vlan);
    setList(list, ids);
    return OPEN_OK;
}

/* Operations */

static int setParticipation(uint32_t vlan, uint32_t port, uint32_t mode)
{
    if (!vlanIsConfigured(vlan) || !interfaceExists(port) || mode > PARTICIPATION_EXCLUDE)
        return OPEN_BAD_ARGUMENT;
    switchports[port].participation[vlan] = mode;
    return OPEN_OK;
}

static int setTagging(uint32_t port, uint32_t vlan, uint32_t tagged)
{
    if (!vlanIsConfigured(vlan) || !interfaceExists(port) || tagged > TAGGED)
        return OPEN_BAD_ARGUMENT;
    switchports[port].tagging[vlan] = tagged;
    return OPEN_OK;
}

template <SwitchportMode mode> static int setUntaggedVlan(uint32_t port, uint32_t vlan)
{
    if (!interfaceExists(port) || !vlanIsConfigured(vlan))
        return OPEN_BAD_ARGUMENT;
    switchports[port].untaggedVlan[mode] = vlan;
    return OPEN_OK;
}

template <SwitchportMode mode> static int getUntaggedVlan(uint32_t port, uint32_t *vlan)
{
    return interfaceExists(port) ? store(switchport(port).untaggedVlan[mode], vlan) : (int)OPEN_BAD_ARGUMENT;
}

static int setMode(uint32_t port, uint32_t mode)
{
    if (!interfaceExists(port) || mode < MODE_ACCESS || mode > MODE_GENERAL)
        return OPEN_BAD_ARGUMENT;
    switchports[port].mode = (SwitchportMode)mode;
    return OPEN_OK;
}

static int setAllowed(uint32_t port, VlanIdList *list)
{
    VlanSet ids = idsOf(*list);
    if (!interfaceExists(port) || ids.contains(0) || (!ids.empty() && *ids.rbegin() > HIGHEST_VLAN))
        return OPEN_BAD_ARGUMENT;
    switchports[port].allowsAll = ids.size() == HIGHEST_VLAN;
    switchports[port].allowed = std::move(ids);
    return OPEN_OK;
}

static void registerVlanSettings()
{
    DO(rpcclt_openapiVlanIfParticipationSet, setParticipation);
    DO(rpcclt_openapiVlanIfTaggingSet, setTagging);
    DO(rpcclt_openapiVlanIfPvidSet, setUntaggedVlan<MODE_GENERAL>);
    ASK(rpcclt_openapiDot1qSwPortTrunkAllowedVlanListGet, listAllowed);
    ASK(rpcclt_openapiVlanIfParticipationGet, [](uint32_t vlan, uint32_t port, uint32_t *mode) {
        bool exist = vlanExists(vlan) && interfaceExists(port);
        return exist ? store(participationSet(port, vlan), mode) : (int)OPEN_BAD_ARGUMENT;
    });
    ASK(rpcclt_openapiDot1qPortIngressFiltering,
        ofInterface<[](uint32_t port) { return ingressFiltering.value(port); }>);
    ASK(rpcclt_openapiDot1qRxPacketsNotForwardedCountGet, [](uint32_t port, uint64_t *count) -> int {
        *count = portCounters(port).inDiscards;
        return interfaceExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT;
    });
}

/* Untagged frames of the VLAN go to VLAN 1 again. What a trunk allows stays as it was set. */
static void forgetVlan(uint32_t vlan)
{
    for (auto &[port, set] : switchports) {
        std::replace(std::begin(set.untaggedVlan), std::end(set.untaggedVlan), vlan, 1u);
        set.participation.erase(vlan);
        set.tagging.erase(vlan);
    }
}

void registerSwitchports()
{
    onVlanEnd(forgetVlan);
    registerSettings({&acceptFrames, &trafficClasses, &userPriority, &ingressFiltering, &autoTrunk});
    registerVlanSettings();

    DO(rpcclt_openapiDot1qSwPortModeSet, setMode);
    ASK(rpcclt_openapiDot1qSwPortModeGet, ofInterface<switchportMode>);
    DO(rpcclt_openapiDot1qSwPortAccessVlanSet, setUntaggedVlan<MODE_ACCESS>);
    ASK(rpcclt_openapiDot1qSwPortAccessVlanGet, getUntaggedVlan<MODE_ACCESS>);
    DO(rpcclt_openapiDot1qSwPortTrunkNativeVlanSet, setUntaggedVlan<MODE_TRUNK>);
    ASK(rpcclt_openapiDot1qSwPortTrunkNativeVlanGet, getUntaggedVlan<MODE_TRUNK>);
    DO(rpcclt_openapiDot1qSwPortTrunkAllowedVlanListSet, setAllowed);
    /* In force on trunks, while it is on for the switch. */
    ASK(rpcclt_openapiDot1qOperAutoTrunkModeGet,
        ofInterface<[](uint32_t port) { return autoTrunk.value() && switchportMode(port) == MODE_TRUNK; }>);
}

/* The VLANs of the simulated stations are tagged on the ports of the stations. */
void resetSwitchports()
{
    switchports.clear();
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        for (uint32_t vlan = 2; vlan <= deviceOptions().stationVlans && portHasLink(port); vlan++) {
            switchports[port].participation[vlan] = PARTICIPATION_INCLUDE;
            switchports[port].tagging[vlan] = TAGGED;
        }
}
