/*
 * model.cpp - the virtual switch as a whole: its start, its time, and what its families share.
 */
#include "vswitch/switch/model.h"

#include <ctype.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <string_view>

#include "vswitch/base/commands.h"
#include "vswitch/frames/forwarding.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

static ModelOptions options;
static uint64_t startedMillis, passedMillis;
static uint64_t heldMillis; /* when the clock was stopped, 0 while it runs */
static uint64_t broughtTo;  /* the second of the last bringUpToNow() */
static bool changed;        /* since then */

static uint64_t clockMillis()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (uint64_t)now.tv_sec * 1000 + (uint64_t)now.tv_nsec / 1000000;
}

uint64_t uptimeMillis()
{
    return (heldMillis ? heldMillis : clockMillis()) - startedMillis + passedMillis;
}

uint64_t uptimeSeconds()
{
    return uptimeMillis() / 1000;
}

void passTime(uint64_t seconds)
{
    passedMillis += 1000 * seconds;
}

static CommandOutcome hold(const Words &, std::string *)
{
    if (!heldMillis)
        heldMillis = clockMillis();
    return COMMAND_DONE;
}

static const Command clockCommands[] = {
    {"hold", "", "stop the clock: from now on only \"pass\" moves it, until \"reset\"", hold},
};

static void serveSystem()
{
    SERVE(rpcclt_openapiConnectivityCheck, []() -> int { return OPEN_OK; });
    SERVE(rpcclt_openapiNetworkOSVersionGet, [](OpenBufferDesc *version) { return setText(version, "9.1.0.4"); });
    SERVE(rpcclt_openapiApiVersionGet, [](OpenApiVersion *version) -> int {
        *version = {1, 26, 0, 1, {}};
        return OPEN_OK;
    });
}

void createModel(const ModelOptions &chosen)
{
    options = chosen;
    registerCommands("the switch:", clockCommands);
    serveSystem();
    servePorts();
    serveBridge();
    serveFdb();
    serveStations();
    serveVlans();
    serveSwitchports();
    servePrivateVlans();
    serveClassification();
    serveFilters();
    serveStormControl();
    serveProtectedPorts();
    serveLoopProtection();
    serveRegistration();
    serveVoice();
    serveAccessLists();
    resetModel();
}

void resetModel()
{
    startedMillis = clockMillis();
    passedMillis = heldMillis = 0;
    resetSettings();
    resetForwarding();
    resetPorts();
    resetVlans();
    resetSwitchports();
    resetPrivateVlans();
    resetClassification();
    resetFilters();
    resetStormControl();
    resetProtectedPorts();
    resetLoopProtection();
    resetRegistration();
    resetVoice();
    resetAccessLists();
    resetFdb();
    resetStations(); /* live in VLANs, on ports, and in the forwarding database */
    stateChanged();
}

const ModelOptions &modelOptions()
{
    return options;
}

bool trafficIsMadeUp()
{
    return !portsArePlugged();
}

void stateChanged()
{
    changed = true;
}

void bringUpToNow()
{
    uint64_t now = uptimeSeconds();
    if (now == broughtTo && !changed)
        return;
    broughtTo = now;
    passLoopProtection(now);
    passStormControl();
    passPorts(now);
    passRegistration(now);
    passVlans();
    passStations(now);
    if (changed)
        settleStations(now);
    changed = false;
    passAccessLists(now);
}

int runOperation(const Operation &operation, Arguments &arguments)
{
    if (!operation.run)
        return OPEN_UNSUPPORTED;
    bringUpToNow();
    int code = operation.run(arguments);
    std::string_view name = operation.name;
    bool onlyAsks = name.ends_with("Get") || name.ends_with("Next") || name.ends_with("Check");
    if (!onlyAsks) {
        stateChanged();
        bringUpToNow();
    }
    return code;
}

uint64_t bridgeMac()
{
    return 0x02A0C9000001;
}

std::string macText(uint64_t mac)
{
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", (unsigned)(mac >> 40 & 0xFF),
             (unsigned)(mac >> 32 & 0xFF), (unsigned)(mac >> 24 & 0xFF), (unsigned)(mac >> 16 & 0xFF),
             (unsigned)(mac >> 8 & 0xFF), (unsigned)(mac & 0xFF));
    return text;
}

std::string ouiText(uint32_t oui)
{
    return macText((uint64_t)oui << 24).substr(0, 8);
}

static bool parseOctets(const std::string &text, size_t octets, uint64_t *value)
{
    if (text.size() != 3 * octets - 1)
        return false;
    uint64_t read = 0;
    for (size_t i = 0; i < text.size(); i++) {
        char c = text[i];
        if (i % 3 == 2) {
            if (c != ':' && c != '-')
                return false;
            continue;
        }
        if (!isxdigit((unsigned char)c))
            return false;
        read = read << 4 | (uint64_t)(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
    }
    *value = read;
    return true;
}

bool parseMac(const std::string &text, uint64_t *mac)
{
    return parseOctets(text, 6, mac);
}

bool parseOui(const std::string &text, uint32_t *oui)
{
    uint64_t octets;
    if (!parseOctets(text, 3, &octets) || isGroup(octets << 24))
        return false;
    *oui = (uint32_t)octets;
    return true;
}

int tell(uint32_t value, uint32_t *result)
{
    *result = value;
    return OPEN_OK;
}

int onInterface(uint32_t port, uint32_t value, uint32_t *result)
{
    return interfaceExists(port) ? tell(value, result) : (int)OPEN_BAD_ARGUMENT;
}

int onPort(uint32_t port, uint32_t value, uint32_t *result)
{
    return portExists(port) ? tell(value, result) : (int)OPEN_BAD_ARGUMENT;
}

int tellNext(uint32_t next, uint32_t *result)
{
    return next ? tell(next, result) : (int)OPEN_FAILED;
}

std::set<uint16_t> idsOf(const VlanIdList &list)
{
    return {list.ids, list.ids + std::min<uint32_t>(list.count, VLAN_ID_LIST_MAX)};
}
