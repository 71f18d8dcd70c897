/*
 * plugs.cpp - what is plugged into which port: accepts hosts, lets them take turns, and does what a cable does.
 *
 * A port that the switch has shut has no carrier: an interface shows it to its host; a socket's host is disconnected,
 * and cannot connect until the port is up again. An interface that is deleted (with its network namespace, say) is
 * taken again when there is one of that name.
 */
#include "vswitch/frames/plugs.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <map>

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/base/sockets.h"
#include "vswitch/base/trace.h"
#include "vswitch/base/watch.h"
#include "vswitch/frames/capture.h"
#include "vswitch/frames/frame.h"
#include "vswitch/frames/hosts.h"
#include "vswitch/frames/interface.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : long { TICK_NANOSECONDS = 100000000 };

static std::map<uint32_t, Plug> plugs;
static int ticks = -1; /* a timer */
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

/* Is the host there, but the port shut by the switch? */
static bool isShut(const Plug &plug)
{
    return plug.port != MANAGEMENT_PORT && plug.isUp && !portIsOpen(plug.port);
}

bool sendFrame(uint32_t port, const OutgoingFrame &frame)
{
    auto found = plugs.find(port);
    if (found == plugs.end() || found->second.host < 0)
        return false;
    char tagBytes[] = {(char)0x81, 0, (char)(frame.tag >> 8), (char)frame.tag};
    std::string_view tag(tagBytes, frame.tagged ? sizeof tagBytes : 0);
    bool sent = sendToHost(&found->second, frame, tag);
    if (port != MANAGEMENT_PORT)
        ++(sent ? countersOf(port).outFrames : countersOf(port).outDiscards);
    if (portIsCaptured(port)) {
        std::string whole(frame.addresses);
        captureFrame(port, FRAME_OUT, whole.append(tag).append(frame.rest), sent ? "" : "the host is too slow");
    }
    return sent;
}

/* Turns */

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
        flushHost(&plug);
        if (waited && plug.host >= 0)
            watchHost(&plug);
    }
}

static void serveHost(Plug *plug, short events)
{
    bringUpToNow();
    if (events & (POLLIN | POLLHUP | POLLERR))
        receiveTurn(plug);
    flushAll();
}

/* Accepts one host; refuses others, and all while the port is shut. */
static void acceptHosts(Plug *plug)
{
    int host;
    while ((host = accept4(plug->listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
        if (hasHungUp(*plug))
            receiveWaiting(plug);
        if (plug->host >= 0 || isShut(*plug)) {
            close(host);
            continue;
        }
        plug->host = host;
        watchHost(plug);
        setHostUp(plug, true);
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
            setHostUp(plug, false);
        return;
    }
    if (plug->host < 0 && !takeInterfaceAgain(plug))
        return;
    setHostUp(plug, interfaceIsUp(plug->host));
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
        receiveWaiting(&plug);
    }
    tick();
}

void onFrames(FrameHook frameHook, TickHook tickHook)
{
    onHostFrame(frameHook);
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

bool readPlugged(const std::string &text, uint32_t *port, std::string *wrong)
{
    long long number;
    if (!readNumber(text, MANAGEMENT_PORT, highestInterface(), &number)) {
        const std::string last = std::to_string(deviceOptions().ports), lags = std::to_string(highestInterface());
        *wrong = "\"" + text + "\" is neither 0 (management) nor a port (to " + last + ") nor a LAG (to " + lags + ")";
        return false;
    }
    *port = (uint32_t)number;
    return true;
}

bool plugPort(const std::string &plug, std::string *wrong)
{
    uint32_t port;
    size_t equals = plug.find('='), colon = plug.find(':');
    std::string kind = colon == std::string::npos || colon < equals ? "" : plug.substr(equals + 1, colon - equals - 1);
    if (kind != "tap" && kind != "unix") {
        *wrong = "a plug is PORT=tap:NAME or PORT=unix:PATH, not \"" + plug + "\"";
        return false;
    }
    if (!readPlugged(plug.substr(0, equals), &port, wrong))
        return false;
    auto [place, isNew] = plugs.try_emplace(port);
    if (!isNew) {
        *wrong = "something is plugged into port " + std::to_string(port) + " already";
        return false;
    }
    place->second.port = port;
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
