/*
 * model_voice.cpp - the virtual switch's voice VLAN, and its automatic prioritisation of VoIP with the table of OUIs.
 */
#include <ctype.h>

#include <algorithm>
#include <map>

#include "model.h"
#include "operations.h"
#include "settings.h"

/* How a phone on a port is told to send: untold, tagged with a VLAN, with a priority only, as it likes, untagged. */
enum PortMode : uint32_t { VOICE_DISABLED, VOICE_VLAN, VOICE_PRIORITY, VOICE_NONE, VOICE_UNTAGGED };

/* How VoIP is recognised on a port. */
enum DetectionType : uint32_t { BY_PROTOCOL = 1, BY_OUI = 2 };

enum : uint32_t { MAX_CALLS = 16, OUI_INDEXES = 32 };

static const Setting settings[] = {
    {"rpcclt_openapiVoiceVlanAdminModeGet", "rpcclt_openapiVoiceVlanAdminModeSet", FOR_SWITCH, 0, 0, 1},
    {"rpcclt_openapiVoiceVlanPortAdminModeGet", nullptr, FOR_PORT, VOICE_DISABLED, 0, 0},
    {"rpcclt_openapiVoiceVlanPortVlanIdGet", nullptr, FOR_PORT, 0, 0, 0}, /* 0: none was set */
    {"rpcclt_openapiVoiceVlanPortDot1pPriorityGet", "rpcclt_openapiVoiceVlanPortDot1pPrioritySet", FOR_PORT, 5, 0, 7},
    {"rpcclt_openapiVoiceVlanPortCosOverrideModeGet", "rpcclt_openapiVoiceVlanPortCosOverrideModeSet", FOR_PORT,
     0, 0, 1},
    {"rpcclt_openapiVoiceVlanPortAuthStateGet", "rpcclt_openapiVoiceVlanPortAuthStateSet", FOR_PORT, 1, 0, 1},
    {"rpcclt_openapiVoiceVlanPortDscpGet", "rpcclt_openapiVoiceVlanPortDscpSet", FOR_PORT, 46, 0, 63},
    {"rpcclt_openapiVoipGlobalVlanIdGet", nullptr, FOR_SWITCH, 0, 0, 0}, /* 0: none */
    {"rpcclt_openapiVoipMaxCallsGet", nullptr, FOR_SWITCH, MAX_CALLS, 0, 0},
    {"rpcclt_openapiVoipOUIPriorityGet", "rpcclt_openapiVoipOUIPrioritySet", FOR_SWITCH, 7, 0, 7},
};

/* Voice VLAN */

/* The VLAN must exist when it is set; phones are told of it also when it is deleted later. */
static int portVlanSet(uint32_t port, uint32_t vlan)
{
    if (!portExists(port) || !vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    setSettingValue("rpcclt_openapiVoiceVlanPortVlanIdGet", port, vlan);
    return OPEN_OK;
}

/* The value is the VLAN or the priority that goes with the mode; the other modes have none and do not look at it. */
static int portModeSet(uint32_t port, uint32_t mode, uint32_t value)
{
    if (!portExists(port) || mode > VOICE_UNTAGGED || (mode == VOICE_PRIORITY && value > 7))
        return OPEN_BAD_ARGUMENT;
    if (mode == VOICE_VLAN && portVlanSet(port, value) != OPEN_OK)
        return OPEN_BAD_ARGUMENT;
    if (mode == VOICE_PRIORITY)
        setSettingValue("rpcclt_openapiVoiceVlanPortDot1pPriorityGet", port, value);
    setSettingValue("rpcclt_openapiVoiceVlanPortAdminModeGet", port, mode);
    return OPEN_OK;
}

/* 1 where the voice VLAN is in force: enabled for the switch and on a port that has a link. */
static int portStatusGet(uint32_t port, uint32_t *status)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    *status = settingValue("rpcclt_openapiVoiceVlanAdminModeGet") &&
              settingValue("rpcclt_openapiVoiceVlanPortAdminModeGet", port) != VOICE_DISABLED && portHasLink(port);
    return OPEN_OK;
}

/* VoIP on the ports */

static uint32_t priorityScheme, priorityValue;
static std::map<std::pair<uint32_t, uint32_t>, uint32_t> detection; /* flags by port and type */

