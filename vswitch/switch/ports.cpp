/*
 * model_ports.cpp - the virtual switch's ports and link aggregation groups: which are up, and what passes them.
 *
 * At start the lower half of the ports has a link, four at least, and the LAGs have none. Ports 1 and 2 lead to switches,
 * the others to stations. While a port is up, so many frames a second pass it as the rates say. None of this is so once
 * something is plugged in: a port then is what it is plugged into.
 */
#include <algorithm>
#include <vector>

#include "vswitch/base/commands.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/switch/fdb.h"
#include "vswitch/switch/state.h"

static const uint32_t LAGS = 8;
static const uint32_t NEIGHBOURS = 2;
static const uint64_t IN_FRAMES = 5, OUT_FRAMES = 10; /* a second */

struct Port {
    bool link = false;
    bool wasUp = false; /* when somebody looked last */
    uint32_t transitions = 0;
    PortCounters counters;
};

static std::vector<Port> ports; /* by interface number */
static uint64_t countedUntil, topologyChangedAt;
static uint32_t changes;

static uint32_t interfaces()
{
    return modelOptions().ports + LAGS;
}

bool portExists(uint32_t port)
{
    return port >= 1 && port <= modelOptions().ports;
}

bool interfaceExists(uint32_t port)
{
    return port >= 1 && port <= interfaces();
}

uint32_t nextPort(uint32_t port)
{
    return port < modelOptions().ports ? port + 1 : 0;
}

uint32_t nextInterface(uint32_t port)
{
    return port < interfaces() ? port + 1 : 0;
}

bool portHasLink(uint32_t port)
{
    return interfaceExists(port) && ports[port].link && (trafficIsMadeUp() || portHasHost(port));
}

void setPortLink(uint32_t port, bool up)
{
    if (interfaceExists(port))
        ports[port].link = up;
}

PortStatus portStatus(uint32_t port)
{
    if (!portHasLink(port))
        return PORT_NO_LINK;
    return loopShuts(port) ? PORT_LOOP_SHUT : stormShuts(port) ? PORT_STORM_SHUT : PORT_UP;
}

const char *portStatusText(uint32_t port)
{
    static const char *const texts[] = {"up", "down: no link", "shut down by loop protection",
                                        "shut down by storm control"};
    return texts[portStatus(port)];
}

bool portHasNeighbour(uint32_t port)
{
    return portHasLink(port) && (!trafficIsMadeUp() || port <= NEIGHBOURS);
}

PortCounters &portCounters(uint32_t port)
{
    return ports[interfaceExists(port) ? port : 0].counters;
}

uint32_t forwardTransitions(uint32_t port)
{
    return interfaceExists(port) ? ports[port].transitions : 0;
}

uint32_t topologyChanges()
{
    return changes;
}

uint64_t lastTopologyChange()
{
    return topologyChangedAt;
}

void passPorts(uint64_t now)
{
    uint64_t seconds = trafficIsMadeUp() && now > countedUntil ? now - countedUntil : 0;
    countedUntil += seconds;
    for (uint32_t port = 1; port < ports.size(); port++) {
        Port &own = ports[port];
        if (own.wasUp) {
            own.counters.inFrames += IN_FRAMES * seconds;
            own.counters.outFrames += OUT_FRAMES * seconds;
        }
        bool up = portIsUp(port);
        if (up == own.wasUp)
            continue;
        own.wasUp = up;
        own.transitions += up;
        changes++;
        topologyChangedAt = std::max(topologyChangedAt, now);
        if (!up)
            forgetPort(port);
        stateChanged();
    }
}

static CommandOutcome link(const Words &words, std::string *answer)
{
    long long port;
    if (!readNumber(words[0], 1, interfaces(), &port))
        return refuse(answer, "there is no port \"" + words[0] + "\", only 1 to " + std::to_string(interfaces()));
    if (words[1] != "up" && words[1] != "down")
        return refuse(answer, "a link goes \"up\" or \"down\", not \"" + words[1] + "\"");
    setPortLink((uint32_t)port, words[1] == "up");
    return COMMAND_DONE;
}

static const Command commands[] = {
    {"link", "PORT up|down", "a port's link, or that of a LAG, comes or goes", link},
};

void servePorts()
{
    registerCommands("what happens:", commands);
}

void resetPorts()
{
    ports.assign(interfaces() + 1, {});
    for (uint32_t port = 1; port <= std::min(std::max(4u, modelOptions().ports / 2), modelOptions().ports); port++)
        ports[port].link = ports[port].wasUp = true, ports[port].transitions = 1;
    if (!trafficIsMadeUp()) /* what is plugged in decides, unless `link` pulls the cable */
        for (Port &port : ports)
            port = {}, port.link = true;
    countedUntil = topologyChangedAt = 0;
    changes = 1;
}
