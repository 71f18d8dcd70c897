/*
 * model_port_filtering.cpp - what the virtual switch keeps from passing its ports: storms, traffic between protected
 * ports, loops.
 */
#include <algorithm>
#include <map>
#include <set>

#include "model.h"
#include "operations.h"
#include "port_list.h"
#include "settings.h"

static int tell(uint32_t kept, uint32_t *value)
{
    *value = kept;
    return OPEN_OK;
}

/*
 * Storm control: for each kind of traffic a state, a threshold and an action of the switch, and beside them a state and
 * a threshold of each port. Neither changes the other. Actions: 0 none, 1 shut down, 2 limit the rate, 3 trap.
 */

enum StormType : uint32_t { STORM_UNICAST = 1, STORM_BROADCAST, STORM_MULTICAST };
enum StormUnit : uint32_t { STORM_PERCENT = 1, STORM_PPS, STORM_KBPS };

static const uint32_t HIGHEST_STORM_ACTION = 3;
static const uint32_t DEFAULT_UNIT = STORM_PERCENT, DEFAULT_THRESHOLD = 5;

struct StormControl {
    uint32_t state = 0;
    uint32_t unit = DEFAULT_UNIT, threshold = DEFAULT_THRESHOLD;
    uint32_t action = 0;
};

static std::map<std::pair<uint32_t, uint32_t>, StormControl> storms; /* by kind of traffic and port; 0 is the switch */

/* The thresholds of a gigabit port: its packets of 64 bytes, and no rate below what its policers can hold. */
static const struct { uint32_t unit, lowest, highest; } stormRanges[] = {
    {STORM_PERCENT, 0, 100},
    {STORM_PPS, 0, 1488095},
    {STORM_KBPS, 64, 1000000},
};

static int stormRange(uint32_t unit, uint32_t *lowest, uint32_t *highest)
{
    for (const auto &range : stormRanges)
        if (range.unit == unit) {
            *lowest = range.lowest;
            *highest = range.highest;
            return OPEN_OK;
        }
    return OPEN_BAD_ARGUMENT;
}

/* What is kept for the switch, or for a port; null for what is no kind of traffic, or no port. */
static StormControl *stormOf(uint32_t type)
{
    return type >= STORM_UNICAST && type <= STORM_MULTICAST ? &storms[{type, 0}] : nullptr;
}

static StormControl *stormOf(uint32_t type, uint32_t port)
{
    return stormOf(type) && portExists(port) ? &storms[{type, port}] : nullptr;
}

static int setUpTo(uint32_t highest, uint32_t value, StormControl *storm, uint32_t StormControl::*number)
{
    if (!storm || value > highest)
        return OPEN_BAD_ARGUMENT;
    storm->*number = value;
    return OPEN_OK;
}

static int tellStorm(const StormControl *storm, uint32_t StormControl::*number, uint32_t *value)
{
    return storm ? tell(storm->*number, value) : OPEN_BAD_ARGUMENT;
}

static int setThreshold(StormControl *storm, uint32_t unit, uint32_t threshold)
{
    uint32_t lowest, highest;
    if (!storm || stormRange(unit, &lowest, &highest) != OPEN_OK || threshold < lowest || threshold > highest)
        return OPEN_BAD_ARGUMENT;
    storm->unit = unit;
    storm->threshold = threshold;
    return OPEN_OK;
}

static int tellThreshold(const StormControl *storm, uint32_t *unit, uint32_t *threshold)
{
    tellStorm(storm, &StormControl::unit, unit);
    return tellStorm(storm, &StormControl::threshold, threshold);
}

