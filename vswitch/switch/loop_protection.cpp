/*
 * loop_protection.cpp - the virtual switch's loop protection: frames that are due, and those that come back.
 */
#include <vector>

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

struct LoopPort {
    uint32_t tpid = 0x8100, vlan = 0; /* of its frames; VLAN 0 is no tag */
    bool loop = false;                /* made up: each frame comes back */
    bool cameBack = false;            /* the last frame that was really sent */
    bool sending = false, detected = false, shut = false;
    uint64_t nextFrame = 0, shutUntil = 0; /* uptime in seconds */
    uint32_t pending = 0;                  /* frames that came back since the last action */
    uint64_t sent = 0, received = 0, loops = 0, lastLoop = 0;
};

static std::vector<LoopPort> loopPorts; /* by port */

static Setting adminMode = {.get = "rpcclt_openapiLoopProtectAdminModeGet",
    .set = "rpcclt_openapiLoopProtectAdminModeSet", .highest = 1};
static Setting txTimer = {.get = "rpcclt_openapiLoopProtectTxTimerGet", .set = "rpcclt_openapiLoopProtectTxTimerSet",
    .initial = 5, .lowest = 1, .highest = 10};
static Setting maxReceived = {.get = "rpcclt_openapiLoopProtectMaxPduReceiveGet",
    .set = "rpcclt_openapiLoopProtectMaxPduReceiveSet", .initial = 1, .lowest = 1, .highest = 10};
static Setting disableTimer = {.get = "rpcclt_openapiLoopProtectDisableTimerGet",
    .set = "rpcclt_openapiLoopProtectDisableTimerSet", .highest = 604800};
static Setting portTxMode = {.get = "rpcclt_openapiLoopProtectPortTxModeGet",
    .set = "rpcclt_openapiLoopProtectPortTxModeSet", .scope = FOR_PORT, .initial = 1, .highest = 1};
static Setting portAdminMode = {.get = "rpcclt_openapiLoopProtectPortAdminModeGet",
    .set = "rpcclt_openapiLoopProtectPortAdminModeSet", .scope = FOR_PORT, .highest = 1};
static Setting portAction = {.get = "rpcclt_openapiLoopProtectPortActionGet",
    .set = "rpcclt_openapiLoopProtectPortActionSet", .scope = FOR_PORT, .initial = LOOP_SHUT_DOWN,
    .lowest = LOOP_SHUT_DOWN, .highest = LOOP_BOTH};

static void setShut(uint32_t port, bool shut)
{
    loopPorts[port].shut = shut;
    setPortShut(port, PORT_LOOP_SHUT, shut);
}

static bool isGuarded(uint32_t port)
{
    return adminMode.value() && portAdminMode.value(port) && portHasLink(port);
}

LoopProbe loopProbe(uint32_t port)
{
    if (!portExists(port))
        return {};
    bool sends = isGuarded(port) && portTxMode.value(port) && !loopPorts[port].shut;
    return {sends, loopPorts[port].tpid, loopPorts[port].vlan, (uint32_t)txTimer.value()};
}

void loopFrameSent(uint32_t port)
{
    LoopPort &own = loopPorts[port];
    own.sent++;
    own.detected &= own.cameBack;
    own.cameBack = false;
}

/* So many frames come back, the last of them at `when`; no more than make one loop unless the action is only to log it. */
static void receive(uint32_t port, uint64_t frames, uint64_t when)
{
    LoopPort &own = loopPorts[port];
    uint64_t needed = maxReceived.value(), together = own.pending + frames;
    own.received += frames;
    own.cameBack = true;
    own.pending = (uint32_t)(together % needed);
    if (together < needed)
        return;
    own.loops += together / needed;
    own.lastLoop = when;
    own.detected = true;
    if (portAction.value(port) == LOOP_LOG)
        return;
    own.pending = 0;
    setShut(port, true);
    own.shutUntil = disableTimer.value() ? when + disableTimer.value() : UINT64_MAX;
    advancePorts(when);
    stateChanged();
}

void loopFrameReceived(uint32_t port)
{
    if (isGuarded(port) && !loopPorts[port].shut)
        receive(port, 1, uptimeSeconds());
}

/* The frames that are due up to `now`, or up to the next action. */
static void sendDue(uint32_t port, uint64_t now)
{
    LoopPort &own = loopPorts[port];
    uint64_t interval = txTimer.value(), due = (now - own.nextFrame) / interval + 1;
    if (own.loop && portAction.value(port) != LOOP_LOG) {
        uint64_t needed = maxReceived.value() > own.pending ? maxReceived.value() - own.pending : 1;
        due = std::min(due, needed);
    }
    uint64_t last = own.nextFrame + (due - 1) * interval;
    own.sent += due;
    own.nextFrame = last + interval;
    own.detected &= own.loop; /* a frame that does not come back: the loop is gone */
    if (own.loop)
        receive(port, due, last);
}

/* A port that opens finds the loop again, and is shut again: all but the last of these rounds at once. */
static void skipRounds(uint32_t port, uint64_t now)
{
    LoopPort &own = loopPorts[port];
    uint64_t frames = maxReceived.value(), round = (frames - 1) * txTimer.value() + disableTimer.value();
    if (!own.loop || !disableTimer.value() || !portTxMode.value(port) || now < own.shutUntil + 2 * round ||
        portAction.value(port) == LOOP_LOG)
        return;
    uint64_t rounds = (now - own.shutUntil) / round - 1;
    own.sent += rounds * frames;
    own.received += rounds * frames;
    own.loops += rounds;
    own.lastLoop += rounds * round;
    own.shutUntil += rounds * round;
}

