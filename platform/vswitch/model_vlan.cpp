/*
 * model_vlan.cpp - the virtual switch's VLAN table, the part each port has in it, and the switchport view of a port.
 *
 * participation() and tagging() say what is in force for a port in a VLAN, and every list follows from them. In general
 * mode they are what was set; in access and trunk mode, and under a private VLAN association, the mode decides, and
 * setting them is refused.
 */
#include "model_vlan.h"

#include <algorithm>
#include <map>
#include <optional>

#include "model.h"
#include "model_fdb.h"
#include "operations.h"
#include "settings.h"

static const uint32_t HIGHEST_VLAN = 4094;

/* VLANs above 1 that exist from the start count as dynamic, as if neighbours had registered them. */
enum VlanType : uint32_t { VLAN_DEFAULT = 1, VLAN_STATIC = 2, VLAN_DYNAMIC = 3 };

/* Auto: in the VLAN if it is a dynamic one. */
enum Participation : uint32_t { PARTICIPATION_AUTO = 0, PARTICIPATION_INCLUDE = 1, PARTICIPATION_EXCLUDE = 2 };

enum Tagging : uint32_t { UNTAGGED = 0, TAGGED = 1 };

/* Both by port; a port that was not set is not there. */
struct Vlan {
    VlanType type;
    std::map<uint32_t, uint32_t> participation;
    std::map<uint32_t, uint32_t> tagging;
};

struct Switchport {
    SwitchportMode mode = MODE_GENERAL;
    uint32_t untaggedVlan[4] = {0, 1, 1, 1};     /* by mode: the access VLAN, the native VLAN, the PVID */
    std::optional<std::set<uint16_t>> allowed;   /* not set: every VLAN, also those to come */
};

static std::map<uint32_t, Vlan> vlans;
static std::map<uint32_t, Switchport> switchports; /* those of which something was set */
static uint32_t mostVlans, deletes;

static const Setting settings[] = {
    {"rpcclt_openapiVlanNameLenGet", nullptr, FOR_SWITCH, 32, 0, 0},
    {"rpcclt_openapiDot1qMaxSupportedVlansGet", nullptr, FOR_SWITCH, HIGHEST_VLAN, 0, 0},
    /* 1 all, 2 tagged only, 3 untagged and priority-tagged only */
    {"rpcclt_openapiVlanIfAcceptFrameTypeGet", "rpcclt_openapiVlanIfAcceptFrameTypeSet", FOR_PORT, 1, 1, 3},
    {"rpcclt_openapiVlanIfNumTrafficClassesGet", nullptr, FOR_PORT, 8, 0, 0},
    {"rpcclt_openapiVlanIfDefaultUserPriorityGet", "rpcclt_openapiVlanIfDefaultUserPrioritySet", FOR_PORT, 0, 0, 7},
    {"rpcclt_openapiQportsEnableIngressFilteringGet", "rpcclt_openapiQportsEnableIngressFilteringSet", FOR_PORT, 0, 0,
     1},
    {"rpcclt_openapiDot1qRxPacketsNotForwardedCountGet", nullptr, FOR_PORT, 0, 0, 0},
    {"rpcclt_openapiVlanGlobalAutoTrunkGet", "rpcclt_openapiVlanGlobalAutoTrunkSet", FOR_SWITCH, 0, 0, 1},
};

int onPort(uint32_t port, uint32_t value, uint32_t *result)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    *result = value;
    return OPEN_OK;
}

bool vlanExists(uint32_t vlan)
{
    return vlans.contains(vlan);
}

std::vector<uint16_t> existingVlans()
{
    std::vector<uint16_t> ids;
    ids.reserve(vlans.size());
    for (const auto &[id, vlan] : vlans)
        ids.push_back((uint16_t)id);
    return ids;
}

std::set<uint16_t> idsOf(const VlanIdList &list)
{
    return {list.ids, list.ids + std::min<uint32_t>(list.count, VLAN_ID_LIST_MAX)};
}

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

static bool isAllowed(uint32_t port, uint32_t vlan)
{
    const auto &allowed = switchport(port).allowed;
    return !allowed || allowed->contains((uint16_t)vlan);
}

std::vector<uint16_t> trunkAllowedVlans(uint32_t port)
{
    std::vector<uint16_t> ids = existingVlans();
    std::erase_if(ids, [port](uint16_t vlan) { return !isAllowed(port, vlan); });
    return ids;
}

