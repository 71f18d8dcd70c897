/*
 * plugs.cpp - connects hosts to ports, receives their frames, and sends frames to them.
 *
 * No host can make the others wait: a turn reads at most TURN_BYTES from a socket or TURN_FRAMES from an interface, and
 * a socket's queue holds at most QUEUE_BYTES. A port that the switch has shut has no carrier: an interface shows it to
 * its host; a socket's host is disconnected, and cannot connect until the port is up again.
 */
#include "vswitch/frames/plugs.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <unistd.h>

#include <map>

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/base/sockets.h"
#include "vswitch/base/trace.h"
#include "vswitch/base/watch.h"
#include "vswitch/frames/capture.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : size_t {
    LONGEST_LENGTH = 65536, /* the highest length before a frame; more means that the host is out of step */
    TURN_BYTES = 8192,
    TURN_FRAMES = 64,
    QUEUE_BYTES = 262144, /* a port's queue */
    FLUSH_BYTES = 65536,
    TRACED_DISCARDS = 100 /* lines a second */
};
enum : long { TICK_NANOSECONDS = 100000000 };

struct Plug {
    uint32_t port;
    std::string path;   /* of a socket; empty: an interface */
    int listener = -1;  /* of a socket */
    int host = -1;      /* the connected socket, or the interface */
    bool isUp = false;  /* the interface is up, or a host is connected to the socket */
    bool hasCarrier = true;
    std::string input;  /* of a socket: an incomplete frame */
    std::string output; /* of a socket: not sent yet */
};
static std::map<uint32_t, Plug> plugs;
static int ticks = -1; /* a timer */
static FrameHook onFrame;
static TickHook onTick;

bool managementHasHost()
{
    auto found = plugs.find(MANAGEMENT_PORT);
    return found != plugs.end() && found->second.isUp;
}

uint32_t nextPlugged(uint32_t port)
{
    auto next = port == UINT32_MAX ? plugs.begin() : plugs.upper_bound(port);
    return next == plugs.end() ? UINT32_MAX : next->first;
}

static void setUp(Plug *plug, bool up)
{
    if (plug->isUp == up)
        return;
    plug->isUp = up;
    setPortHost(plug->port, up);
    bringUpToNow();
}

static void closeHost(Plug *plug)
{
    unwatch(plug->host);
    close(plug->host);
    plug->host = -1;
    plug->input.clear();
    plug->output.clear();
}

/* Disconnects the host. */
static void disconnect(Plug *plug)
{
    closeHost(plug);
    setUp(plug, false);
}

/* Is the host there, but the port shut by the switch? */
static bool isShut(const Plug &plug)
{
    return plug.port != MANAGEMENT_PORT && plug.isUp && !portIsUp(plug.port);
}

/* Receiving */

static void traceDiscard(uint32_t port, const std::string &why)
{
    static uint64_t second, lines;
    uint64_t now = uptimeMillis() / 1000;
    if (now != second && lines > TRACED_DISCARDS)
        traceLine("discarded " + std::to_string(lines - TRACED_DISCARDS) + " more frames");
    lines = now == second ? lines + 1 : 1;
    second = now;
    if (lines <= TRACED_DISCARDS)
        traceLine("port " + std::to_string(port) + ": " + why);
}

static void frameArrived(uint32_t port, std::string_view frame)
{
    bool captured = portIsCaptured(port);
    std::string why;
    onFrame(port, frame, captured || tracing() ? &why : nullptr);
    if (captured)
        captureFrame(port, FRAME_IN, frame, why);
    if (!why.empty() && tracing())
        traceDiscard(port, why);
}

/* Handles the complete frames in a socket's input. False: the length before a frame is invalid. */
static bool receiveFrames(Plug *plug)
{
    std::string_view input = plug->input;
    uint32_t length;
    while (input.size() >= sizeof length) {
        memcpy(&length, input.data(), sizeof length);
        length = ntohl(length);
        if (length > LONGEST_LENGTH)
            return false;
        if (input.size() - sizeof length < length)
            break;
        frameArrived(plug->port, input.substr(sizeof length, length));
        input.remove_prefix(sizeof length + length);
    }
    plug->input.erase(0, plug->input.size() - input.size());
    return true;
}

