/*
 * spanning_tree.cpp - the spanning tree: which bridge is the root, and what does that let each port do?
 *
 * The switch is the root until the command `stp root` connects a better bridge to a port. That bridge is the root then.
 * Of several ports that lead to the root, the one with the lowest cost is the root port, and the others block: they are
 * redundant paths to it. All other ports forward. The command `stp` can set another state for a port.
 */
#include "vswitch/switch/spanning_tree.h"

#include <map>
#include <tuple>

#include "vswitch/base/commands.h"
#include "vswitch/switch/families.h"

static const uint32_t HIGHEST_PRIORITY = 65535, HIGHEST_COST = 200000000;

static std::map<uint32_t, RootBridge> behind; /* by port: the bridges that claim to be the root */
static std::map<uint32_t, StpPortState> setStates;
static bool (*isOpen)(uint32_t port);

void onTreeQuestion(bool (*portIsOpen)(uint32_t port))
{
    isOpen = portIsOpen;
}

/* Is it the better bridge, or the cheaper path to the same one? */
static bool isBetter(const RootBridge &one, const RootBridge &other)
{
    return std::tie(one.priority, one.mac, one.cost) < std::tie(other.priority, other.mac, other.cost);
}

/* Does the switch receive BPDUs on the port? A port that blocks does, a broken one does not. */
static bool hears(uint32_t port)
{
    auto set = setStates.find(port);
    return isOpen(port) && (set == setStates.end() || set->second != STP_BROKEN);
}

SpanningTree spanningTree()
{
    SpanningTree tree = {{BRIDGE_PRIORITY, bridgeMac(), 0}, 0};
    for (const auto &[port, bridge] : behind)
        if (hears(port) && isBetter(bridge, tree.root))
            tree = {bridge, port};
    return tree;
}

bool leadsToRoot(uint32_t port)
{
    auto bridge = behind.find(port);
    return bridge != behind.end() && hears(port) && bridge->second.mac == spanningTree().root.mac;
}

StpPortState treeState(uint32_t port)
{
    auto set = setStates.find(port);
    if (set != setStates.end())
        return set->second;
    return leadsToRoot(port) && spanningTree().rootPort != port ? STP_BLOCKING : STP_FORWARDING;
}

uint32_t pathCost(uint32_t port)
{
    auto bridge = behind.find(port);
    return bridge == behind.end() ? DEFAULT_PATH_COST : bridge->second.cost;
}

/* Commands */

static CommandOutcome setRoot(const Args &args, std::string *answer)
{
    uint32_t port;
    long long cost, priority;
    uint64_t mac;
    if (args.size() == 2 && args[1] == "none") {
        behind.clear();
        return COMMAND_DONE;
    }
    if (args.size() != 5)
        return refuse(answer, "say: stp root PORT COST PRIORITY MAC, or: stp root none");
    if (!readPort(args[1], highestInterface(), &port, answer))
        return COMMAND_REFUSED;
    if (!readNumber(args[2], 1, HIGHEST_COST, &cost))
        return refuse(answer, "COST is 1 to " + std::to_string(HIGHEST_COST) + ", not \"" + args[2] + "\"");
    if (!readNumber(args[3], 0, HIGHEST_PRIORITY, &priority))
        return refuse(answer, "PRIORITY is 0 to " + std::to_string(HIGHEST_PRIORITY) + ", not \"" + args[3] + "\"");
    if (!parseMac(args[4], &mac) || mac == 0 || isGroup(mac) || mac == bridgeMac())
        return refuse(answer, "\"" + args[4] + "\" is not the address of another bridge");
    RootBridge bridge = {(uint32_t)priority, mac, (uint32_t)cost};
    if (!isBetter(bridge, {BRIDGE_PRIORITY, bridgeMac(), 0}))
        return refuse(answer, "the switch stays root: its " + std::to_string(BRIDGE_PRIORITY) + " " +
                              macText(bridgeMac()) + " is better (lower)");
    behind[port] = bridge;
    for (auto &[otherPort, known] : behind)
        if (known.mac == mac)
            known.priority = bridge.priority; /* a bridge has one priority */
    return COMMAND_DONE;
}

static CommandOutcome stp(const Args &args, std::string *answer)
{
    static const std::map<std::string, StpPortState> states = {
        {"blocking", STP_BLOCKING}, {"listening", STP_LISTENING}, {"learning", STP_LEARNING}, {"broken", STP_BROKEN}};
    uint32_t port;
    if (args[0] == "root")
        return setRoot(args, answer);
    if (!readPort(args[0], highestInterface(), &port, answer))
        return COMMAND_REFUSED;
    auto state = states.find(args[1]);
    if (args.size() > 2 || (state == states.end() && args[1] != "auto"))
        return refuse(answer, "a state is blocking, listening, learning, broken or auto, not \"" + args[1] + "\"");
    if (state == states.end())
        setStates.erase(port);
    else
        setStates[port] = state->second;
    return COMMAND_DONE;
}

void registerSpanningTree()
{
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "stp", .usage = "PORT STATE", .fewest = 2, .most = 5,
         .help = "the port is blocking, listening, learning or broken; auto: as the spanning tree says\n"
                 "stp root PORT COST PRIORITY MAC   a bridge behind the port is the root; COST is that of the path\n"
                 "stp root none                     the switch is the root again",
         .run = stp},
    };
    registerCommands(commands);
}

void resetSpanningTree()
{
    behind.clear();
    setStates.clear();
}
