/*
 * loop_protection.cpp - loop protection: when is a detection frame due on a port, and what follows when it comes back?
 *
 * A port is in one of four states:
 *
 *     OFF        loop protection is off for the switch or the port, or the port has no link
 *     LISTENING  on; no frame is due here, as transmission is off or probes.cpp sends to real hosts
 *     SENDING    on; simulated traffic: a frame is due at `nextFrame`
 *     SHUT       loop protection shut the port down until `shutUntil`
 *
 * Transitions:
 *
 *     any            -> OFF        turnOff: protection or the link went
 *     OFF, SENDING   -> LISTENING  listen: protection is on, transmission off
 *     OFF, LISTENING -> SENDING    startSending: both are on
 *     any but SHUT   -> SHUT       shutDown: enough frames came back, and the action is not LOOP_LOG
 *     SHUT           -> SENDING    reopen: `shutUntil` has come; with transmission off, listen follows at once
 */
#include <vector>

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

enum State { OFF, LISTENING, SENDING, SHUT };

struct LoopPort {
    uint32_t tpid = 0x8100, vlan = 0; /* of its frames; VLAN 0: untagged */
    bool looped = false;              /* simulated: every frame comes back */
    State state = OFF;
    uint64_t nextFrame = 0, shutUntil = 0; /* uptime in seconds */
    bool cameBack = false;                 /* the last frame */
    bool detected = false;                 /* a loop, and it has not ended */
    uint32_t pending = 0;                  /* frames that came back since the last action */
    uint64_t sent = 0, received = 0, loops = 0, lastLoop = 0;
};

static std::vector<LoopPort> loopPorts; /* by port */

static Setting adminMode = {.name = "LoopProtectAdminMode", .settable = true};
static Setting txTimer = {.name = "LoopProtectTxTimer", .initial = 5, .settable = true};
static Setting maxReceived = {.name = "LoopProtectMaxPduReceive", .initial = 1, .settable = true};
static Setting disableTimer = {.name = "LoopProtectDisableTimer", .settable = true};
static Setting portTxMode = {.name = "LoopProtectPortTxMode", .scope = FOR_PORT, .initial = 1, .settable = true};
static Setting portAdminMode = {.name = "LoopProtectPortAdminMode", .scope = FOR_PORT, .settable = true};
static Setting portAction = {.name = "LoopProtectPortAction", .scope = FOR_PORT,
                             .initial = LOOP_SHUT_DOWN, .settable = true};

static bool isProtected(uint32_t number)
{
    return adminMode.value() && portAdminMode.value(number) && portHasLink(number) &&
           portStatus(number) != PORT_BLOCKED && portStatus(number) != PORT_LEARNING;
}

LoopProbe loopProbe(uint32_t number)
{
    if (!portExists(number))
        return {};
    const LoopPort &port = loopPorts[number];
    bool sends = isProtected(number) && portTxMode.value(number) && port.state != SHUT;
    return {sends, port.tpid, port.vlan, (uint32_t)txTimer.value()};
}

/* Transitions */

static void turnOff(uint32_t number)
{
    loopPorts[number].state = OFF;
    loopPorts[number].detected = false;
    setPortShut(number, PORT_LOOP_SHUT, false);
}

static void listen(uint32_t number)
{
    loopPorts[number].state = LISTENING;
}

static void startSending(uint32_t number, uint64_t now)
{
    LoopPort &port = loopPorts[number];
    port.state = SENDING;
    port.nextFrame = std::max(port.nextFrame, now);
}

static void shutDown(uint32_t number, uint64_t when)
{
    LoopPort &port = loopPorts[number];
    port.state = SHUT;
    port.pending = 0;
    port.shutUntil = disableTimer.value() ? when + disableTimer.value() : UINT64_MAX;
    setPortShut(number, PORT_LOOP_SHUT, true);
    advancePorts(when);
    stateChanged();
}

static void reopen(uint32_t number)
{
    LoopPort &port = loopPorts[number];
    port.state = SENDING;
    port.nextFrame = port.shutUntil;
    setPortShut(number, PORT_LOOP_SHUT, false);
    advancePorts(port.shutUntil);
}

/* Frames */

void loopFrameSent(uint32_t number)
{
    LoopPort &port = loopPorts[number];
    port.sent++;
    port.detected &= port.cameBack;
    port.cameBack = false;
}

/* `frames` came back, the last one at `when`. Each `maxReceived` of them are one loop. */
static void receive(uint32_t number, uint64_t frames, uint64_t when)
{
    LoopPort &port = loopPorts[number];
    uint64_t needed = maxReceived.value(), together = port.pending + frames;
    port.received += frames;
    port.cameBack = true;
    port.pending = (uint32_t)(together % needed);
    if (together < needed)
        return;
    port.loops += together / needed;
    port.lastLoop = when - port.pending * txTimer.value(); /* the pending frames came later */
    port.detected = true;
    if (portAction.value(number) != LOOP_LOG)
        shutDown(number, when);
}

void loopFrameReceived(uint32_t number)
{
    if (isProtected(number) && loopPorts[number].state != SHUT)
        receive(number, 1, uptimeSeconds());
}

/* How many more frames must come back to make a loop. */
static uint64_t framesToLoop(const LoopPort &port)
{
    return maxReceived.value() > port.pending ? maxReceived.value() - port.pending : 1;
}