/* Reads up to `most` bytes from a socket. Returns how many; 0: none are there, or the host has gone. */
static size_t readSocket(Plug *plug, size_t most)
{
    char bytes[TURN_BYTES];
    ssize_t got = recv(plug->host, bytes, std::min(most, sizeof bytes), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return 0;
    if (got > 0) {
        plug->input.append(bytes, (size_t)got);
        if (receiveFrames(plug))
            return (size_t)got;
        printError("port " + std::to_string(plug->port) + ": its host sent an invalid length; disconnecting it");
    }
    disconnect(plug);
    return 0;
}

/* Reads a frame from an interface. False: there is none. */
static bool readInterface(Plug *plug)
{
    char bytes[LONGEST_LENGTH];
    ssize_t got = read(plug->host, bytes, sizeof bytes);
    if (got <= 0)
        return false;
    frameArrived(plug->port, {bytes, (size_t)got});
    return true;
}

/* Sending */

/* Sends as much of a socket's queue as the host takes now. */
static void flush(Plug *plug)
{
    if (plug->path.empty() || plug->host < 0 || plug->output.empty())
        return;
    ssize_t sent = send(plug->host, plug->output.data(), plug->output.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN && errno != EINTR)
        return disconnect(plug);
    plug->output.erase(0, sent > 0 ? (size_t)sent : 0);
}

static void serveHost(Plug *plug, short events);

static void watchHost(Plug *plug)
{
    watch(plug->host, (short)(POLLIN | (plug->output.empty() ? 0 : POLLOUT)),
          [plug](short events) { serveHost(plug, events); });
}

/* Sends the frames that a turn has queued. */
static void flushAll()
{
    for (auto &[port, plug] : plugs) {
        bool waited = !plug.output.empty();
        flush(&plug);
        if (waited && plug.host >= 0)
            watchHost(&plug);
    }
}

static bool queueForSocket(Plug *plug, const OutgoingFrame &frame, std::string_view tag)
{
    uint32_t length = (uint32_t)(frame.addresses.size() + tag.size() + frame.rest.size());
    if (plug->output.size() + sizeof length + length > FLUSH_BYTES)
        flush(plug);
    if (plug->host < 0 || plug->output.size() + sizeof length + length > QUEUE_BYTES)
        return false;
    uint32_t prefix = htonl(length);
    plug->output.append((const char *)&prefix, sizeof prefix);
    plug->output.append(frame.addresses).append(tag).append(frame.rest);
    return true;
}

static bool writeToInterface(Plug *plug, const OutgoingFrame &frame, std::string_view tag)
{
    auto part = [](std::string_view bytes) { return iovec{const_cast<char *>(bytes.data()), bytes.size()}; };
    iovec parts[] = {part(frame.addresses), part(tag), part(frame.rest)};
    return writev(plug->host, parts, 3) > 0;
}

void sendFrame(uint32_t port, const OutgoingFrame &frame)
{
    auto found = plugs.find(port);
    if (found == plugs.end() || found->second.host < 0)
        return;
    Plug *plug = &found->second;
    char tagBytes[] = {(char)0x81, 0, (char)(frame.tag >> 8), (char)frame.tag};
    std::string_view tag(tagBytes, frame.tagged ? sizeof tagBytes : 0);
    bool sent = plug->path.empty() ? writeToInterface(plug, frame, tag) : queueForSocket(plug, frame, tag);
    if (port != MANAGEMENT_PORT)
        ++(sent ? countersOf(port).outFrames : countersOf(port).outDiscards);
    if (portIsCaptured(port)) {
        std::string whole(frame.addresses);
        captureFrame(port, FRAME_OUT, whole.append(tag).append(frame.rest), sent ? "" : "the host is too slow");
    }
}

/* Turns */

static void serveHost(Plug *plug, short events)
{
    bringUpToNow();
    if (plug->path.empty()) {
        for (size_t frames = 0; frames < TURN_FRAMES && readInterface(plug); frames++) {
        }
    } else if (events & (POLLIN | POLLHUP | POLLERR)) {
        readSocket(plug, TURN_BYTES);
    } else {
        flush(plug);
        if (plug->host >= 0)
            watchHost(plug);
    }
    flushAll();
}

/* Accepts one host; refuses others, and all while the port is shut. */
static void acceptHosts(Plug *plug)
{
    int host;
    while ((host = accept4(plug->listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
        if (plug->host >= 0 || isShut(*plug)) {
            close(host);
            continue;
        }
        plug->host = host;
        watchHost(plug);
        setUp(plug, true);
    }
}

/* Does what a cable does: shows each side whether the other side is up. */
static void updateLink(Plug *plug)
{
    bool shut = isShut(*plug);
    if (!plug->path.empty()) {
        if (shut && plug->host >= 0)
            closeHost(plug); /* isUp stays: the cable is still there */
        else if (!shut && plug->host < 0)
            setUp(plug, false);
        return;
    }
    pollfd writable = {plug->host, POLLOUT, 0}; /* not while the interface is down, in any network namespace */
    setUp(plug, poll(&writable, 1, 0) == 1 && (writable.revents & POLLOUT));
    if (plug->hasCarrier == shut) {
        int carrier = !shut;
        plug->hasCarrier = carrier;
        ioctl(plug->host, TUNSETCARRIER, &carrier);
    }
}

static void tick()
{
    bringUpToNow();
    for (auto &[port, plug] : plugs)
        updateLink(&plug);
    onTick();
    flushAll();
}

/* Handles every frame that hosts have sent by now: all that a socket holds, and what an interface has queued. */
static CommandOutcome settle(const Args &, std::string *)
{
    for (auto &[port, plug] : plugs) {
        if (plug.listener >= 0)
            acceptHosts(&plug);
        int waiting = 0;
        if (plug.path.empty()) {
            for (size_t frames = 0; frames < 16 * TURN_FRAMES && readInterface(&plug); frames++) {
            }
        } else if (plug.host >= 0 && ioctl(plug.host, FIONREAD, &waiting) == 0) {
            for (size_t got = 1, left = (size_t)waiting; got && left; left -= got)
                got = readSocket(&plug, left);
        }
    }
    tick();
    return COMMAND_DONE;
}

static CommandOutcome capture(const Args &args, std::string *answer)
{
    long long port;
    if (!readNumber(args[0], 0, deviceOptions().ports, &port))
        return refuse(answer, "\"capture\" takes a port from 0 (management) to " +
                                  std::to_string(deviceOptions().ports) + ", not \"" + args[0] + "\"");
    std::string explanation;
    if (args.size() < 2)
        explanation = "\"capture\" takes a FILE as second argument";
    else
        startCapture((uint32_t)port, args[1], &explanation);
    return explanation.empty() ? COMMAND_DONE : refuse(answer, explanation);
}

void registerPlugs(FrameHook frameHook, TickHook tickHook)
{
    static const Command commands[] = {
        {.group = FRAME_COMMANDS, .name = "settle", .usage = "", .fewest = 0, .most = 0,
         .help = "return when every frame that hosts have sent by now was handled", .run = settle},
        {.group = FRAME_COMMANDS, .name = "capture", .usage = "PORT [FILE]", .fewest = 1, .most = 2,
         .help = "write the port's frames to FILE, for tcpdump and Wireshark, until the switch stops\n"
                 "without FILE: to standard output, until it is closed", .run = capture},
    };
    registerCommands(commands);
    onFrame = frameHook;
    onTick = tickHook;
    onSecond([] {
        if (!plugs.empty())
            tick();
    });
}

/* Plugging */

static bool openInterface(Plug *plug, const std::string &name, std::string *wrong)
{
    ifreq request = {};
    plug->host = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (plug->host < 0) {
        *wrong = std::string("cannot create interfaces: /dev/net/tun: ") + strerror(errno);
        return false;
    }
    if (name.empty() || name.size() >= sizeof request.ifr_name) {
        *wrong = "an interface has a name of up to 15 characters, not \"" + name + "\"";
        return false;
    }
    memcpy(request.ifr_name, name.c_str(), name.size());
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (ioctl(plug->host, TUNSETIFF, &request) == 0)
        return true;
    *wrong = "cannot create the interface " + name + ": " + strerror(errno) +
             (errno == EPERM ? " (only root may)" : errno == EBUSY ? " (another process uses it)" : "");
    return false;
}

static bool startTicks()
{
    itimerspec interval = {{0, TICK_NANOSECONDS}, {0, TICK_NANOSECONDS}};
    if (ticks >= 0)
        return true;
    ticks = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (ticks < 0 || timerfd_settime(ticks, 0, &interval, nullptr) != 0)
        return false;
    watch(ticks, POLLIN, [](short) {
        uint64_t count;
        if (read(ticks, &count, sizeof count) == sizeof count)
            tick();
    });
    return true;
}

bool plugPort(const std::string &plug, std::string *wrong)
{
    long long port;
    size_t equals = plug.find('='), colon = plug.find(':');
    std::string kind = colon == std::string::npos || colon < equals ? "" : plug.substr(equals + 1, colon - equals - 1);
    if ((kind != "tap" && kind != "unix") ||
        !readNumber(plug.substr(0, equals), 0, deviceOptions().ports, &port)) {
        *wrong = "a plug is PORT=tap:NAME or PORT=unix:PATH with a port from 0 (management) to " +
                 std::to_string(deviceOptions().ports) + ", not \"" + plug + "\"";
        return false;
    }
    std::string name = plug.substr(colon + 1);
    auto [place, isNew] = plugs.try_emplace((uint32_t)port);
    Plug *made = &place->second;
    made->port = (uint32_t)port;
    if (!isNew) {
        *wrong = "something is plugged into port " + std::to_string(port) + " already";
        return false;
    }
    if (kind == "tap") {
        if (!openInterface(made, name, wrong))
            return false;
        watchHost(made);
    } else {
        made->path = name;
        made->listener = listenOn(name.c_str());
        if (made->listener < 0) {
            made->path.clear(); /* not this process's: unplugPorts() must not remove it */
            *wrong = "port " + std::to_string(port) + " cannot be plugged into " + name;
            return false;
        }
        watch(made->listener, POLLIN, [made](short) { acceptHosts(made); });
    }
    setTrafficSimulated(false);
    return startTicks();
}

void unplugPorts()
{
    stopCaptures();
    for (auto &[port, plug] : plugs) {
        for (int descriptor : {plug.listener, plug.host})
            if (descriptor >= 0) {
                unwatch(descriptor);
                close(descriptor);
            }
        if (!plug.path.empty())
            unlink(plug.path.c_str());
        setPortHost(port, false);
    }
    plugs.clear();
    setTrafficSimulated(true);
}
