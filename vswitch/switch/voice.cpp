/*
 * voice.cpp - the voice VLAN of ports, and the priority of VoIP traffic, which is recognised by protocol or OUI.
 */
#include <algorithm>
#include <map>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

enum : uint32_t { MAX_CALLS = 16 };

static Setting adminMode = {.name = "VoiceVlanAdminMode", .settable = true};
static Setting portMode = {.name = "VoiceVlanPortAdminMode", .scope = FOR_PORT, .initial = VOICE_DISABLED};
static Setting portVlan = {.name = "VoiceVlanPortVlanId", .scope = FOR_PORT}; /* 0: none */
static Setting portPriority = {.name = "VoiceVlanPortDot1pPriority", .scope = FOR_PORT, .initial = 5, .settable = true};
static Setting cosOverride = {.name = "VoiceVlanPortCosOverrideMode", .scope = FOR_PORT, .settable = true};
static Setting authState = {.name = "VoiceVlanPortAuthState", .scope = FOR_PORT, .initial = 1, .settable = true};
static Setting dscp = {.name = "VoiceVlanPortDscp", .scope = FOR_PORT, .initial = 46, .settable = true};
static Setting voipVlan = {.name = "VoipGlobalVlanId"}; /* 0: none */
static Setting maxCalls = {.name = "VoipMaxCalls", .initial = MAX_CALLS};
static Setting ouiPriority = {.name = "VoipOUIPriority", .initial = 7, .settable = true};

/* Voice VLAN */

uint32_t voiceVlan(uint32_t port)
{
    uint32_t vlan = (uint32_t)portVlan.value(port);
    bool on = adminMode.value() && portMode.value(port) == VOICE_VLAN;
    return on && vlanExists(vlan) && !isForbidden(port, vlan) ? vlan : 0;
}

VoicePolicy voicePolicy(uint32_t port)
{
    uint32_t mode = (uint32_t)portMode.value(port), vlan = voiceVlan(port);
    bool tagged = vlan || mode == VOICE_PRIORITY;
    if (!adminMode.value() || (!tagged && mode != VOICE_UNTAGGED))
        return {};
    return {true, tagged, vlan, (uint32_t)portPriority.value(port), (uint32_t)dscp.value(port)};
}

bool voiceOverridesPriority(uint32_t port)
{
    return voiceVlan(port) && cosOverride.value(port);
}

/* VLAN 0: none, so the mode that needs a VLAN ends. */
static int portVlanSet(uint32_t port, uint32_t vlan)
{
    if (!portExists(port) || (vlan && !vlanIsConfigured(vlan)))
        return OPEN_BAD_ARGUMENT;
    portVlan.put(port, vlan);
    if (!vlan && portMode.value(port) == VOICE_VLAN)
        portMode.put(port, VOICE_DISABLED);
    return OPEN_OK;
}

/* `value` is the VLAN of VOICE_VLAN and the priority of VOICE_PRIORITY; the other modes ignore it. */
static int portModeSet(uint32_t port, uint32_t mode, uint32_t value)
{
    if (!portExists(port) || mode > VOICE_UNTAGGED || (mode == VOICE_PRIORITY && !USER_PRIORITY.contains(value)) ||
        (mode == VOICE_VLAN && !vlanIsConfigured(value)))
        return OPEN_BAD_ARGUMENT;
    if (mode == VOICE_VLAN)
        portVlan.put(port, value);
    if (mode == VOICE_PRIORITY)
        portPriority.put(port, value);
    portMode.put(port, mode);
    return OPEN_OK;
}

/* 1 if voice works on the port: it is enabled for switch and port, the port is up, and a VLAN of the mode exists. */
static int portStatusGet(uint32_t port, uint32_t *status)
{
    uint64_t mode = portMode.value(port);
    bool works = mode == VOICE_VLAN ? voiceVlan(port) != 0 : mode != VOICE_DISABLED && adminMode.value();
    return portExists(port) ? store(works && portIsUp(port), status) : (int)OPEN_BAD_ARGUMENT;
}

static void forgetVlan(uint32_t vlan)
{
    for (auto [port, set] : portVlan.values)
        if (set == vlan)
            portVlanSet(port, 0);
    if (voipVlan.value() == vlan)
        voipVlan.put(0, 0);
}

/* VoIP on the ports */

static uint32_t priorityScheme, priorityValue;
static std::map<std::pair<uint32_t, uint32_t>, uint32_t> detection; /* flags by port and type */