static int detectionGet(uint32_t port, uint32_t type, uint32_t *flag)
{
    if (!portExists(port) || type < BY_PROTOCOL || type > BY_OUI)
        return OPEN_BAD_ARGUMENT;
    *flag = detection[{port, type}];
    return OPEN_OK;
}

static int detectionSet(uint32_t port, uint32_t type, uint32_t flag)
{
    if (!portExists(port) || type < BY_PROTOCOL || type > BY_OUI || flag > 1)
        return OPEN_BAD_ARGUMENT;
    detection[{port, type}] = flag;
    return OPEN_OK;
}

/* 0 (up) where it is enabled and the port has a link, 1 (down) elsewhere. */
static int detectionStatus(uint32_t port, uint32_t type, uint32_t *status)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    *status = detection[{port, type}] && portHasLink(port) ? 0 : 1;
    return OPEN_OK;
}

/* One call is carried on each port on which VoIP is recognised by protocol. */
static int sessionsGet(uint32_t *count)
{
    *count = 0;
    for (const auto &[key, flag] : detection)
        *count += key.second == BY_PROTOCOL && flag && portHasLink(key.first);
    return OPEN_OK;
}

/* Scheme 1 remarks to a priority, 2 puts into a traffic class: 0 to 7 either way. */
static int cosQueueSet(uint32_t scheme, uint32_t value)
{
    if (scheme < 1 || scheme > 2 || value > 7)
        return OPEN_BAD_ARGUMENT;
    priorityScheme = scheme;
    priorityValue = value;
    return OPEN_OK;
}

/* The table of OUIs, by index and by OUI ("2A:5D:01", kept in capitals). No OUI is in it twice. */

struct OuiEntry {
    std::string oui;
    std::string description;
};
static std::map<uint32_t, OuiEntry> ouis;
using OuiPosition = std::map<uint32_t, OuiEntry>::iterator;

static bool parseOui(const OpenBufferDesc *text, std::string *oui)
{
    *oui = textOf(text);
    if (oui->size() != 8)
        return false;
    for (size_t i = 0; i < 8; i++) {
        char &c = (*oui)[i];
        if (i % 3 == 2 ? c != ':' : !isxdigit((unsigned char)c))
            return false;
        c = (char)toupper((unsigned char)c);
    }
    return true;
}

static OuiPosition positionOf(const std::string &oui)
{
    return std::find_if(ouis.begin(), ouis.end(), [&](const auto &entry) { return entry.second.oui == oui; });
}

/* The entry with the lowest OUI behind `oui`. */
static OuiPosition positionAfter(const std::string &oui)
{
    OuiPosition next = ouis.end();
    for (OuiPosition entry = ouis.begin(); entry != ouis.end(); entry++)
        if (entry->second.oui > oui && (next == ouis.end() || entry->second.oui < next->second.oui))
            next = entry;
    return next;
}

static int giveEntry(OuiPosition entry, OpenBufferDesc *oui, OpenBufferDesc *description)
{
    if (entry == ouis.end() || setText(oui, entry->second.oui) != OPEN_OK)
        return OPEN_FAILED;
    return setText(description, entry->second.description);
}

static bool validIndex(uint32_t index)
{
    return index >= 1 && index <= OUI_INDEXES;
}

static uint32_t lowestFreeIndex()
{
    uint32_t index = 1;
    while (ouis.contains(index))
        index++;
    return index;
}

static int addOui(uint32_t index, const OpenBufferDesc *text, const OpenBufferDesc *description)
{
    std::string oui;
    if (!parseOui(text, &oui) || textOf(description).size() > 32)
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
    std::string oui;
    if (!parseOui(text, &oui))
        return OPEN_BAD_ARGUMENT;
    return std::erase_if(ouis, [&](const auto &entry) { return entry.second.oui == oui; }) ? OPEN_OK : OPEN_FAILED;
}