uint32_t portPvid(uint32_t port)
{
    const PrivatePort *association = privatePort(port);
    SwitchportMode mode = switchportMode(port);
    if (!association || mode == MODE_TRUNK)
        return switchport(port).untaggedVlan[mode];
    return association->host ? *association->secondaries.begin() : association->primary;
}

static bool modeDecides(uint32_t port)
{
    return switchportMode(port) != MODE_GENERAL || privatePort(port);
}

/* Where the mode decides: is the port in the VLAN? A port with an association is in no other private VLAN. */
static bool modeIncludes(uint32_t port, uint32_t vlan)
{
    const PrivatePort *association = privatePort(port);
    if (association && (vlan == association->primary || association->secondaries.contains((uint16_t)vlan)))
        return true;
    if (switchportMode(port) == MODE_TRUNK)
        return isAllowed(port, vlan) && !(association && isPrivateVlan(vlan));
    return !association && vlan == portPvid(port);
}

static uint32_t participation(uint32_t port, uint32_t vlan)
{
    if (modeDecides(port))
        return modeIncludes(port, vlan) ? PARTICIPATION_INCLUDE : PARTICIPATION_EXCLUDE;
    const auto &configured = vlans.at(vlan).participation;
    auto found = configured.find(port);
    if (found != configured.end())
        return found->second;
    return vlan == 1 ? PARTICIPATION_INCLUDE : PARTICIPATION_AUTO;
}

static uint32_t tagging(uint32_t port, uint32_t vlan)
{
    if (modeDecides(port))
        return switchportMode(port) == MODE_TRUNK && vlan != portPvid(port) ? TAGGED : UNTAGGED;
    const auto &configured = vlans.at(vlan).tagging;
    auto found = configured.find(port);
    if (found != configured.end())
        return found->second;
    return vlans.at(vlan).type == VLAN_DYNAMIC ? TAGGED : UNTAGGED;
}

static bool isForbidden(uint32_t port, uint32_t vlan)
{
    return participation(port, vlan) == PARTICIPATION_EXCLUDE;
}

static bool isAdded(uint32_t port, uint32_t vlan)
{
    return vlans.at(vlan).type == VLAN_DYNAMIC && participation(port, vlan) == PARTICIPATION_AUTO;
}

static bool isMember(uint32_t port, uint32_t vlan)
{
    return participation(port, vlan) == PARTICIPATION_INCLUDE || isAdded(port, vlan);
}

static bool isTaggedMember(uint32_t port, uint32_t vlan)
{
    return isMember(port, vlan) && tagging(port, vlan) == TAGGED;
}

static bool isUntaggedMember(uint32_t port, uint32_t vlan)
{
    return isMember(port, vlan) && tagging(port, vlan) == UNTAGGED;
}

/* The VLANs of which `holds` is true for the port. */
static int listVlans(uint32_t port, bool (*holds)(uint32_t port, uint32_t vlan), VlanIdList *list)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    std::vector<uint16_t> ids = existingVlans();
    std::erase_if(ids, [&](uint16_t vlan) { return !holds(port, vlan); });
    setList(list, ids);
    return OPEN_OK;
}

/* The table */

static void insertVlan(uint32_t vlan, VlanType type)
{
    vlans[vlan] = {type, {}, {}};
    mostVlans = std::max(mostVlans, (uint32_t)vlans.size());
}

static int createVlan(uint32_t vlan)
{
    if (vlan < 1 || vlan > HIGHEST_VLAN)
        return OPEN_BAD_ARGUMENT;
    if (vlanExists(vlan))
        return OPEN_EXISTS;
    insertVlan(vlan, VLAN_STATIC);
    return OPEN_OK;
}

/* Ports whose untagged frames went to the VLAN have them in VLAN 1 again. */
static void forgetVlanOfPorts(uint32_t vlan)
{
    for (auto &[port, own] : switchports) {
        std::replace(std::begin(own.untaggedVlan), std::end(own.untaggedVlan), vlan, 1u);
        if (own.allowed)
            own.allowed->erase((uint16_t)vlan);
    }
}

static void forgetVlanOfFdb(uint32_t vlan)
{
    std::vector<uint64_t> addresses;
    const Fdb &entries = fdb(); /* once: asking again ages */
    for (auto entry = entries.lower_bound({vlan, 0}); entry != entries.end() && entry->first.first == vlan; entry++)
        addresses.push_back(entry->first.second);
    for (uint64_t address : addresses)
        fdbErase(vlan, address);
}

