/*
 * storm_control.cpp - the virtual switch's storm control: the switch's, the ports' own, and what is in force.
 */
#include <algorithm>
#include <map>
#include <optional>

#include "vswitch/base/commands.h"
#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

struct Threshold {
    uint32_t unit = STORM_PERCENT, value = 5;
};

struct SwitchControl {
    uint32_t state = 0, action = STORM_NONE;
    Threshold threshold;
};

struct PortControl {
    std::optional<uint32_t> state, action; /* what was not set is the switch's */
    std::optional<Threshold> threshold;
};

static const uint32_t MOST_PPS = 1488095; /* packets of 64 bytes at a gigabit */

/* No rate below what policers can hold. */
static const struct { uint32_t unit, lowest, highest; } ranges[] = {
    {STORM_PERCENT, 0, 100},
    {STORM_PPS, 0, MOST_PPS},
    {STORM_KBPS, 64, 1000000},
};

static std::map<uint32_t, SwitchControl> switchControls; /* by kind */
static std::map<std::pair<uint32_t, uint32_t>, PortControl> portControls; /* by kind and port */
static std::set<std::pair<uint32_t, uint32_t>> shut;                /* ports, and the kinds that shut them */

static int rangeOf(uint32_t unit, uint32_t *lowest, uint32_t *highest)
{
    for (const auto &range : ranges)
        if (range.unit == unit) {
            *lowest = range.lowest;
            *highest = range.highest;
            return OPEN_OK;
        }
    return OPEN_BAD_ARGUMENT;
}

static bool isThreshold(const Threshold &threshold)
{
    uint32_t lowest, highest;
    return rangeOf(threshold.unit, &lowest, &highest) == OPEN_OK && threshold.value >= lowest &&
           threshold.value <= highest;
}

static bool isKind(uint32_t kind)
{
    return kind >= STORM_UNICAST && kind <= STORM_MULTICAST;
}

/* What is in force on a port */

static PortControl controlSet(uint32_t kind, uint32_t port)
{
    return valueIn(portControls, {kind, port});
}

static uint32_t stateOn(uint32_t kind, uint32_t port)
{
    return controlSet(kind, port).state.value_or(valueIn(switchControls, kind).state);
}

static Threshold thresholdOn(uint32_t kind, uint32_t port)
{
    return controlSet(kind, port).threshold.value_or(valueIn(switchControls, kind).threshold);
}

static uint32_t actionOn(uint32_t kind, uint32_t port)
{
    return controlSet(kind, port).action.value_or(valueIn(switchControls, kind).action);
}

static uint64_t packetsPerSecond(const Threshold &threshold)
{
    if (threshold.unit == STORM_PERCENT)
        return (uint64_t)MOST_PPS * threshold.value / 100;
    return threshold.unit == STORM_PPS ? threshold.value : (uint64_t)threshold.value * 1000 / 512; /* bits of a smallest frame */
}

StormLimit stormLimit(uint32_t port, StormKind kind)
{
    if (!portExists(port) || !stateOn(kind, port))
        return {UINT64_MAX, STORM_NONE};
    return {packetsPerSecond(thresholdOn(kind, port)), (StormAction)actionOn(kind, port)};
}

static bool isShut(uint32_t port)
{
    auto found = shut.lower_bound({port, 0});
    return found != shut.end() && found->first == port;
}

void stormExceeded(uint32_t port, StormKind kind)
{
    if (stormLimit(port, kind).action == STORM_SHUT_DOWN) {
        shut.insert({port, kind});
        setPortShut(port, PORT_STORM_SHUT, true);
        stateChanged();
    }
}

void advanceStormControl()
{
    for (auto at = shut.begin(); at != shut.end();) {
        auto [port, kind] = *at;
        bool over = !portHasLink(port) || !stateOn(kind, port);
        at = over ? shut.erase(at) : std::next(at);
        if (over)
            setPortShut(port, PORT_STORM_SHUT, isShut(port));
    }
}

/* Operations of the switch */

static int setState(uint32_t kind, uint32_t state)
{
    if (!isKind(kind) || state > 1)
        return OPEN_BAD_ARGUMENT;
    switchControls[kind].state = state;
    return OPEN_OK;
}

static int setAction(uint32_t kind, uint32_t action)
{
    if (!isKind(kind) || action > STORM_TRAP)
        return OPEN_BAD_ARGUMENT;
    switchControls[kind].action = action;
    return OPEN_OK;
}

static int setThreshold(uint32_t kind, uint32_t unit, uint32_t value)
{
    if (!isKind(kind) || !isThreshold({unit, value}))
        return OPEN_BAD_ARGUMENT;
    switchControls[kind].threshold = {unit, value};
    return OPEN_OK;
}

static int storeThreshold(const Threshold &threshold, uint32_t *unit, uint32_t *value)
{
    *unit = threshold.unit;
    return store(threshold.value, value);
}

