/*
 * model_switchport.cpp - the part each port of the virtual switch has in the VLANs: what was set, and what is in force.
 */
#include <algorithm>
#include <map>

#include "vswitch/base/operations.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

struct Switchport {
    SwitchportMode mode = MODE_GENERAL;
    uint32_t untaggedVlan[4] = {0, 1, 1, 1}; /* by mode: the access VLAN, the native VLAN, the PVID */
    bool allowsAll = true;                   /* as a trunk; otherwise: */
    VlanSet allowed;
    std::map<uint32_t, uint32_t> participation, tagging; /* by VLAN, where they were set */
};

static std::map<uint32_t, Switchport> switchports; /* those of which something was set */

static Setting acceptFrames = {"rpcclt_openapiVlanIfAcceptFrameTypeGet", "rpcclt_openapiVlanIfAcceptFrameTypeSet",
                               FOR_INTERFACE, ACCEPT_ALL, ACCEPT_ALL, ACCEPT_UNTAGGED};
static Setting trafficClasses = {"rpcclt_openapiVlanIfNumTrafficClassesGet", nullptr, FOR_INTERFACE, 8, 0, 0};
static Setting userPriority = {"rpcclt_openapiVlanIfDefaultUserPriorityGet",
                               "rpcclt_openapiVlanIfDefaultUserPrioritySet", FOR_INTERFACE, 0, 0, 7};
static Setting ingressFiltering = {"rpcclt_openapiQportsEnableIngressFilteringGet",
                                   "rpcclt_openapiQportsEnableIngressFilteringSet", FOR_INTERFACE, 0, 0, 1};
static Setting autoTrunk = {"rpcclt_openapiVlanGlobalAutoTrunkGet", "rpcclt_openapiVlanGlobalAutoTrunkSet", FOR_SWITCH,
                            0, 0, 1};

static const Switchport &switchport(uint32_t port)
{
    static const Switchport initial;
    auto found = switchports.find(port);
    return found == switchports.end() ? initial : found->second;
}

SwitchportMode switchportMode(uint32_t port)
{
    return switchport(port).mode;
}

/* What was set */

static uint32_t participationSet(uint32_t port, uint32_t vlan)
{
    const auto &own = switchport(port).participation;
    auto found = own.find(vlan);
    return found != own.end() ? found->second : vlan == 1 ? PARTICIPATION_INCLUDE : PARTICIPATION_AUTO;
}

static bool isAllowed(uint32_t port, uint32_t vlan)
{
    const Switchport &own = switchport(port);
    return own.allowsAll || own.allowed.contains((uint16_t)vlan);
}

static bool isForbidden(uint32_t port, uint32_t vlan)
{
    return participationSet(port, vlan) == PARTICIPATION_EXCLUDE;
}

/* What is in force */

static bool modeDecides(uint32_t port)
{
    return switchportMode(port) != MODE_GENERAL || privatePort(port);
}

uint32_t portPvid(uint32_t port)
{
    const PrivatePort *association = privatePort(port);
    SwitchportMode mode = switchportMode(port);
    if (association && mode != MODE_TRUNK)
        return association->role == HOST ? *association->secondaries.begin() : association->primary;
    uint32_t vlan = switchport(port).untaggedVlan[mode];
    return vlanExists(vlan) ? vlan : 1;
}

bool portMayRegister(uint32_t port, uint32_t vlan)
{
    if (privatePort(port) || switchportMode(port) == MODE_ACCESS)
        return false;
    return switchportMode(port) == MODE_TRUNK ? isAllowed(port, vlan) : !isForbidden(port, vlan);
}

bool isAdded(uint32_t port, uint32_t vlan)
{
    if (!vlanRegistered(port, vlan))
        return false;
    return switchportMode(port) == MODE_TRUNK ? vlanIsDynamic(vlan) : participationSet(port, vlan) == PARTICIPATION_AUTO;
}

/* A port with an association is in no other private VLAN. */
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

/* In general mode: as it was set, also for the endpoint that reads the setting. */
static uint32_t taggingSet(uint32_t port, uint32_t vlan)
{
    const auto &own = switchport(port).tagging;
    auto found = own.find(vlan);
    return found != own.end() ? found->second : isAdded(port, vlan) ? TAGGED : UNTAGGED;
}

bool portTags(uint32_t port, uint32_t vlan)
{
    if (voiceVlan(port) == vlan && vlan != portPvid(port))
        return true;
    if (modeDecides(port))
        return switchportMode(port) == MODE_TRUNK && vlan != portPvid(port);
    return taggingSet(port, vlan) == TAGGED;
}

/* A trunk takes all; other ports whose mode decides are for stations, which send untagged. */
AcceptedFrames acceptedFrames(uint32_t port)
{
    if (modeDecides(port))
        return switchportMode(port) == MODE_TRUNK ? ACCEPT_ALL : ACCEPT_UNTAGGED;
    return (AcceptedFrames)acceptFrames.value(port);
}

uint32_t untaggedPriority(uint32_t port)
{
    return (uint32_t)userPriority.value(port);
}

bool filtersIngress(uint32_t port)
{
    return modeDecides(port) || ingressFiltering.value(port);
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

/* The VLANs there are of which `holds` is true for the port. */
static int listVlans(uint32_t port, bool (*holds)(uint32_t port, uint32_t vlan), VlanIdList *list)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> ids = existingVlans();
    std::erase_if(ids, [&](uint16_t vlan) { return !holds(port, vlan); });
    setList(list, ids);
    return OPEN_OK;
}

/* As it was set: also ids of which there is no VLAN (yet). */
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
    if (!vlanExists(vlan) || !interfaceExists(port) || mode > PARTICIPATION_EXCLUDE)
        return OPEN_BAD_ARGUMENT;
    switchports[port].participation[vlan] = mode;
    return OPEN_OK;
}

