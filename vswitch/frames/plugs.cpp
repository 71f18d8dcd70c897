/*
 * plugs.cpp - connects hosts to ports, receives their frames, and sends frames to them.
 *
 * No host can make the others wait: a turn reads at most TURN_BYTES from a socket or TURN_FRAMES from an interface, and
 * a socket's queue holds at most QUEUE_BYTES. A port that the switch has shut has no carrier: an interface shows it to
 * its host; a socket's host is disconnected, and cannot connect until the port is up again. An interface that is
 * deleted (with its network namespace, say) is taken again when there is one of that name.
 */
#include "vswitch/frames/plugs.h"

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <unistd.h>

#include <map>
#include <utility>

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/base/sockets.h"
#include "vswitch/base/trace.h"
#include "vswitch/base/watch.h"
#include "vswitch/frames/capture.h"
#include "vswitch/frames/interface.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : size_t {
    LONGEST_LENGTH = 65536, /* the highest length before a frame; more means that the host is out of step */
    TURN_BYTES = 8192,
    TURN_FRAMES = 64,
    SETTLED_FRAMES = 1024, /* an interface's queue holds about as many */
    QUEUE_BYTES = 262144, /* a port's queue */
    FLUSH_BYTES = 65536,
    TRACED_FRAMES = 100 /* lines a second */
};
enum : long { TICK_NANOSECONDS = 100000000 };

struct Plug {
    uint32_t port;
    std::string name;   /* of an interface */
    std::string path;   /* of a socket; empty: an interface */
    int listener = -1;  /* of a socket */
    int host = -1;      /* the connected socket, or the interface; -1: there is none, or the interface has gone */
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
    return plug.port != MANAGEMENT_PORT && plug.isUp && !portIsOpen(plug.port);
}

/* Receiving */