/* Simulated: will frames that come back shut the port down? */
static bool willBeShut(uint32_t number)
{
    return loopPorts[number].looped && portAction.value(number) != LOOP_LOG && isProtected(number) &&
           portTxMode.value(number) && trafficIsSimulated();
}

/* Sends the frames that are due until `now`. Stops at the frame that shuts the port down. */
static void sendDue(uint32_t number, uint64_t now)
{
    LoopPort &port = loopPorts[number];
    uint64_t interval = txTimer.value(), due = (now - port.nextFrame) / interval + 1;
    if (willBeShut(number))
        due = std::min(due, framesToLoop(port));
    uint64_t last = port.nextFrame + (due - 1) * interval;
    port.sent += due;
    port.nextFrame = last + interval;
    port.detected &= port.looped; /* a frame that does not come back ends the loop */
    if (port.looped)
        receive(number, due, last);
}

static void advancePort(uint32_t number, uint64_t now)
{
    LoopPort &port = loopPorts[number];
    if (!isProtected(number))
        return turnOff(number);
    bool sends = trafficIsSimulated() && portTxMode.value(number);
    while (port.state != SHUT || port.shutUntil <= now) {
        if (port.state == SHUT)
            reopen(number);
        if (!sends)
            return listen(number);
        if (port.state != SENDING)
            startSending(number, now);
        if (port.nextFrame > now)
            return;
        sendDue(number, now);
    }
}

void advanceLoopProtection(uint64_t now)
{
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        advancePort(port, now);
}

uint64_t nextLoopEvent()
{
    uint64_t next = UINT64_MAX;
    for (uint32_t number = nextPort(0); number; number = nextPort(number)) {
        const LoopPort &port = loopPorts[number];
        if (port.state == SHUT)
            next = std::min(next, port.shutUntil);
        else if (port.state == SENDING && willBeShut(number))
            next = std::min(next, port.nextFrame + (framesToLoop(port) - 1) * txTimer.value());
    }
    return next;
}

static bool isInRounds(uint32_t port)
{
    return disableTimer.value() && willBeShut(port);
}

uint64_t loopRoundSeconds()
{
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        if (isInRounds(port))
            return disableTimer.value() + (maxReceived.value() - 1) * txTimer.value();
    return 0;
}

PortSet collectLoopValues(Values *values)
{
    PortSet inRounds;
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        if (isInRounds(port)) {
            inRounds.insert(port);
            values->push_back(&loopPorts[port].shutUntil);
        }
    for (uint32_t number : inRounds) {
        LoopPort &port = loopPorts[number];
        values->insert(values->end(), {&port.sent, &port.received, &port.loops, &port.lastLoop, &port.nextFrame});
    }
    return inRounds;
}

/* Operations */

/* Clears the counters only: the state and the timers stay. */
static int clearStats(uint32_t number)
{
    if (!portExists(number))
        return OPEN_BAD_ARGUMENT;
    LoopPort &port = loopPorts[number];
    port.sent = port.received = port.loops = 0;
    return OPEN_OK;
}

/* 0 as well when there was no loop. */
static uint64_t secondsSinceLoop(uint32_t port)
{
    return loopPorts[port].lastLoop ? uptimeSeconds() - loopPorts[port].lastLoop : 0;
}

static int setVlanProperties(uint32_t port, uint32_t tpid, uint32_t vlan)
{
    if (!portExists(port) || !ETHER_TYPE.contains(tpid) || !VLAN_OR_NONE.contains(vlan))
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
    uint32_t port;
    if (!readPort(args[0], deviceOptions().ports, &port, answer))
        return COMMAND_REFUSED;
    if (args[1] != "on" && args[1] != "off")
        return refuse(answer, "a loop is \"on\" or \"off\", not \"" + args[1] + "\"");
    loopPorts[port].looped = args[1] == "on";
    return COMMAND_DONE;
}

void registerLoopProtection()
{
    registerSettings({&adminMode, &txTimer, &maxReceived, &disableTimer, &portTxMode, &portAdminMode, &portAction});
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "loop", .usage = "PORT on|off", .fewest = 2, .most = 2,
         .help = "connects a loop to the port, or removes it", .run = loop},
    };
    registerCommands(commands);

    DO(rpcclt_openapiLoopProtectPortVlanPropertiesSet, setVlanProperties);
    ASK(rpcclt_openapiLoopProtectPortVlanPropertiesGet, getVlanProperties);
    ASK(rpcclt_openapiLoopProtectPortPacketTxCountGet, ofPort<[](uint32_t port) { return loopPorts[port].sent; }>);
    ASK(rpcclt_openapiLoopProtectPortPacketRxCountGet, ofPort<[](uint32_t port) { return loopPorts[port].received; }>);
    ASK(rpcclt_openapiLoopProtectPortloopDetectCountGet, ofPort<[](uint32_t port) { return loopPorts[port].loops; }>);
    ASK(rpcclt_openapiLoopProtectIsLoopDetected, ofPort<[](uint32_t port) { return loopPorts[port].detected; }>);
    ASK(rpcclt_openapiLoopProtectIsPortDisabled, ofPort<[](uint32_t port) { return loopPorts[port].state == SHUT; }>);
    ASK(rpcclt_openapiLoopProtectPortTimeSinceLastLoopGet, [](uint32_t port, uint32_t *time, uint32_t) {
        return ofPort<secondsSinceLoop>(port, time);
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