static void advancePort(uint32_t port, uint64_t now)
{
    LoopPort &own = loopPorts[port];
    if (!isGuarded(port)) {
        own.sending = own.detected = false;
        setShut(port, false);
        return;
    }
    if (own.shut && own.shutUntil <= now)
        skipRounds(port, now);
    while (true) {
        if (own.shut && own.shutUntil > now)
            return;
        if (own.shut) {
            setShut(port, false);
            own.nextFrame = own.shutUntil;
            advancePorts(own.shutUntil);
        }
        bool sends = trafficIsSimulated() && portTxMode.value(port);
        if (sends && !own.sending)
            own.nextFrame = std::max(own.nextFrame, now);
        own.sending = sends;
        if (!sends || own.nextFrame > now)
            return;
        sendDue(port, now);
    }
}

void advanceLoopProtection(uint64_t now)
{
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        advancePort(port, now);
}

/* Operations */

template <uint64_t LoopPort::*count> static int storeCount(uint32_t port, uint32_t *result)
{
    return portExists(port) ? store((uint32_t)(loopPorts[port].*count), result) : (int)OPEN_BAD_ARGUMENT;
}

template <bool LoopPort::*state> static int storeState(uint32_t port, uint32_t *result)
{
    return portExists(port) ? store(loopPorts[port].*state, result) : (int)OPEN_BAD_ARGUMENT;
}

/* Counters only: what the port is and waits for stays. */
static int clearStats(uint32_t port)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    LoopPort &own = loopPorts[port];
    own.sent = own.received = own.loops = 0;
    return OPEN_OK;
}

static int setVlanProperties(uint32_t port, uint32_t tpid, uint32_t vlan)
{
    if (!portExists(port) || tpid < 0x600 || tpid > 0xFFFF || vlan > HIGHEST_VLAN) /* below 0x600 it is no EtherType */
        return OPEN_BAD_ARGUMENT;
    loopPorts[port].tpid = tpid;
    loopPorts[port].vlan = vlan;
    return OPEN_OK;
}

static int getVlanProperties(uint32_t port, uint32_t *tpid, uint32_t *vlan)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    *tpid = loopPorts[port].tpid;
    return store(loopPorts[port].vlan, vlan);
}

static CommandOutcome loop(const Args &args, std::string *answer)
{
    long long port;
    if (!readNumber(args[0], 1, deviceOptions().ports, &port))
        return refuse(answer, "there is no port \"" + args[0] + "\"");
    if (args[1] != "on" && args[1] != "off")
        return refuse(answer, "a loop is \"on\" or \"off\", not \"" + args[1] + "\"");
    loopPorts[(size_t)port].loop = args[1] == "on";
    return COMMAND_DONE;
}

void registerLoopProtection()
{
    registerSettings({&adminMode, &txTimer, &maxReceived, &disableTimer, &portTxMode, &portAdminMode, &portAction});
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "loop", .usage = "PORT on|off", .fewest = 2, .most = 2,
         .help = "a loop behind the port comes or goes", .run = loop},
    };
    registerCommands(commands);

    DO(rpcclt_openapiLoopProtectPortVlanPropertiesSet, setVlanProperties);
    ASK(rpcclt_openapiLoopProtectPortVlanPropertiesGet, getVlanProperties);
    ASK(rpcclt_openapiLoopProtectPortPacketTxCountGet, storeCount<&LoopPort::sent>);
    ASK(rpcclt_openapiLoopProtectPortPacketRxCountGet, storeCount<&LoopPort::received>);
    ASK(rpcclt_openapiLoopProtectPortloopDetectCountGet, storeCount<&LoopPort::loops>);
    ASK(rpcclt_openapiLoopProtectIsLoopDetected, storeState<&LoopPort::detected>);
    ASK(rpcclt_openapiLoopProtectIsPortDisabled, storeState<&LoopPort::shut>);
    /* Seconds; 0 as well when there was none. */
    ASK(rpcclt_openapiLoopProtectPortTimeSinceLastLoopGet, [](uint32_t port, uint32_t *time, uint32_t) {
        uint64_t last = portExists(port) ? loopPorts[port].lastLoop : 0;
        return portExists(port) ? store(last ? (uint32_t)(uptimeSeconds() - last) : 0, time) : (int)OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiLoopProtectPortStatsClear, clearStats);
    DO(rpcclt_openapiLoopProtectAllStatsClear, []() -> int {
        for (uint32_t port = nextPort(0); port; port = nextPort(port))
            clearStats(port);
        return OPEN_OK;
    });

    ASK(rpcclt_openapiLoopProtectValidIntfFirstGet, [](uint32_t *first) { return store(nextPort(0), first); });
    ASK(rpcclt_openapiLoopProtectValidIntfNextGet,
          [](uint32_t port, uint32_t *next) { return storeNext(nextPort(port), next); });
    ASK(rpcclt_openapiLoopProtectIsValidIntf,
          [](uint32_t port, uint32_t *flag) { return store(portExists(port), flag); });
}

void resetLoopProtection()
{
    loopPorts.assign(deviceOptions().ports + 1, {});
}
