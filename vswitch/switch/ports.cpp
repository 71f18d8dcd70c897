/*
 * ports.cpp - which ports and link aggregation groups (LAGs) are up, and how many frames do they carry?
 *
 * At start the lower half of the ports has a link, but at least four ports; the LAGs have none. Ports 1 and 2 lead to
 * switches, the others to stations; the command `neighbour` adds switches. All this is simulated; once ports have plugs,
 * the link is that of the real hosts.
 */
#include <algorithm>
#include <vector>

#include "vswitch/base/commands.h"
#include "vswitch/switch/addresses.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/spanning_tree.h"
#include "vswitch/switch/state.h"

struct Port {
    bool link = false;  /* as the `link` command set it */
    bool loopShut = false, stormShut = false;
    bool wasUp = false; /* at the last advancePorts() */
    uint64_t transitions = 0;
    PortCounters counters;
};

static std::vector<Port> ports; /* by interface number */
static PortSet hosts;           /* ports with a host plugged in that is up */
static PortSet neighbours;      /* ports with a simulated switch */
static uint64_t changes, topologyChangedAt;

bool portHasLink(uint32_t port)
{
    return interfaceExists(port) && ports[port].link && (trafficIsSimulated() || hosts.contains(port));
}

void setPortHost(uint32_t port, bool present)
{
    if (present)
        hosts.insert(port);
    else
        hosts.erase(port);
    stateChanged();
}

void setPortShut(uint32_t port, PortStatus why, bool shut)
{
    (why == PORT_LOOP_SHUT ? ports.at(port).loopShut : ports.at(port).stormShut) = shut;
}

/* Does a cable carry frames to the port? The spanning tree decides what becomes of them. */
static bool isOpen(uint32_t port)
{
    return portHasLink(port) && !ports[port].loopShut && !ports[port].stormShut;
}

StpPortState portTreeState(uint32_t port)
{
    return isOpen(port) ? treeState(port) : STP_DISABLED;
}

PortStatus portStatus(uint32_t port)
{
    if (!isOpen(port))
        return !portHasLink(port) ? PORT_NO_LINK : ports[port].loopShut ? PORT_LOOP_SHUT : PORT_STORM_SHUT;
    StpPortState state = treeState(port);
    return state == STP_FORWARDING ? PORT_UP : state == STP_LEARNING ? PORT_LEARNING : PORT_BLOCKED;
}

const char *portStatusText(uint32_t port)
{
    static const char *const texts[] = {"up", "learning: it does not forward yet", "blocked by the spanning tree",
                                        "down: no link", "shut down by loop protection", "shut down by storm control"};
    return texts[portStatus(port)];
}

bool portHasNeighbour(uint32_t port)
{
    return portHasLink(port) && (!trafficIsSimulated() || neighbours.contains(port));
}

void setPortNeighbour(uint32_t port)
{
    neighbours.insert(port);
}

const PortCounters &portCounters(uint32_t port)
{
    static const PortCounters none;
    return interfaceExists(port) ? ports[port].counters : none;
}

PortCounters &countersOf(uint32_t port)
{
    return ports.at(port).counters;
}

uint32_t forwardTransitions(uint32_t port)
{
    return interfaceExists(port) ? (uint32_t)ports[port].transitions : 0;
}

uint32_t topologyChanges()
{
    return (uint32_t)changes;
}

uint64_t lastTopologyChange()
{
    return topologyChangedAt;
}

void advancePorts(uint64_t now)
{
    for (uint32_t number = nextInterface(0); number; number = nextInterface(number)) {
        Port &port = ports[number];
        bool up = portIsUp(number);
        if (up == port.wasUp)
            continue;
        port.wasUp = up;
        port.transitions += up;
        changes++;
        topologyChangedAt = std::max(topologyChangedAt, now);
        if (!portLearns(number))
            fdbForgetPort(number);
        stateChanged();
    }
}

void collectPortValues(Values *values)
{
    values->insert(values->end(), {&changes, &topologyChangedAt});
    for (Port &port : ports)
        values->insert(values->end(), {&port.transitions, &port.counters.inFrames, &port.counters.outFrames,
                                       &port.counters.inDiscards});
}

static CommandOutcome link(const Args &args, std::string *answer)
{
    uint32_t port;
    if (!readPort(args[0], highestInterface(), &port, answer))
        return COMMAND_REFUSED;
    if (args[1] != "up" && args[1] != "down")
        return refuse(answer, "a link is \"up\" or \"down\", not \"" + args[1] + "\"");
    ports[port].link = args[1] == "up";
    return COMMAND_DONE;
}

void registerPorts()
{
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "link", .usage = "PORT up|down", .fewest = 2, .most = 2,
         .help = "sets the link of a port or LAG up or down", .run = link},
    };
    registerCommands(commands);
    onTreeQuestion(isOpen);
}

void resetPorts()
{
    ports.assign(highestInterface() + 1, {});
    for (uint32_t port = 1; port <= std::min(std::max(4u, deviceOptions().ports / 2), deviceOptions().ports); port++)
        ports[port].link = ports[port].wasUp = true, ports[port].transitions = 1;
    if (!trafficIsSimulated()) /* the plugged hosts decide, unless the command `link` sets "down" */
        for (Port &port : ports)
            port = {}, port.link = true;
    neighbours = {1, 2};
    topologyChangedAt = 0;
    changes = 1;
}