/* VLAN 1 stays. */
static int deleteVlan(uint32_t vlan)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    if (vlan == 1)
        return OPEN_FAILED;
    vlans.erase(vlan);
    deletes++;
    forgetVlanOfPorts(vlan);
    forgetVlanOfFdb(vlan);
    forgetPrivateVlan(vlan);
    forgetVlanOfGroups(vlan);
    forgetVlanOfFilters(vlan);
    forgetSettings(FOR_VLAN, vlan);
    return OPEN_OK;
}

bool vlanIsDynamic(uint32_t vlan)
{
    auto found = vlans.find(vlan);
    return found != vlans.end() && found->second.type == VLAN_DYNAMIC;
}

static uint32_t dynamicVlans()
{
    return (uint32_t)std::count_if(vlans.begin(), vlans.end(),
                                   [](const auto &entry) { return entry.second.type == VLAN_DYNAMIC; });
}

static void serveTable()
{
    SERVE(rpcclt_openapiVlanCreate, createVlan);
    SERVE(rpcclt_openapiVlanDelete, deleteVlan);
    SERVE(rpcclt_openapiMostVlanEntriesGet, [](uint32_t *count) -> int {
        *count = mostVlans;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiStaticVlanEntriesGet, [](uint32_t *count) -> int {
        *count = (uint32_t)vlans.size() - dynamicVlans();
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDynamicVlanEntriesGet, [](uint32_t *count) -> int {
        *count = dynamicVlans();
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDot1qVlanNumDeletesGet, [](uint32_t *count) -> int {
        *count = deletes;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiNextVlanGet, [](uint32_t vlan, uint32_t *next) -> int {
        auto found = vlans.upper_bound(vlan);
        if (found == vlans.end())
            return OPEN_FAILED;
        *next = found->first;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiVlanTypeGet, [](uint32_t vlan, uint32_t *type) -> int {
        if (!vlanExists(vlan))
            return OPEN_BAD_ARGUMENT;
        *type = vlans.at(vlan).type;
        return OPEN_OK;
    });
}

/* Ports in VLANs */

static int setParticipation(uint32_t vlan, uint32_t port, uint32_t mode)
{
    if (!vlanExists(vlan) || !portExists(port) || mode > PARTICIPATION_EXCLUDE)
        return OPEN_BAD_ARGUMENT;
    if (modeDecides(port))
        return OPEN_FAILED;
    vlans.at(vlan).participation[port] = mode;
    return OPEN_OK;
}

static int setTagging(uint32_t port, uint32_t vlan, uint32_t tagged)
{
    if (!vlanExists(vlan) || !portExists(port) || tagged > TAGGED)
        return OPEN_BAD_ARGUMENT;
    if (modeDecides(port))
        return OPEN_FAILED;
    vlans.at(vlan).tagging[port] = tagged;
    return OPEN_OK;
}

static int setUntaggedVlan(uint32_t port, SwitchportMode mode, uint32_t vlan)
{
    if (!portExists(port) || !vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    switchports[port].untaggedVlan[mode] = vlan;
    return OPEN_OK;
}

/* The PVID is that of the port's mode: setting it on an access port sets the access VLAN. */
static int setPvid(uint32_t port, uint32_t vlan)
{
    SwitchportMode mode = switchportMode(port);
    if (privatePort(port) && mode != MODE_TRUNK)
        return vlanExists(vlan) ? OPEN_FAILED : OPEN_BAD_ARGUMENT;
    return setUntaggedVlan(port, mode, vlan);
}

static uint32_t ingressFiltering(uint32_t port)
{
    return (uint32_t)settingValue("rpcclt_openapiQportsEnableIngressFilteringGet", port);
}

static void servePortsInVlans()
{
    SERVE(rpcclt_openapiVlanIfParticipationSet, setParticipation);
    SERVE(rpcclt_openapiVlanIfTaggingSet, setTagging);
    SERVE(rpcclt_openapiVlanIfPvidSet, setPvid);
    SERVE(rpcclt_openapiVlanIfParticipationGet, [](uint32_t vlan, uint32_t port, uint32_t *mode) -> int {
        if (!vlanExists(vlan) || !portExists(port))
            return OPEN_BAD_ARGUMENT;
        *mode = participation(port, vlan);
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiVlanTaggedSetGet, [](uint32_t vlan, uint32_t port, uint32_t *tagged) -> int {
        if (!vlanExists(vlan) || !portExists(port))
            return OPEN_BAD_ARGUMENT;
        *tagged = tagging(port, vlan);
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiVlanVIDListGet, [](uint32_t port, VlanIdList *list, uint32_t *count) {
        int rc = listVlans(port, isMember, list);
        return rc == OPEN_OK ? onPort(port, list->count, count) : rc;
    });
    SERVE(rpcclt_openapiDot1qPortIngressFiltering,
          [](uint32_t port, uint32_t *mode) { return onPort(port, ingressFiltering(port), mode); });
    /* Ports whose mode decides on their VLANs filter, configured or not. */
    SERVE(rpcclt_openapiQportsCurrentIngressFilteringGet, [](uint32_t port, uint32_t *mode) {
        return onPort(port, modeDecides(port) ? 1 : ingressFiltering(port), mode);
    });
}

/* Switchports */

static int setMode(uint32_t port, uint32_t mode)
{
    if (!portExists(port) || mode < MODE_ACCESS || mode > MODE_GENERAL)
        return OPEN_BAD_ARGUMENT;
    switchports[port].mode = (SwitchportMode)mode;
    return OPEN_OK;
}

static int setAllowed(uint32_t port, VlanIdList *list)
{
    std::set<uint16_t> ids = idsOf(*list);
    if (!portExists(port) || !std::all_of(ids.begin(), ids.end(), vlanExists))
        return OPEN_BAD_ARGUMENT;
    switchports[port].allowed = std::move(ids);
    return OPEN_OK;
}

static void serveSwitchports()
{
    SERVE(rpcclt_openapiDot1qSwPortModeSet, setMode);
    SERVE(rpcclt_openapiDot1qSwPortModeGet,
          [](uint32_t port, uint32_t *mode) { return onPort(port, switchportMode(port), mode); });
    SERVE(rpcclt_openapiDot1qSwPortAccessVlanSet,
          [](uint32_t port, uint32_t vlan) { return setUntaggedVlan(port, MODE_ACCESS, vlan); });
    SERVE(rpcclt_openapiDot1qSwPortAccessVlanGet,
          [](uint32_t port, uint32_t *vlan) { return onPort(port, switchport(port).untaggedVlan[MODE_ACCESS], vlan); });
    SERVE(rpcclt_openapiDot1qSwPortTrunkNativeVlanSet,
          [](uint32_t port, uint32_t vlan) { return setUntaggedVlan(port, MODE_TRUNK, vlan); });
    SERVE(rpcclt_openapiDot1qSwPortTrunkNativeVlanGet,
          [](uint32_t port, uint32_t *vlan) { return onPort(port, switchport(port).untaggedVlan[MODE_TRUNK], vlan); });
    SERVE(rpcclt_openapiDot1qSwPortTrunkAllowedVlanListSet, setAllowed);
    SERVE(rpcclt_openapiDot1qSwPortTrunkAllowedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isAllowed, list); });
    SERVE(rpcclt_openapiDot1qSwPortForbiddenVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isForbidden, list); });
    SERVE(rpcclt_openapiDot1qSwPortUntaggedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isUntaggedMember, list); });
    SERVE(rpcclt_openapiDot1qSwPortTaggedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isTaggedMember, list); });
    SERVE(rpcclt_openapiDot1qSwPortDynamicallyAddedVlanListGet,
          [](uint32_t port, VlanIdList *list) { return listVlans(port, isAdded, list); });
    /* Automatic trunking is in force on trunks, while the switch has it on. */
    SERVE(rpcclt_openapiDot1qOperAutoTrunkModeGet, [](uint32_t port, uint32_t *mode) {
        bool on = settingValue("rpcclt_openapiVlanGlobalAutoTrunkGet") == 1;
        return onPort(port, on && switchportMode(port) == MODE_TRUNK ? 1 : 0, mode);
    });
}

void serveVlans()
{
    serveSettings(settings);
    serveTable();
    servePortsInVlans();
    serveSwitchports();
}

void resetVlans()
{
    vlans.clear();
    switchports.clear();
    mostVlans = deletes = 0;
    for (uint32_t vlan = 1; vlan <= modelOptions().stationVlans; vlan++)
        insertVlan(vlan, vlan == 1 ? VLAN_DEFAULT : VLAN_DYNAMIC);
}