static int detectionGet(uint32_t port, uint32_t type, uint32_t *flag)
{
    if (!portExists(port) || type < BY_PROTOCOL || type > BY_OUI)
        return OPEN_BAD_ARGUMENT;
    return store(valueIn(detection, {port, type}), flag);
}

static int detectionSet(uint32_t port, uint32_t type, uint32_t flag)
{
    if (!portExists(port) || type < BY_PROTOCOL || type > BY_OUI || flag > 1)
        return OPEN_BAD_ARGUMENT;
    detection[{port, type}] = flag;
    return OPEN_OK;
}

template <VoipDetection type> static int detectionStatus(uint32_t port, uint32_t *status)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    return store(valueIn(detection, {port, type}) && portIsUp(port) ? VOIP_UP : VOIP_DOWN, status);
}

/* Simulated: one call on each port that recognises VoIP by protocol. More than the most are refused. */
static int sessionsGet(uint32_t *count)
{
    *count = 0;
    for (const auto &[key, flag] : detection)
        *count += key.second == BY_PROTOCOL && flag && portIsUp(key.first);
    *count = std::min(*count, (uint32_t)maxCalls.value());
    return OPEN_OK;
}

/* The value is a priority or a traffic class; both are 0 to 7. */
static int cosQueueSet(uint32_t scheme, uint32_t value)
{
    if (scheme < SCHEME_REMARK || scheme > SCHEME_TRAFFIC_CLASS || !VOIP_VALUE.contains(value))
        return OPEN_BAD_ARGUMENT;
    priorityScheme = scheme;
    priorityValue = value;
    return OPEN_OK;
}

/* The table of OUIs, by index. Each OUI is unique. */

struct OuiEntry {
    uint32_t oui;
    std::string description;
};
static std::map<uint32_t, OuiEntry> ouis;
using OuiPosition = std::map<uint32_t, OuiEntry>::iterator;

static OuiPosition positionOf(uint32_t oui)
{
    return std::find_if(ouis.begin(), ouis.end(), [=](const auto &entry) { return entry.second.oui == oui; });
}

/* The entry with the lowest OUI >= `lowest`. */
static OuiPosition positionFrom(uint32_t lowest)
{
    OuiPosition next = ouis.end();
    for (OuiPosition entry = ouis.begin(); entry != ouis.end(); entry++)
        if (entry->second.oui >= lowest && (next == ouis.end() || entry->second.oui < next->second.oui))
            next = entry;
    return next;
}

static int storeEntry(OuiPosition entry, OpenBufferDesc *oui, OpenBufferDesc *description)
{
    if (entry == ouis.end() || setText(oui, ouiText(entry->second.oui)) != OPEN_OK)
        return OPEN_FAILED;
    return setText(description, entry->second.description);
}

static bool validIndex(uint32_t index)
{
    return OUI_INDEX.contains(index);
}

static uint32_t lowestFreeIndex()
{
    uint32_t index = 1;
    while (ouis.contains(index))
        index++;
    return index;
}

VoipSource voipSource(uint32_t port, uint64_t mac)
{
    auto flag = detection.find({port, BY_OUI});
    if (flag == detection.end() || !flag->second || positionOf((uint32_t)(mac >> 24)) == ouis.end())
        return {};
    return {true, (uint32_t)ouiPriority.value(), (uint32_t)voipVlan.value()};
}

static int addOui(uint32_t index, const OpenBufferDesc *text, const OpenBufferDesc *description)
{
    uint32_t oui;
    if (!parseOui(textOf(text), &oui) || textOf(description).size() > 32)
        return OPEN_BAD_ARGUMENT;
    if (ouis.contains(index) || positionOf(oui) != ouis.end())
        return OPEN_EXISTS;
    if (!validIndex(index)) /* the table is full */
        return OPEN_FAILED;
    ouis[index] = {oui, textOf(description)};
    return OPEN_OK;
}

static int removeOui(OpenBufferDesc *text)
{
    uint32_t oui;
    if (!parseOui(textOf(text), &oui))
        return OPEN_BAD_ARGUMENT;
    return std::erase_if(ouis, [&](const auto &entry) { return entry.second.oui == oui; }) ? OPEN_OK : OPEN_FAILED;
}

