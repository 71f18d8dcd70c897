/*
 * frames.cpp - connects the parts: plugs call forwarding for each frame, and probes, mrp and lldp on each tick. And the
 * commands on frames.
 */
#include "vswitch/frames/frames.h"

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/frames/capture.h"
#include "vswitch/frames/forwarding.h"
#include "vswitch/frames/groups.h"
#include "vswitch/frames/lldp.h"
#include "vswitch/frames/mrp.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/frames/probes.h"
#include "vswitch/switch/device.h"
#include "vswitch/switch/families.h"

static void sendDueFrames()
{
    sendDueProbes();
    sendDueRegistrations();
    sendDueGroupRegistrations();
    sendDuePolicies();
}

static CommandOutcome settle(const Args &, std::string *)
{
    settleHosts();
    return COMMAND_DONE;
}

static CommandOutcome plug(const Args &args, std::string *answer)
{
    std::string wrong;
    bool first = trafficIsSimulated();
    if (!plugPort(args[0], &wrong))
        return refuse(answer, wrong);
    if (first) { /* removes all simulated state */
        resetClock();
        resetFrames();
        resetFamilies();
    }
    return COMMAND_DONE;
}

static CommandOutcome unplug(const Args &args, std::string *answer)
{
    uint32_t port;
    std::string wrong;
    if (!readPlugged(args[0], &port, &wrong))
        return refuse(answer, wrong);
    return unplugPort(port) ? COMMAND_DONE : refuse(answer, "nothing is plugged into port " + args[0]);
}

static CommandOutcome stopCapture(const Args &args, std::string *answer)
{
    uint32_t port = UINT32_MAX;
    std::string wrong;
    if (args.size() > 1 && !readPlugged(args[1], &port, &wrong))
        return refuse(answer, wrong);
    return stopCaptures(port) ? COMMAND_DONE : refuse(answer, "no such capture runs");
}

static CommandOutcome capture(const Args &args, std::string *answer)
{
    uint32_t port;
    std::string wrong;
    if (args[0] == "stop")
        return stopCapture(args, answer);
    if (!readPlugged(args[0], &port, &wrong))
        return refuse(answer, wrong);
    if (args.size() < 2)
        return refuse(answer, "\"capture\" takes a FILE as second argument");
    return startCapture(port, args[1], &wrong) ? COMMAND_DONE : refuse(answer, wrong);
}

void registerFrames()
{
    static const Command commands[] = {
        {.group = FRAME_COMMANDS, .name = "plug", .usage = "PORT=tap:NAME|PORT=unix:PATH", .fewest = 1, .most = 1,
         .help = "as the option --plug does; PORT can be a LAG\n"
                 "The first plug resets the switch: its traffic is real from then on.",
         .run = plug},
        {.group = FRAME_COMMANDS, .name = "unplug", .usage = "PORT", .fewest = 1, .most = 1,
         .help = "disconnect the port's host; remove the socket, or the interface that \"plug\" created",
         .run = unplug},
        {.group = FRAME_COMMANDS, .name = "settle", .usage = "", .fewest = 0, .most = 0,
         .help = "return when all that hosts have done by now was handled: those that have connected or\n"
                 "disconnected, links, and frames (of a TAP interface: the 1024 that its queue can hold)",
         .run = settle},
        {.group = FRAME_COMMANDS, .name = "capture", .usage = "PORT [FILE]", .fewest = 1, .most = 2,
         .help = "write the port's frames to FILE, for tcpdump and Wireshark, until \"capture stop [PORT]\"\n"
                 "without FILE: to standard output, until it is closed", .run = capture},
    };
    registerCommands(commands);
    onFrames(receiveFrame, sendDueFrames);
}

void resetFrames()
{
    resetForwarding();
    resetProbes();
    resetMrp();
    resetGroupRegistrations();
    resetLldp();
}