static void serveStormControl()
{
    static const Setting settings[] = {
        {"rpcclt_openapiSwDevCtrlBcastStormControlActionIntfGet",
         "rpcclt_openapiSwDevCtrlBcastStormControlActionIntfSet", FOR_PORT, 0, 0, HIGHEST_STORM_ACTION},
    };
    serveSettings(settings);

    SERVE(rpcclt_openapiStormControlModeSet, [](uint32_t type, uint32_t state) {
        return setUpTo(1, state, stormOf(type), &StormControl::state);
    });
    SERVE(rpcclt_openapiStormControlModeGet, [](uint32_t type, uint32_t *state) {
        return tellStorm(stormOf(type), &StormControl::state, state);
    });
    SERVE(rpcclt_openapiStormControlIntfModeSet, [](uint32_t type, uint32_t port, uint32_t state) {
        return setUpTo(1, state, stormOf(type, port), &StormControl::state);
    });
    SERVE(rpcclt_openapiStormControlIntfModeGet, [](uint32_t type, uint32_t port, uint32_t *state) {
        return tellStorm(stormOf(type, port), &StormControl::state, state);
    });
    SERVE(rpcclt_openapiStormControlActionSet, [](uint32_t type, uint32_t action) {
        return setUpTo(HIGHEST_STORM_ACTION, action, stormOf(type), &StormControl::action);
    });
    SERVE(rpcclt_openapiStormControlActionGet, [](uint32_t type, uint32_t *action) {
        return tellStorm(stormOf(type), &StormControl::action, action);
    });

    SERVE(rpcclt_openapiStormControlThresholdSet, [](uint32_t type, uint32_t unit, uint32_t threshold) {
        return setThreshold(stormOf(type), unit, threshold);
    });
    SERVE(rpcclt_openapiStormControlThresholdGet, [](uint32_t type, uint32_t *unit, uint32_t *threshold) {
        return tellThreshold(stormOf(type), unit, threshold);
    });
    SERVE(rpcclt_openapiStormControlThresholdDefaultSet,
          [](uint32_t type) { return setThreshold(stormOf(type), DEFAULT_UNIT, DEFAULT_THRESHOLD); });
    SERVE(rpcclt_openapiStormControlIntfThresholdSet,
          [](uint32_t type, uint32_t port, uint32_t unit, uint32_t threshold) {
              return setThreshold(stormOf(type, port), unit, threshold);
          });
    SERVE(rpcclt_openapiStormControlIntfThresholdGet,
          [](uint32_t type, uint32_t port, uint32_t *unit, uint32_t *threshold) {
              return tellThreshold(stormOf(type, port), unit, threshold);
          });
    SERVE(rpcclt_openapiStormControlIntfThresholdDefaultSet, [](uint32_t type, uint32_t port) {
        return setThreshold(stormOf(type, port), DEFAULT_UNIT, DEFAULT_THRESHOLD);
    });
    SERVE(rpcclt_openapiStormControlThresholdMinMaxGet, stormRange);
}

/* Protected ports: the groups 1 to 3. A port is in one of them at most. */

static const uint32_t PROTECTED_GROUPS = 3;
static const size_t GROUP_NAME_MAX = 32; /* bytes; the empty name is none */

static std::map<uint32_t, std::string> groupNames;
static std::set<std::pair<uint32_t, uint32_t>> memberships; /* (port, group), in which order they are walked */

static bool groupExists(uint32_t group)
{
    return group >= 1 && group <= PROTECTED_GROUPS;
}

static PortSet membersOf(uint32_t group)
{
    PortSet ports;
    for (auto [port, ofGroup] : memberships)
        if (ofGroup == group)
            ports.insert(port);
    return ports;
}

/* The group of a port, 0 for none. */
static uint32_t groupOf(uint32_t port)
{
    auto found = memberships.lower_bound({port, 0});
    return found != memberships.end() && found->first == port ? found->second : 0;
}

static int addMember(uint32_t port, uint32_t group)
{
    if (!portExists(port) || !groupExists(group))
        return OPEN_BAD_ARGUMENT;
    if (uint32_t present = groupOf(port))
        return present == group ? OPEN_EXISTS : OPEN_FAILED;
    memberships.insert({port, group});
    return OPEN_OK;
}

