/*
 * lldp.cpp - LLDP frames (IEEE 802.1AB) with the TLVs of LLDP-MED (ANSI/TIA-1057): capabilities and network policy.
 */
#include "vswitch/frames/lldp.h"

#include <algorithm>
#include <map>
#include <string>

#include "vswitch/base/clock.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/switch/state.h"

enum : uint32_t { TYPE_LLDP = 0x88CC, TLV_CHASSIS = 1, TLV_PORT, TLV_TIME_TO_LIVE, TLV_ORGANIZATION = 127 };
enum : uint32_t { SUBTYPE_MAC = 4, SUBTYPE_LOCAL = 7, MED_CAPABILITIES = 1, MED_POLICY, APPLICATION_VOICE = 1 };
enum : uint32_t { NETWORK_DEVICE = 4, CAN_POLICY = 3 /* the bits of both TLVs */, SECONDS_TO_LIVE = 120 };
enum : uint64_t { LLDP_GROUP = 0x0180C200000E, MED_OUI = 0x0012BB, FAST_MILLIS = 1000, SLOW_MILLIS = 30000 };
enum : int { FAST_FRAMES = 3 };

struct Sender {
    VoicePolicy policy;
    int fastFrames = FAST_FRAMES; /* still to send */
    uint64_t next = 0;            /* in milliseconds of uptime */
};
static std::map<uint32_t, Sender> senders; /* ports that are up and have a policy */

static void putTlv(std::string *frame, uint32_t type, const std::string &value)
{
    putNumber(frame, type << 9 | value.size(), 2);
    frame->append(value);
}

static std::string numbers(std::initializer_list<std::pair<uint64_t, size_t>> parts)
{
    std::string bytes;
    for (auto [number, size] : parts)
        putNumber(&bytes, number, size);
    return bytes;
}

static void sendPolicy(uint32_t port, const VoicePolicy &policy)
{
    const std::string addresses = numbers({{LLDP_GROUP, 6}, {bridgeMac(), 6}});
    uint32_t bits = (uint32_t)policy.tagged << 22 | policy.vlan << 9 | policy.priority << 6 | policy.dscp;
    std::string rest = numbers({{TYPE_LLDP, 2}});
    putTlv(&rest, TLV_CHASSIS, numbers({{SUBTYPE_MAC, 1}, {bridgeMac(), 6}}));
    putTlv(&rest, TLV_PORT, numbers({{SUBTYPE_LOCAL, 1}}) + std::to_string(port));
    putTlv(&rest, TLV_TIME_TO_LIVE, numbers({{SECONDS_TO_LIVE, 2}}));
    putTlv(&rest, TLV_ORGANIZATION,
           numbers({{MED_OUI, 3}, {MED_CAPABILITIES, 1}, {CAN_POLICY, 2}, {NETWORK_DEVICE, 1}}));
    putTlv(&rest, TLV_ORGANIZATION, numbers({{MED_OUI, 3}, {MED_POLICY, 1}, {APPLICATION_VOICE, 1}, {bits, 3}}));
    rest.resize(std::max<size_t>(rest.size() + 2, SHORTEST_REST)); /* two zeros end the list */
    sendFrame(port, {addresses, false, 0, rest});
}

void sendDuePolicies()
{
    uint64_t now = uptimeMillis();
    for (uint32_t port = nextPlugged(MANAGEMENT_PORT); port != UINT32_MAX; port = nextPlugged(port)) {
        VoicePolicy policy = voicePolicy(port);
        if (!policy.sends || !portIsUp(port)) {
            senders.erase(port);
            continue;
        }
        Sender &sender = senders[port];
        if (sender.policy != policy)
            sender = {policy};
        if (sender.next > now)
            continue;
        sender.next = now + (--sender.fastFrames > 0 ? FAST_MILLIS : SLOW_MILLIS);
        sendPolicy(port, policy);
    }
}

void resetLldp()
{
    senders.clear();
}
