/*
 * membership.cpp - which VLANs is a port in, and how? It follows from what was set and what neighbours registered.
 */
#include <algorithm>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/switchport.h"

uint32_t portPvid(uint32_t port)
{
    const PrivatePort *association = privatePort(port);
    SwitchportMode mode = switchportMode(port);
    if (association && mode != MODE_TRUNK)
        return association->role == HOST ? *association->secondaries.begin() : association->primary;
    uint32_t vlan = switchport(port).untaggedVlan[mode];
    return vlanExists(vlan) ? vlan : 1;
}

VlanBits registrableVlans(uint32_t port)
{
    VlanBits vlans;
    if (privatePort(port) || switchportMode(port) == MODE_ACCESS)
        return vlans;
    const Switchport &set = switchport(port);
    bool trunk = switchportMode(port) == MODE_TRUNK;
    if (!trunk || set.allowsAll)
        vlans.set();
    if (trunk && !set.allowsAll)
        for (uint16_t vlan : set.allowed)
            vlans.set(vlan);
    if (!trunk)
        for (auto [vlan, participation] : set.participation)
            vlans.set(vlan, participation != PARTICIPATION_EXCLUDE);
    return vlans;
}

bool isAdded(uint32_t port, uint32_t vlan)
{
    if (!vlanRegistered(port, vlan))
        return false;
    if (switchportMode(port) == MODE_TRUNK)
        return vlanIsDynamic(vlan);
    return participationSet(port, vlan) == PARTICIPATION_AUTO;
}

/* A port with a private VLAN association is in no other private VLAN. */
static bool modeIncludes(uint32_t port, uint32_t vlan)
{
    const PrivatePort *association = privatePort(port);
    if (association && (vlan == association->primary || association->secondaries.contains((uint16_t)vlan)))
        return true;
    if (switchportMode(port) == MODE_TRUNK)
        return isAllowed(port, vlan) && !vlanIsDynamic(vlan) && !(association && privateVlanType(vlan));
    return !association && vlan == portPvid(port);
}

bool portInVlan(uint32_t port, uint32_t vlan)
{
    if (!interfaceExists(port) || !vlanExists(vlan))
        return false;
    bool included = modeDecides(port) ? modeIncludes(port, vlan)
                                      : participationSet(port, vlan) == PARTICIPATION_INCLUDE;
    return included || isAdded(port, vlan) || voiceVlan(port) == vlan;
}

/* In force in general mode. */
static uint32_t taggingIn(uint32_t port, uint32_t vlan)
{
    return valueIn(switchport(port).tagging, vlan, isAdded(port, vlan) ? TAGGED : UNTAGGED);
}

/* As it was set, in every mode. */
static uint32_t taggingSet(uint32_t port, uint32_t vlan)
{
    return valueIn(switchport(port).tagging, vlan, UNTAGGED);
}

bool portTags(uint32_t port, uint32_t vlan)
{
    if (voiceVlan(port) == vlan && vlan != portPvid(port))
        return true;
    if (modeDecides(port))
        return switchportMode(port) == MODE_TRUNK && vlan != portPvid(port);
    return taggingIn(port, vlan) == TAGGED;
}

/* A trunk accepts all frames; access and private ports connect stations, which send untagged frames. */
AcceptedFrames acceptedFrames(uint32_t port)
{
    if (modeDecides(port))
        return switchportMode(port) == MODE_TRUNK ? ACCEPT_ALL : ACCEPT_UNTAGGED;
    return acceptedFramesSet(port);
}

bool filtersIngress(uint32_t port)
{
    return modeDecides(port) || ingressFilteringSet(port);
}

/* Lists */

static bool isTaggedMember(uint32_t port, uint32_t vlan)
{
    return portInVlan(port, vlan) && portTags(port, vlan);
}

static bool isUntaggedMember(uint32_t port, uint32_t vlan)
{
    return portInVlan(port, vlan) && !portTags(port, vlan);
}

static bool isNormalAllowed(uint32_t port, uint32_t vlan)
{
    return isAllowed(port, vlan) && !privateVlanType(vlan);
}

/* Lists the existing VLANs for which `holds` is true. */
template <bool (*holds)(uint32_t port, uint32_t vlan)> static int listVlans(uint32_t port, VlanIdList *list)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> ids = existingVlans();
    std::erase_if(ids, [=](uint16_t vlan) { return !holds(port, vlan); });
    setList(list, ids);
    return OPEN_OK;
}

void registerMembership()
{
    ASK(rpcclt_openapiVlanTaggedSetGet, [](uint32_t vlan, uint32_t port, uint32_t *tagged) {
        bool exist = vlanExists(vlan) && interfaceExists(port);
        return exist ? store(taggingSet(port, vlan), tagged) : (int)OPEN_BAD_ARGUMENT;
    });
    ASK(rpcclt_openapiVlanVIDListGet, [](uint32_t port, VlanIdList *list, uint32_t *count) {
        int rc = listVlans<portInVlan>(port, list);
        return rc == OPEN_OK ? store(list->count, count) : rc;
    });
    ASK(rpcclt_openapiQportsCurrentIngressFilteringGet, ofInterface<filtersIngress>);
    /* In every mode, not only as a trunk. */
    ASK(rpcclt_openapiPvlanIntfTrunkNativeVlanGet, ofInterface<portPvid>);

    ASK(rpcclt_openapiDot1qSwPortForbiddenVlanListGet, listVlans<isForbidden>);
    ASK(rpcclt_openapiDot1qSwPortUntaggedVlanListGet, listVlans<isUntaggedMember>);
    ASK(rpcclt_openapiDot1qSwPortTaggedVlanListGet, listVlans<isTaggedMember>);
    ASK(rpcclt_openapiDot1qSwPortDynamicallyAddedVlanListGet, listVlans<isAdded>);
    ASK(rpcclt_openapiPvlanIntfTrunkAllowedVlanListGet, listVlans<isNormalAllowed>);
}
