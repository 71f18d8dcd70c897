/*
 * hosts.cpp - reads the frames of hosts, and sends frames to them.
 *
 * No host can make the others wait: a turn reads at most TURN_BYTES from a socket or TURN_FRAMES from an interface, and
 * a socket's queue holds at most QUEUE_BYTES.
 */
#include "vswitch/frames/hosts.h"

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "vswitch/base/clock.h"
#include "vswitch/base/trace.h"
#include "vswitch/base/watch.h"
#include "vswitch/frames/capture.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : size_t {
    LONGEST_LENGTH = 65536, /* the highest length before a frame; above it, the host has lost the frame boundaries */
    TURN_BYTES = 8192,
    TURN_FRAMES = 64,
    WAITING_FRAMES = 1024, /* an interface's queue holds about as many */
    QUEUE_BYTES = 262144,  /* a socket's queue */
    FLUSH_BYTES = 65536,
    TRACED_FRAMES = 100    /* lines a second */
};

static FrameHook onFrame;

void onHostFrame(FrameHook hook)
{
    onFrame = hook;
}

void setHostUp(Plug *plug, bool up)
{
    if (plug->isUp == up)
        return;
    plug->isUp = up;
    setPortHost(plug->port, up);
    bringUpToNow();
}

void closeHost(Plug *plug)
{
    unwatch(plug->host);
    close(plug->host);
    plug->host = -1;
    plug->input.clear();
    plug->output.clear();
}

static void disconnect(Plug *plug)
{
    closeHost(plug);
    setHostUp(plug, false);
}

bool hasHungUp(const Plug &plug)
{
    pollfd host = {plug.host, 0, 0};
    return plug.host >= 0 && poll(&host, 1, 0) == 1 && (host.revents & POLLHUP);
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

/* Reads all that a socket's host has sent by now, also if it has disconnected since. */
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

static void readFrames(Plug *plug, size_t most)
{
    while (most-- > 0 && readInterface(plug)) {
    }
}

void receiveTurn(Plug *plug)
{
    if (plug->path.empty())
        readFrames(plug, TURN_FRAMES);
    else
        readSocket(plug, TURN_BYTES);
}

void receiveWaiting(Plug *plug)
{
    if (plug->path.empty())
        readFrames(plug, WAITING_FRAMES);
    else
        readOut(plug);
}

/* Sending */

void flushHost(Plug *plug)
{
    if (plug->path.empty() || plug->host < 0 || plug->output.empty())
        return;
    ssize_t sent = send(plug->host, plug->output.data(), plug->output.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN && errno != EINTR)
        return disconnect(plug);
    plug->output.erase(0, sent > 0 ? (size_t)sent : 0);
}

static bool queueForSocket(Plug *plug, const OutgoingFrame &frame, std::string_view tag)
{
    uint32_t length = (uint32_t)(frame.addresses.size() + tag.size() + frame.rest.size());
    if (plug->output.size() + sizeof length + length > FLUSH_BYTES)
        flushHost(plug);
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

bool sendToHost(Plug *plug, const OutgoingFrame &frame, std::string_view tag)
{
    return plug->path.empty() ? writeToInterface(plug, frame, tag) : queueForSocket(plug, frame, tag);
}