static void serveOuis()
{
    SERVE(rpcclt_openapiVoipOuiAdd, [](OpenBufferDesc *oui, OpenBufferDesc *description) {
        return addOui(lowestFreeIndex(), oui, description);
    });
    SERVE(rpcclt_openapiVoipOuiRemove, removeOui);
    SERVE(rpcclt_openapiVoipOuiCountGet, [](uint32_t *count) -> int {
        *count = (uint32_t)ouis.size();
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiVoipOuiFirstEntryGet, [](OpenBufferDesc *oui, OpenBufferDesc *description) {
        return giveEntry(positionAfter(""), oui, description);
    });
    SERVE(rpcclt_openapiVoipOuiDescGet, [](OpenBufferDesc *text, OpenBufferDesc *description) -> int {
        std::string oui;
        if (!parseOui(text, &oui))
            return OPEN_BAD_ARGUMENT;
        OuiPosition entry = positionOf(oui);
        return entry == ouis.end() ? (int)OPEN_FAILED : setText(description, entry->second.description);
    });
    SERVE(rpcclt_openapiVoipOuiNextEntryGet,
          [](OpenBufferDesc *text, OpenBufferDesc *next, OpenBufferDesc *nextDescription) -> int {
              std::string oui;
              return parseOui(text, &oui) ? giveEntry(positionAfter(oui), next, nextDescription) : OPEN_BAD_ARGUMENT;
          });
    SERVE(rpcclt_openapiVoipOuiEntryGet,
          [](uint32_t index, OpenBufferDesc *oui, OpenBufferDesc *description) -> int {
              return validIndex(index) ? giveEntry(ouis.find(index), oui, description) : OPEN_BAD_ARGUMENT;
          });
    SERVE(rpcclt_openapiVoipOuiEntryNextGet,
          [](uint32_t index, OpenBufferDesc *oui, OpenBufferDesc *description, uint32_t *next) -> int {
              OuiPosition entry = ouis.upper_bound(index);
              if (entry != ouis.end())
                  *next = entry->first;
              return giveEntry(entry, oui, description);
          });
    SERVE(rpcclt_openapiVoipIndexOuiAdd,
          [](uint32_t index, OpenBufferDesc *oui, OpenBufferDesc *description) -> int {
              return validIndex(index) ? addOui(index, oui, description) : OPEN_BAD_ARGUMENT;
          });
    SERVE(rpcclt_openapiVoipIndexOuiRemove, [](uint32_t index) -> int {
        if (!validIndex(index))
            return OPEN_BAD_ARGUMENT;
        return ouis.erase(index) ? OPEN_OK : OPEN_FAILED;
    });
}

void serveVoice()
{
    serveSettings(settings);

    SERVE(rpcclt_openapiVoiceVlanPortAdminModeSet, portModeSet);
    SERVE(rpcclt_openapiVoiceVlanPortVlanIdSet, portVlanSet);
    SERVE(rpcclt_openapiVoiceVlanPortStatusGet, portStatusGet);

    SERVE(rpcclt_openapiVoipGlobalVlanIdSet, [](uint32_t vlan) -> int {
        if (!vlanExists(vlan))
            return OPEN_BAD_ARGUMENT;
        setSettingValue("rpcclt_openapiVoipGlobalVlanIdGet", 0, vlan);
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiVoipGlobalVlanIdReset, []() -> int {
        setSettingValue("rpcclt_openapiVoipGlobalVlanIdGet", 0, 0);
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiVoipNumActiveProtocolSessionsGet, sessionsGet);
    SERVE(rpcclt_openapiVoipProfileCosQueueSet, cosQueueSet);
    SERVE(rpcclt_openapiVoipProfileCosQueueGet, [](uint32_t *scheme, uint32_t *value) -> int {
        *scheme = priorityScheme;
        *value = priorityValue;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiVoipIntfModeGet, detectionGet);
    SERVE(rpcclt_openapiVoipIntfModeSet, detectionSet);
    SERVE(rpcclt_openapiVoipIntfProtocolStatusGet,
          [](uint32_t port, uint32_t *status) { return detectionStatus(port, BY_PROTOCOL, status); });
    SERVE(rpcclt_openapiVoipIntfOUIStatusGet,
          [](uint32_t port, uint32_t *status) { return detectionStatus(port, BY_OUI, status); });
    serveOuis();
}

/* The OUIs from the factory belong to no maker: they are of locally administered addresses. */
void resetVoice()
{
    priorityScheme = 2;
    priorityValue = 6;
    detection.clear();
    ouis = {
        {1, {"7E:40:91", "Desk phones"}},
        {2, {"2A:5D:01", "Conference phones"}},
        {3, {"B6:0C:E3", "Door intercoms"}},
    };
}
