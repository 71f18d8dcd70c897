/*
 * probes.cpp - sends and recognises detection frames. A frame carries the port that sent it and a random key, so that
 * no host can forge one before it has received one. They go to a group address made of the switch's address.
 */
#include "vswitch/frames/probes.h"

#include <map>
#include <random>

#include "vswitch/base/clock.h"
#include "vswitch/base/trace.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

enum : uint32_t { TYPE_PROBE = 0x9000 };

static std::map<uint32_t, uint64_t> nextProbes; /* when the port sends again, in milliseconds of uptime */

static uint64_t probeKey()
{
    static const uint64_t key = (uint64_t)std::random_device()() << 32 | std::random_device()();
    return key;
}

static uint64_t probeGroup()
{
    return bridgeMac() | 1ull << 40;
}

static void sendProbe(uint32_t port, const LoopProbe &probe)
{
    std::string addresses, rest;
    putNumber(&addresses, probeGroup(), 6);
    putNumber(&addresses, bridgeMac(), 6);
    if (probe.vlan) {
        putNumber(&rest, probe.tpid, 2);
        putNumber(&rest, probe.vlan, 2);
    }
    putNumber(&rest, TYPE_PROBE, 2);
    putNumber(&rest, port, 4);
    putNumber(&rest, probeKey(), 8);
    rest.resize(SHORTEST_REST);
    sendFrame(port, {addresses, false, 0, rest});
    loopFrameSent(port);
}

/* Reports the loop to the port that sent the frame, unless that port is down by now: then there is no loop any more. */
bool handleProbe(const Frame &frame)
{
    if (frame.destination != probeGroup() || frame.source != bridgeMac())
        return false;
    std::string_view probe = frame.bytes.substr(12);
    if (numberAt(probe, 0, 2) != TYPE_PROBE)
        probe = probe.substr(std::min<size_t>(probe.size(), VLAN_TAG));
    uint32_t sender = (uint32_t)numberAt(probe, 2, 4);
    if (probe.size() < 14 || numberAt(probe, 0, 2) != TYPE_PROBE || numberAt(probe, 6, 8) != probeKey())
        return false;
    if (portExists(sender) && portIsUp(sender)) {
        if (tracing())
            traceLine("port " + std::to_string(sender) + ": its detection frame came back on port " +
                      std::to_string(frame.port));
        loopFrameReceived(sender);
        bringUpToNow();
    }
    return true;
}

void sendDueProbes()
{
    uint64_t now = uptimeMillis();
    for (uint32_t port = nextPlugged(MANAGEMENT_PORT); port != UINT32_MAX; port = nextPlugged(port)) {
        LoopProbe probe = loopProbe(port);
        if (!probe.sends || !portIsUp(port)) {
            nextProbes.erase(port);
        } else if (uint64_t &next = nextProbes[port]; next <= now) {
            next = now + 1000ull * probe.intervalSeconds;
            sendProbe(port, probe);
        }
    }
}

void resetProbes()
{
    nextProbes.clear();
}