static void registerOuis()
{
    DO(rpcclt_openapiVoipOuiAdd, [](OpenBufferDesc *oui, OpenBufferDesc *description) {
        return addOui(lowestFreeIndex(), oui, description);
    });
    DO(rpcclt_openapiVoipOuiRemove, removeOui);
    ASK(rpcclt_openapiVoipOuiCountGet, [](uint32_t *count) { return store((uint32_t)ouis.size(), count); });
    ASK(rpcclt_openapiVoipOuiFirstEntryGet, [](OpenBufferDesc *oui, OpenBufferDesc *description) {
        return storeEntry(positionFrom(0), oui, description);
    });
    ASK(rpcclt_openapiVoipOuiDescGet, [](OpenBufferDesc *text, OpenBufferDesc *description) -> int {
        uint32_t oui;
        if (!parseOui(textOf(text), &oui))
            return OPEN_BAD_ARGUMENT;
        OuiPosition entry = positionOf(oui);
        return entry == ouis.end() ? (int)OPEN_FAILED : setText(description, entry->second.description);
    });
    ASK(rpcclt_openapiVoipOuiNextEntryGet,
        [](OpenBufferDesc *text, OpenBufferDesc *next, OpenBufferDesc *nextDescription) -> int {
            uint32_t oui;
            return parseOui(textOf(text), &oui) ? storeEntry(positionFrom(oui + 1), next, nextDescription)
                                                : OPEN_BAD_ARGUMENT;
        });
    ASK(rpcclt_openapiVoipOuiEntryGet,
        [](uint32_t index, OpenBufferDesc *oui, OpenBufferDesc *description) -> int {
            return validIndex(index) ? storeEntry(ouis.find(index), oui, description) : OPEN_BAD_ARGUMENT;
        });
    ASK(rpcclt_openapiVoipOuiEntryNextGet,
        [](uint32_t index, OpenBufferDesc *oui, OpenBufferDesc *description, uint32_t *next) -> int {
            OuiPosition entry = ouis.upper_bound(index);
            if (entry != ouis.end())
                *next = entry->first;
            return storeEntry(entry, oui, description);
        });
    DO(rpcclt_openapiVoipIndexOuiAdd,
        [](uint32_t index, OpenBufferDesc *oui, OpenBufferDesc *description) -> int {
            return validIndex(index) ? addOui(index, oui, description) : OPEN_BAD_ARGUMENT;
        });
    DO(rpcclt_openapiVoipIndexOuiRemove, [](uint32_t index) -> int {
        if (!validIndex(index))
            return OPEN_BAD_ARGUMENT;
        return ouis.erase(index) ? OPEN_OK : OPEN_FAILED;
    });
}

void registerVoice()
{
    onVlanEnd(forgetVlan);
    registerSettings({&adminMode, &portMode, &portVlan, &portPriority, &cosOverride, &authState, &dscp, &voipVlan,
                      &maxCalls, &ouiPriority});

    DO(rpcclt_openapiVoiceVlanPortAdminModeSet, portModeSet);
    DO(rpcclt_openapiVoiceVlanPortVlanIdSet, portVlanSet);
    ASK(rpcclt_openapiVoiceVlanPortStatusGet, portStatusGet);

    DO(rpcclt_openapiVoipGlobalVlanIdSet, [](uint32_t vlan) -> int {
        if (vlan && !vlanIsConfigured(vlan))
            return OPEN_BAD_ARGUMENT;
        voipVlan.put(0, vlan);
        return OPEN_OK;
    });
    DO(rpcclt_openapiVoipGlobalVlanIdReset, []() -> int {
        voipVlan.put(0, 0);
        return OPEN_OK;
    });
    ASK(rpcclt_openapiVoipNumActiveProtocolSessionsGet, sessionsGet);
    DO(rpcclt_openapiVoipProfileCosQueueSet, cosQueueSet);
    ASK(rpcclt_openapiVoipProfileCosQueueGet, [](uint32_t *scheme, uint32_t *value) {
        *scheme = priorityScheme;
        return store(priorityValue, value);
    });
    ASK(rpcclt_openapiVoipIntfModeGet, detectionGet);
    DO(rpcclt_openapiVoipIntfModeSet, detectionSet);
    ASK(rpcclt_openapiVoipIntfProtocolStatusGet, detectionStatus<BY_PROTOCOL>);
    ASK(rpcclt_openapiVoipIntfOUIStatusGet, detectionStatus<BY_OUI>);
    registerOuis();
}

/* The factory OUIs are locally administered, so they belong to no manufacturer. */
void resetVoice()
{
    priorityScheme = SCHEME_TRAFFIC_CLASS;
    priorityValue = 6;
    detection.clear();
    ouis = {
        {1, {0x7E4091, "Desk phones"}},
        {2, {0x2A5D01, "Conference phones"}},
        {3, {0xB60CE3, "Door intercoms"}},
    };
}