static void serveProtectedPorts()
{
    SERVE(rpcclt_openapiProtectedPortMaxGroups, [](uint32_t *maxGroups) { return tell(PROTECTED_GROUPS, maxGroups); });
    SERVE(rpcclt_openapiProtectedPortGroupNameGet, [](uint32_t group, OpenBufferDesc *name) -> int {
        return groupExists(group) ? setText(name, groupNames[group]) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiProtectedPortGroupNameSet, [](uint32_t group, OpenBufferDesc *name) -> int {
        std::string text = textOf(name);
        if (!groupExists(group) || text.size() > GROUP_NAME_MAX)
            return OPEN_BAD_ARGUMENT;
        groupNames[group] = text;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiProtectedPortGroupIntfCountGet, [](uint32_t group, uint32_t *count) -> int {
        return groupExists(group) ? tell((uint32_t)membersOf(group).size(), count) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiProtectedPortGroupIntfListGet, [](uint32_t group, OpenBufferDesc *list) -> int {
        return groupExists(group) ? setText(list, portListText(membersOf(group))) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiProtectedPortGroupGet, [](uint32_t port, uint32_t *group) -> int {
        if (!portExists(port))
            return OPEN_BAD_ARGUMENT;
        uint32_t found = groupOf(port);
        return found ? tell(found, group) : OPEN_FAILED;
    });
    SERVE(rpcclt_openapiProtectedPortNextGroupGet,
          [](uint32_t port, uint32_t group, uint32_t *nextPort, uint32_t *nextGroup) -> int {
              auto next = memberships.upper_bound({port, group});
              if (next == memberships.end())
                  return OPEN_FAILED;
              *nextPort = next->first;
              return tell(next->second, nextGroup);
          });
    SERVE(rpcclt_openapiProtectedPortGroupIntfAdd, addMember);
    SERVE(rpcclt_openapiProtectedPortGroupIntfDelete, [](uint32_t port, uint32_t group) -> int {
        if (!portExists(port) || !groupExists(group))
            return OPEN_BAD_ARGUMENT;
        return memberships.erase({port, group}) ? OPEN_OK : OPEN_FAILED;
    });
}

/*
 * Loop protection. While it is on for the switch and for a port that has a link and transmits, the port sends a
 * detection frame at once and then every transmit interval. On port 3 there is a loop, and each frame comes back; as
 * many of them as may be received make a loop, and the port takes its action: 1 shut down (for so many seconds as the
 * disable timer says, 0 until loop protection is switched off and on again), 2 log, 3 both. From the factory it is on
 * for the switch and for port 3, which logs.
 */

static const uint32_t LOOPED_PORT = 3;

enum LoopAction : uint32_t { LOOP_SHUT_DOWN = 1, LOOP_LOG, LOOP_BOTH };

struct LoopPort {
    uint32_t tpid = 0x8100, vlan = 0; /* of its frames; VLAN 0 is no tag */
    uint64_t nextFrame = 0;           /* when, in seconds since start */
    uint32_t sent = 0, received = 0, loops = 0;
    uint64_t lastLoop = 0;
    uint64_t disabledUntil = 0;
};

static std::map<uint32_t, LoopPort> loopPorts;

static const Setting loopSettings[] = {
    {"rpcclt_openapiLoopProtectAdminModeGet", "rpcclt_openapiLoopProtectAdminModeSet", FOR_SWITCH, 1, 0, 1},
    {"rpcclt_openapiLoopProtectTxTimerGet", "rpcclt_openapiLoopProtectTxTimerSet", FOR_SWITCH, 5, 1, 10},
    {"rpcclt_openapiLoopProtectMaxPduReceiveGet", "rpcclt_openapiLoopProtectMaxPduReceiveSet", FOR_SWITCH, 1, 1, 10},
    {"rpcclt_openapiLoopProtectDisableTimerGet", "rpcclt_openapiLoopProtectDisableTimerSet", FOR_SWITCH, 0, 0, 604800},
    {"rpcclt_openapiLoopProtectPortTxModeGet", "rpcclt_openapiLoopProtectPortTxModeSet", FOR_PORT, 1, 0, 1},
    {"rpcclt_openapiLoopProtectPortAdminModeGet", "rpcclt_openapiLoopProtectPortAdminModeSet", FOR_PORT, 0, 0, 1},
    {"rpcclt_openapiLoopProtectPortActionGet", "rpcclt_openapiLoopProtectPortActionSet", FOR_PORT, LOOP_LOG,
     LOOP_SHUT_DOWN, LOOP_BOTH},
};

static void receiveFrame(uint32_t port, LoopPort &state)
{
    if (++state.received % settingValue("rpcclt_openapiLoopProtectMaxPduReceiveGet"))
        return;
    state.loops++;
    state.lastLoop = state.nextFrame;
    uint64_t disabledFor = settingValue("rpcclt_openapiLoopProtectDisableTimerGet");
    if (settingValue("rpcclt_openapiLoopProtectPortActionGet", port) != LOOP_LOG)
        state.disabledUntil = disabledFor ? state.nextFrame + disabledFor : UINT64_MAX;
}

/* What happened on the port up to now. */
static LoopPort &upToNow(uint32_t port)
{
    LoopPort &state = loopPorts[port];
    uint64_t now = uptimeSeconds(), interval = settingValue("rpcclt_openapiLoopProtectTxTimerGet");
    bool guarded = settingValue("rpcclt_openapiLoopProtectAdminModeGet") &&
                   settingValue("rpcclt_openapiLoopProtectPortAdminModeGet", port);
    if (!guarded)
        state.disabledUntil = 0;
    if (!guarded || !portHasLink(port) || !settingValue("rpcclt_openapiLoopProtectPortTxModeGet", port)) {
        state.nextFrame = now;
        return state;
    }
    while (state.nextFrame <= now) {
        if (state.nextFrame < state.disabledUntil) {
            if (state.disabledUntil > now)
                break;
            state.nextFrame = state.disabledUntil;
        }
        state.sent++;
        if (port == LOOPED_PORT)
            receiveFrame(port, state);
        state.nextFrame += interval;
    }
    return state;
}

/* Runs `use` on a port as it is now. */
template <class Use> static int withLoopPort(uint32_t port, Use use)
{
    return portExists(port) ? use(upToNow(port)) : (int)OPEN_BAD_ARGUMENT;
}

template <uint32_t LoopPort::*count> static int tellCount(uint32_t port, uint32_t *result)
{
    return withLoopPort(port, [=](const LoopPort &state) { return tell(state.*count, result); });
}

static int clearLoopStats(LoopPort &state)
{
    state.sent = state.received = state.loops = 0;
    state.lastLoop = 0;
    return OPEN_OK;
}

static void serveLoopProtection()
{
    serveSettings(loopSettings);
    for (const Setting &setting : loopSettings) { /* what is set holds from now on, not for what happened before */
        auto &run = operationNamed(setting.set).run;
        run = [set = run](Arguments &arguments) {
            for (uint32_t port = nextPort(0); port; port = nextPort(port))
                upToNow(port);
            return set(arguments);
        };
    }

    SERVE(rpcclt_openapiLoopProtectPortVlanPropertiesSet, [](uint32_t port, uint32_t tpid, uint32_t vlan) -> int {
        if (!portExists(port) || tpid < 0x600 || tpid > 0xFFFF || vlan > 4094) /* below 0x600 it is no EtherType */
            return OPEN_BAD_ARGUMENT;
        loopPorts[port].tpid = tpid;
        loopPorts[port].vlan = vlan;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiLoopProtectPortVlanPropertiesGet, [](uint32_t port, uint32_t *tpid, uint32_t *vlan) -> int {
        return withLoopPort(port, [=](LoopPort &state) {
            *tpid = state.tpid;
            return tell(state.vlan, vlan);
        });
    });

    SERVE(rpcclt_openapiLoopProtectPortPacketTxCountGet, tellCount<&LoopPort::sent>);
    SERVE(rpcclt_openapiLoopProtectPortPacketRxCountGet, tellCount<&LoopPort::received>);
    SERVE(rpcclt_openapiLoopProtectPortloopDetectCountGet, tellCount<&LoopPort::loops>);
    SERVE(rpcclt_openapiLoopProtectIsLoopDetected, [](uint32_t port, uint32_t *flag) -> int {
        return withLoopPort(port, [=](LoopPort &state) { return tell(state.loops != 0, flag); });
    });
    SERVE(rpcclt_openapiLoopProtectIsPortDisabled, [](uint32_t port, uint32_t *flag) -> int {
        return withLoopPort(port, [=](LoopPort &state) { return tell(state.disabledUntil > uptimeSeconds(), flag); });
    });
    /* Seconds; 0 without a loop as well. */
    SERVE(rpcclt_openapiLoopProtectPortTimeSinceLastLoopGet, [](uint32_t port, uint32_t *time, uint32_t) -> int {
        return withLoopPort(port, [=](LoopPort &state) {
            return tell(state.loops ? (uint32_t)(uptimeSeconds() - state.lastLoop) : 0, time);
        });
    });
    SERVE(rpcclt_openapiLoopProtectPortStatsClear, [](uint32_t port) { return withLoopPort(port, clearLoopStats); });
    SERVE(rpcclt_openapiLoopProtectAllStatsClear, []() -> int {
        for (uint32_t port = nextPort(0); port; port = nextPort(port))
            clearLoopStats(upToNow(port));
        return OPEN_OK;
    });

    SERVE(rpcclt_openapiLoopProtectValidIntfFirstGet, [](uint32_t *first) { return tell(nextPort(0), first); });
    SERVE(rpcclt_openapiLoopProtectValidIntfNextGet, [](uint32_t port, uint32_t *next) -> int {
        uint32_t found = nextPort(port);
        return found ? tell(found, next) : OPEN_FAILED;
    });
    SERVE(rpcclt_openapiLoopProtectIsValidIntf,
          [](uint32_t port, uint32_t *flag) -> int { return tell(portExists(port), flag); });
}

void servePortFiltering()
{
    serveStormControl();
    serveProtectedPorts();
    serveLoopProtection();
}

void resetPortFiltering()
{
    storms.clear();
    groupNames.clear();
    memberships.clear();
    loopPorts.clear();
    setSettingValue("rpcclt_openapiLoopProtectPortAdminModeGet", LOOPED_PORT, 1);
}