static void registerOfSwitch()
{
    DO(rpcclt_openapiStormControlModeSet, setState);
    ASK(rpcclt_openapiStormControlModeGet, [](uint32_t kind, uint32_t *state) -> int {
        return isKind(kind) ? store(valueIn(switchControls, kind).state, state) : OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiStormControlActionSet, setAction);
    ASK(rpcclt_openapiStormControlActionGet, [](uint32_t kind, uint32_t *action) -> int {
        return isKind(kind) ? store(valueIn(switchControls, kind).action, action) : OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiStormControlThresholdSet, setThreshold);
    ASK(rpcclt_openapiStormControlThresholdGet, [](uint32_t kind, uint32_t *unit, uint32_t *value) -> int {
        return isKind(kind) ? storeThreshold(valueIn(switchControls, kind).threshold, unit, value) : OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiStormControlThresholdDefaultSet, [](uint32_t kind) {
        const Threshold initial;
        return setThreshold(kind, initial.unit, initial.value);
    });
    ASK(rpcclt_openapiStormControlThresholdMinMaxGet, rangeOf);
}

/* Operations of a port */

static bool hasControl(uint32_t kind, uint32_t port)
{
    return isKind(kind) && portExists(port);
}

/* The port's control, to be set. Null when there is no such port or kind of traffic. */
static PortControl *controlToSet(uint32_t kind, uint32_t port)
{
    return hasControl(kind, port) ? &portControls[{kind, port}] : nullptr;
}

static int setPortState(uint32_t kind, uint32_t port, uint32_t state)
{
    PortControl *control = controlToSet(kind, port);
    if (!control || state > 1)
        return OPEN_BAD_ARGUMENT;
    control->state = state;
    return OPEN_OK;
}

static int setPortThreshold(uint32_t kind, uint32_t port, uint32_t unit, uint32_t value)
{
    PortControl *control = controlToSet(kind, port);
    if (!control || !isThreshold({unit, value}))
        return OPEN_BAD_ARGUMENT;
    control->threshold = {unit, value};
    return OPEN_OK;
}

static int setPortAction(uint32_t port, uint32_t action)
{
    PortControl *control = controlToSet(STORM_BROADCAST, port);
    if (!control || action > STORM_TRAP)
        return OPEN_BAD_ARGUMENT;
    control->action = action;
    return OPEN_OK;
}

static void registerOfPort()
{
    DO(rpcclt_openapiStormControlIntfModeSet, setPortState);
    ASK(rpcclt_openapiStormControlIntfModeGet, [](uint32_t kind, uint32_t port, uint32_t *state) -> int {
        return hasControl(kind, port) ? store(stateOn(kind, port), state) : OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiStormControlIntfThresholdSet, setPortThreshold);
    ASK(rpcclt_openapiStormControlIntfThresholdGet,
          [](uint32_t kind, uint32_t port, uint32_t *unit, uint32_t *value) -> int {
              return hasControl(kind, port) ? storeThreshold(thresholdOn(kind, port), unit, value) : OPEN_BAD_ARGUMENT;
          });
    DO(rpcclt_openapiStormControlIntfThresholdDefaultSet, [](uint32_t kind, uint32_t port) -> int {
        if (PortControl *control = controlToSet(kind, port)) {
            control->threshold.reset();
            return OPEN_OK;
        }
        return OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiSwDevCtrlBcastStormControlActionIntfSet, setPortAction);
    ASK(rpcclt_openapiSwDevCtrlBcastStormControlActionIntfGet,
          ofPort<[](uint32_t port) { return actionOn(STORM_BROADCAST, port); }>);
}

/* Packets that are not discarded leave at the other ports that are up and in the VLAN of the port's untagged frames. */
static CommandOutcome storm(const Args &args, std::string *answer)
{
    static const char *const kinds[] = {"", "unicast", "broadcast", "multicast"};
    long long port, packets;
    size_t kind = (size_t)(std::find(std::begin(kinds) + 1, std::end(kinds), args[1]) - kinds);
    if (!readNumber(args[0], 1, deviceOptions().ports, &port))
        return refuse(answer, "there is no port \"" + args[0] + "\"");
    if (!isKind((uint32_t)kind))
        return refuse(answer, "a storm is unicast, broadcast or multicast, not \"" + args[1] + "\"");
    if (!readNumber(args[2], 1, MOST_PPS, &packets))
        return refuse(answer, "a port takes 1 to " + std::to_string(MOST_PPS) + " packets a second, not \"" + args[2] +
                                  "\"");
    uint32_t from = (uint32_t)port;
    if (!portIsUp(from))
        return refuse(answer, "port " + args[0] + " is " + portStatusText(from) + ": nothing comes in there");

    uint64_t passed = std::min((uint64_t)packets, stormLimit(from, (StormKind)kind).packetsPerSecond);
    countersOf(from).inFrames += (uint64_t)packets;
    countersOf(from).inDiscards += (uint64_t)packets - passed;
    for (uint32_t to = nextInterface(0); to; to = nextInterface(to))
        if (to != from && portIsUp(to) && portInVlan(to, portPvid(from)))
            countersOf(to).outFrames += passed;
    if (passed < (uint64_t)packets)
        stormExceeded(from, (StormKind)kind);
    *answer = std::to_string(passed) + " passed, " + std::to_string((uint64_t)packets - passed) + " discarded; port " +
              args[0] + " is " + portStatusText(from) + "\n";
    return COMMAND_DONE;
}

void registerStormControl()
{
    registerOfSwitch();
    registerOfPort();
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "storm", .usage = "PORT KIND PACKETS", .fewest = 3, .most = 3,
         .help = "so many unicast, broadcast or multicast packets come in within a second", .run = storm},
    };
    registerCommands(commands);
}

void resetStormControl()
{
    switchControls.clear();
    portControls.clear();
    shut.clear();
}