static void traceFrame(uint32_t port, const std::string &why)
{
    static uint64_t second, lines;
    uint64_t now = uptimeMillis() / 1000;
    if (now != second && lines > TRACED_FRAMES)
        traceLine("and " + std::to_string(lines - TRACED_FRAMES) + " more frames");
    lines = now == second ? lines + 1 : 1;
    second = now;
    if (lines <= TRACED_FRAMES)
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
        traceFrame(port, why);
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

/* Reads all that a host has sent by now: it may have sent it and disconnected. */
static void readOut(Plug *plug)
{
    int waiting = 0;
    if (plug->host < 0 || ioctl(plug->host, FIONREAD, &waiting) != 0)
        return;
    for (size_t got = 1, left = (size_t)waiting + 1; got && left && plug->host >= 0; left -= got)
        got = readSocket(plug, left);
}

static void interfaceHasGone(Plug *plug)
{
    disconnect(plug);
    std::string message = "port " + std::to_string(plug->port) + ": its interface " + plug->name + " has gone";
    printError(message + "; the port takes it again when it is back (\"ip tuntap add " + plug->name +
               " mode tap\" makes it)");
    if (tracing())
        traceLine(message);
}

/* Reads a frame from an interface. False: there is none. */
static bool readInterface(Plug *plug)
{
    char bytes[LONGEST_LENGTH];
    ssize_t got = plug->host < 0 ? 0 : read(plug->host, bytes, sizeof bytes);
    if (got < 0 && errno == EBADFD)
        interfaceHasGone(plug);
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

bool sendFrame(uint32_t port, const OutgoingFrame &frame)
{
    auto found = plugs.find(port);
    if (found == plugs.end() || found->second.host < 0)
        return false;
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
    return sent;
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

/* Has the host disconnected, with or without frames that are still to be read? */
static bool hasHungUp(const Plug &plug)
{
    pollfd host = {plug.host, 0, 0};
    return plug.host >= 0 && poll(&host, 1, 0) == 1 && (host.revents & POLLHUP);
}

/* Accepts one host; refuses others, and all while the port is shut. */
static void acceptHosts(Plug *plug)
{
    int host;
    while ((host = accept4(plug->listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
        if (hasHungUp(*plug))
            readOut(plug);
        if (plug->host >= 0 || isShut(*plug)) {
            close(host);
            continue;
        }
        plug->host = host;
        watchHost(plug);
        setUp(plug, true);
    }
}

/* Takes an interface that had gone, if there is one of that name now. */
static bool takeInterfaceAgain(Plug *plug)
{
    std::string wrong;
    if (!interfaceIsThere(plug->name) || (plug->host = openInterface(plug->name, &wrong)) < 0)
        return false;
    plug->hasCarrier = true;
    watchHost(plug);
    printError("port " + std::to_string(plug->port) + ": its interface " + plug->name + " is back");
    return true;
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
    if (plug->host < 0 && !takeInterfaceAgain(plug))
        return;
    setUp(plug, interfaceIsUp(plug->host));
    if (plug->hasCarrier == shut)
        setCarrier(plug->host, plug->hasCarrier = !shut);
}

static void tick()
{
    bringUpToNow();
    for (auto &[port, plug] : plugs)
        updateLink(&plug);
    onTick();
    flushAll();
}

void settleHosts()
{
    for (auto &[port, plug] : plugs) {
        if (plug.listener >= 0)
            acceptHosts(&plug);
        if (plug.path.empty()) {
            for (size_t frames = 0; frames < SETTLED_FRAMES && readInterface(&plug); frames++) {
            }
        } else {
            readOut(&plug);
        }
    }
    tick();
}

void onFrames(FrameHook frameHook, TickHook tickHook)
{
    onFrame = frameHook;
    onTick = tickHook;
    onSecond([] {
        if (!plugs.empty())
            tick();
    });
}

/* Plugging */

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

/* Opens what the plug names, and waits for frames or hosts there. */
static bool openPlug(Plug *plug, const std::string &kind, const std::string &name, std::string *wrong)
{
    (kind == "tap" ? plug->name : plug->path) = name;
    if (kind == "tap" && (plug->host = openInterface(name, wrong)) >= 0)
        watchHost(plug);
    if (kind == "unix" && (plug->listener = listenOn(name.c_str(), wrong)) >= 0)
        watch(plug->listener, POLLIN, [plug](short) { acceptHosts(plug); });
    return plug->host >= 0 || plug->listener >= 0;
}

bool plugPort(const std::string &plug, std::string *wrong)
{
    long long port;
    size_t equals = plug.find('='), colon = plug.find(':');
    std::string kind = colon == std::string::npos || colon < equals ? "" : plug.substr(equals + 1, colon - equals - 1);
    if ((kind != "tap" && kind != "unix") || !readNumber(plug.substr(0, equals), 0, deviceOptions().ports, &port)) {
        *wrong = "a plug is PORT=tap:NAME or PORT=unix:PATH with a port from 0 (management) to " +
                 std::to_string(deviceOptions().ports) + ", not \"" + plug + "\"";
        return false;
    }
    auto [place, isNew] = plugs.try_emplace((uint32_t)port);
    if (!isNew) {
        *wrong = "something is plugged into port " + std::to_string(port) + " already";
        return false;
    }
    place->second.port = (uint32_t)port;
    if (!openPlug(&place->second, kind, plug.substr(colon + 1), wrong)) {
        plugs.erase(place);
        return false;
    }
    setTrafficSimulated(false);
    return startTicks();
}

bool unplugPort(uint32_t port)
{
    auto found = plugs.find(port);
    if (found == plugs.end())
        return false;
    const Plug &plug = found->second;
    for (int descriptor : {plug.listener, plug.host})
        if (descriptor >= 0) {
            unwatch(descriptor);
            close(descriptor);
        }
    if (!plug.path.empty())
        unlink(plug.path.c_str());
    setPortHost(port, false);
    plugs.erase(found);
    return true;
}

void unplugPorts()
{
    stopCaptures();
    while (!plugs.empty())
        unplugPort(plugs.begin()->first);
    setTrafficSimulated(true);
}
