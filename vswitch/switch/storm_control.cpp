/*
 * storm_control.cpp - storm control: what was set for the switch and for its ports, and which limit is in force?
 */
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

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
    std::optional<uint32_t> state, action; /* not set: as for the switch */
    std::optional<Threshold> threshold;
};

static const uint32_t MOST_PPS = STORM_THRESHOLD.highest; /* packets of 64 bytes at 1 Gbit/s */

static const struct { uint32_t unit, lowest, highest; } ranges[] = {
    {STORM_PERCENT, 0, 100},
    {STORM_PPS, 0, MOST_PPS},
    {STORM_KBPS, 64, 1000000}, /* a policer cannot limit to less than 64 */
};

static std::map<uint32_t, SwitchControl> switchControls; /* by kind */
static std::map<std::pair<uint32_t, uint32_t>, PortControl> portControls; /* by kind and port */
static std::set<std::pair<uint32_t, uint32_t>> shut; /* port, and the kind of traffic that shut it down */

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
    if (threshold.unit == STORM_PPS)
        return threshold.value;
    return (uint64_t)threshold.value * 1000 / 512; /* the shortest frame has 512 bits */
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

static int setPortState(uint32_t kind, uint32_t port, uint32_t state)
{
    if (!hasControl(kind, port) || state > 1)
        return OPEN_BAD_ARGUMENT;
    portControls[{kind, port}].state = state;
    return OPEN_OK;
}

static int setPortThreshold(uint32_t kind, uint32_t port, uint32_t unit, uint32_t value)
{
    if (!hasControl(kind, port) || !isThreshold({unit, value}))
        return OPEN_BAD_ARGUMENT;
    portControls[{kind, port}].threshold = {unit, value};
    return OPEN_OK;
}

static int setPortAction(uint32_t port, uint32_t action)
{
    if (!hasControl(STORM_BROADCAST, port) || action > STORM_TRAP)
        return OPEN_BAD_ARGUMENT;
    portControls[{STORM_BROADCAST, port}].action = action;
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
        if (!hasControl(kind, port))
            return OPEN_BAD_ARGUMENT;
        portControls[{kind, port}].threshold.reset();
        return OPEN_OK;
    });
    DO(rpcclt_openapiSwDevCtrlBcastStormControlActionIntfSet, setPortAction);
    ASK(rpcclt_openapiSwDevCtrlBcastStormControlActionIntfGet,
          ofPort<[](uint32_t port) { return actionOn(STORM_BROADCAST, port); }>);
}

/* Where the packets of a storm go, by kind. No station has the first address. */
static const uint64_t destinations[] = {0, 0, BROADCAST, 0x01005E7FFFFF};

static bool leavesOn(uint32_t to, uint32_t from, uint32_t vlan)
{
    return to != from && portIsUp(to) && egressVlan(from, vlan, to) && !areProtected(from, to);
}

static std::vector<uint32_t> portsReached(uint32_t from, uint32_t vlan, const Reach &reach)
{
    std::vector<uint32_t> ports;
    for (uint32_t to = nextInterface(0); to && !reach.verdict; to = nextInterface(to))
        if (leavesOn(to, from, vlan) && reach.contains(to))
            ports.push_back(to);
    return ports;
}

/* The packets are untagged. Those that the port admits, within its limit, leave on the ports that they can reach. */
static CommandOutcome storm(const Args &args, std::string *answer)
{
    static const char *const kinds[] = {"", "unicast", "broadcast", "multicast"};
    uint32_t from;
    long long packets;
    size_t kind = (size_t)(std::find(std::begin(kinds) + 1, std::end(kinds), args[1]) - kinds);
    if (!readPort(args[0], deviceOptions().ports, &from, answer))
        return COMMAND_REFUSED;
    if (!isKind((uint32_t)kind))
        return refuse(answer, "a storm is unicast, broadcast or multicast, not \"" + args[1] + "\"");
    if (!readNumber(args[2], 1, MOST_PPS, &packets))
        return refuse(answer, "PACKETS is 1 to " + std::to_string(MOST_PPS) + ", not \"" + args[2] + "\"");
    if (!portIsUp(from))
        return refuse(answer, "port " + args[0] + " is " + portStatusText(from) + ": no packet arrives there");

    Arrival arrival = {from};
    Admission admission = admit(arrival);
    uint64_t received = (uint64_t)packets, admitted = admission.verdict == ADMITTED ? received : 0;
    uint64_t forwarded = std::min(admitted, stormLimit(from, (StormKind)kind).packetsPerSecond);
    if (forwarded < admitted)
        stormExceeded(from, (StormKind)kind);
    Reach reach = reachOf(from, admission.vlan, destinations[kind]);
    std::vector<uint32_t> ports = portsReached(from, admission.vlan, reach);
    forwarded = ports.empty() ? 0 : forwarded;
    countersOf(from).inFrames += received;
    countersOf(from).inDiscards += received - forwarded;
    for (uint32_t port : ports)
        countersOf(port).outFrames += forwarded;
    std::string why = refusalText(arrival, admission);
    if (why.empty())
        why = refusalText(reach, admission.vlan, destinations[kind]);
    if (why.empty() && ports.empty())
        why = "no other port of VLAN " + std::to_string(admission.vlan) + " can take them";
    *answer = std::to_string(forwarded) + " forwarded, " + std::to_string(received - forwarded) + " discarded" +
              (why.empty() ? "" : ": " + why) + "; port " + args[0] + " is " + portStatusText(from) + "\n";
    return COMMAND_DONE;
}

void registerStormControl()
{
    registerOfSwitch();
    registerOfPort();
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "storm", .usage = "PORT KIND PACKETS", .fewest = 3, .most = 3,
         .help = "a port receives so many unicast, broadcast or multicast packets in a second\n"
                 "multicast: to 01:00:5E:7F:FF:FF", .run = storm},
    };
    registerCommands(commands);
}

void resetStormControl()
{
    switchControls.clear();
    portControls.clear();
    shut.clear();
}