static int setTagging(uint32_t port, uint32_t vlan, uint32_t tagged)
{
    if (!vlanExists(vlan) || !interfaceExists(port) || tagged > TAGGED)
        return OPEN_BAD_ARGUMENT;
    switchports[port].tagging[vlan] = tagged;
    return OPEN_OK;
}

template <SwitchportMode mode> static int setUntaggedVlan(uint32_t port, uint32_t vlan)
{
    if (!interfaceExists(port) || !vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    switchports[port].untaggedVlan[mode] = vlan;
    return OPEN_OK;
}

template <SwitchportMode mode> static int getUntaggedVlan(uint32_t port, uint32_t *vlan)
{
    return onInterface(port, switchport(port).untaggedVlan[mode], vlan);
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

static void serveInVlans()
{
    SERVE(rpcclt_openapiVlanIfParticipationSet, setParticipation);
    SERVE(rpcclt_openapiVlanIfTaggingSet, setTagging);
    SERVE(rpcclt_openapiVlanIfPvidSet, setUntaggedVlan<MODE_GENERAL>);
    SERVE(rpcclt_openapiVlanIfParticipationGet, [](uint32_t vlan, uint32_t port, uint32_t *mode) {
        return vlanExists(vlan) ? onInterface(port, participationSet(port, vlan), mode) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiVlanTaggedSetGet, [](uint32_t vlan, uint32_t port, uint32_t *tagged) {
        return vlanExists(vlan) ? onInterface(port, taggingSet(port, vlan), tagged) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiVlanVIDListGet, [](uint32_t port, VlanIdList *list, uint32_t *count) {
        int rc = listVlans(port, portInVlan, list);
        return rc == OPEN_OK ? tell(list->count, count) : rc;
    });
    SERVE(rpcclt_openapiDot1qPortIngressFiltering, [](uint32_t port, uint32_t *mode) {
        return onInterface(port, (uint32_t)ingressFiltering.value(port), mode);
    });
    SERVE(rpcclt_openapiQportsCurrentIngressFilteringGet,
          [](uint32_t port, uint32_t *mode) { return onInterface(port, filtersIngress(port), mode); });
    SERVE(rpcclt_openapiDot1qRxPacketsNotForwardedCountGet, [](uint32_t port, uint64_t *count) -> int {
        *count = portCounters(port).inDiscards;
        return interfaceExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT;
    });
}

static void serveLists()
{
    SERVE(rpcclt_openapiDot1qSwPortTrunkAllowedVlanListGet, listAllowed);
    SERVE(rpcclt_openapiDot1qSwPortForbiddenVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isForbidden, list); });
    SERVE(rpcclt_openapiDot1qSwPortUntaggedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isUntaggedMember, list); });
    SERVE(rpcclt_openapiDot1qSwPortTaggedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isTaggedMember, list); });
    SERVE(rpcclt_openapiDot1qSwPortDynamicallyAddedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isAdded, list); });
    SERVE(rpcclt_openapiPvlanIntfTrunkAllowedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isNormalAllowed, list); });
}

void serveSwitchports()
{
    serveSettings({&acceptFrames, &trafficClasses, &userPriority, &ingressFiltering, &autoTrunk});
    serveInVlans();
    serveLists();

    SERVE(rpcclt_openapiDot1qSwPortModeSet, setMode);
    SERVE(rpcclt_openapiDot1qSwPortModeGet,
          [](uint32_t port, uint32_t *mode) { return onInterface(port, switchportMode(port), mode); });
    SERVE(rpcclt_openapiDot1qSwPortAccessVlanSet, setUntaggedVlan<MODE_ACCESS>);
    SERVE(rpcclt_openapiDot1qSwPortAccessVlanGet, getUntaggedVlan<MODE_ACCESS>);
    SERVE(rpcclt_openapiDot1qSwPortTrunkNativeVlanSet, setUntaggedVlan<MODE_TRUNK>);
    SERVE(rpcclt_openapiDot1qSwPortTrunkNativeVlanGet, getUntaggedVlan<MODE_TRUNK>);
    SERVE(rpcclt_openapiDot1qSwPortTrunkAllowedVlanListSet, setAllowed);
    /* Whatever the mode: where the port's untagged frames go. */
    SERVE(rpcclt_openapiPvlanIntfTrunkNativeVlanGet,
          [](uint32_t port, uint32_t *vlan) { return onInterface(port, portPvid(port), vlan); });
    /* Automatic trunking is in force on trunks, while the switch has it on. */
    SERVE(rpcclt_openapiDot1qOperAutoTrunkModeGet, [](uint32_t port, uint32_t *mode) {
        return onInterface(port, autoTrunk.value() && switchportMode(port) == MODE_TRUNK, mode);
    });
}

/* Ports whose untagged frames went to the VLAN have them in VLAN 1 again. What a trunk allows stays as it was set. */
void forgetVlanOfSwitchports(uint32_t vlan)
{
    for (auto &[port, own] : switchports) {
        std::replace(std::begin(own.untaggedVlan), std::end(own.untaggedVlan), vlan, 1u);
        own.participation.erase(vlan);
        own.tagging.erase(vlan);
    }
}

/* The VLANs that stations are in from the start are tagged on the ports that stations are on. */
void resetSwitchports()
{
    switchports.clear();
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        for (uint32_t vlan = 2; vlan <= modelOptions().stationVlans && portHasLink(port); vlan++) {
            switchports[port].participation[vlan] = PARTICIPATION_INCLUDE;
            switchports[port].tagging[vlan] = TAGGED;
        }
}
