/*
 * stations.cpp - the simulated stations: which one sends, when does the switch learn its address, which one is silent?
 */
#include <algorithm>
#include <tuple>

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/switch/addresses.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/fdb.h"

struct Station {
    uint32_t port;
    bool sends;
};

using StationKey = std::pair<uint32_t, uint64_t>; /* VLAN, address */

static std::map<StationKey, Station> stations;
static std::set<StationKey> unheard;                                /* send, but are not learned */
static std::set<std::tuple<uint64_t, uint32_t, uint64_t>> willSend; /* uptime of the next frame; VLAN; address */

static bool stationSends(uint32_t vlan, uint64_t mac)
{
    auto found = stations.find({vlan, mac});
    return found != stations.end() && found->second.sends;
}

static void stationWasForgotten(uint32_t vlan, uint64_t mac)
{
    if (stationSends(vlan, mac))
        unheard.insert({vlan, mac});
}

static bool canBeHeard(const StationKey &key)
{
    auto found = stations.find(key);
    return found != stations.end() && found->second.sends && mayLearn(key.first, key.second, found->second.port);
}

/* Each station that can be heard sends in two to four seconds. */
static void scheduleFrames(uint64_t now)
{
    for (auto key = unheard.begin(); key != unheard.end();)
        if (canBeHeard(*key)) {
            willSend.insert({now + 2 + key->second % 3, key->first, key->second});
            key = unheard.erase(key);
        } else {
            ++key;
        }
}

/* A station that cannot be heard, or finds the table full, tries again after the next change. */
static void hear(uint32_t vlan, uint64_t mac, uint64_t now)
{
    if (!canBeHeard({vlan, mac}) || !fdbInsert(vlan, mac, {stations.at({vlan, mac}).port, FDB_LEARNED, now}))
        stationWasForgotten(vlan, mac);
}

void advanceStations(uint64_t now)
{
    fdbRemoveAged(now, fdbAgeingSeconds(), stationSends);
    while (!willSend.empty() && std::get<0>(*willSend.begin()) <= now) {
        auto [time, vlan, mac] = *willSend.begin();
        willSend.erase(willSend.begin());
        hear(vlan, mac, time);
    }
}

void settleStations(uint64_t now)
{
    fdbForgetUnreachable();
    showFilters();
    scheduleFrames(now);
}

/* Commands */

static bool readVlan(const std::string &text, uint32_t *vlan)
{
    long long number;
    if (!readNumber(text, 1, HIGHEST_VLAN, &number) || !vlanExists((uint32_t)number))
        return false;
    *vlan = (uint32_t)number;
    return true;
}

static CommandOutcome learn(const Args &args, std::string *answer)
{
    uint32_t vlan, port;
    uint64_t mac;
    if (!readVlan(args[0], &vlan))
        return refuse(answer, "there is no VLAN \"" + args[0] + "\"; create it first");
    if (!parseMac(args[1], &mac) || !isStation(mac))
        return refuse(answer, "\"" + args[1] + "\" is no station's address");
    if (!readPort(args[2], highestInterface(), &port, answer))
        return COMMAND_REFUSED;
    if (!portLearns(port))
        return refuse(answer, "port " + args[2] + " is " + portStatusText(port) + ": no frame arrives there");
    if (!portInVlan(port, vlan))
        return refuse(answer, "port " + args[2] + " is not in VLAN " + args[0]);
    stations[{vlan, mac}] = {port, true};
    hear(vlan, mac, uptimeSeconds());
    return COMMAND_DONE;
}

static CommandOutcome silence(const Args &args, std::string *answer)
{
    uint32_t vlan;
    uint64_t mac;
    if (!readVlan(args[0], &vlan) || !parseMac(args[1], &mac) || !stationSends(vlan, mac))
        return refuse(answer, "no station " + args[1] + " sends in VLAN " + args[0]);
    stations.erase({vlan, mac});
    unheard.erase({vlan, mac});
    const FdbEntry *entry = fdbFind(vlan, mac);
    if (entry && entry->type == FDB_LEARNED) {
        uint64_t now = uptimeSeconds();
        fdbInsert(vlan, mac, {entry->port, FDB_LEARNED, now});
        fdbAge(vlan, mac, now);
    }
    return COMMAND_DONE;
}

void registerStations()
{
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "learn", .usage = "VLAN MAC PORT", .fewest = 3, .most = 3,
         .help = "a station appears on the port, or moves to it", .run = learn},
        {.group = EVENT_COMMANDS, .name = "silence", .usage = "VLAN MAC", .fewest = 2, .most = 2,
         .help = "a station stops sending: its address ages", .run = silence},
    };
    registerCommands(commands);
    onAddressRemoved(stationWasForgotten);
}

void resetStations()
{
    stations.clear();
    unheard.clear();
    willSend.clear();
    if (!trafficIsSimulated())
        return;
    std::vector<uint32_t> linked;
    for (uint32_t port = nextPort(0); port; port = nextPort(port))
        if (portHasLink(port))
            linked.push_back(port);
    const DeviceOptions &options = deviceOptions();
    uint32_t silent = std::min(options.silentStations, options.stations / 4);
    for (uint32_t i = 0; i < options.stations; i++) {
        uint32_t vlan = 1 + i % options.stationVlans;
        uint32_t port = linked[(i + i / linked.size()) % linked.size()]; /* gives a port stations of several VLANs */
        uint64_t mac = 0x020000000000 + 257ull * (i + 1);
        bool sends = i + silent < options.stations;
        if (!fdbInsert(vlan, mac, {port, FDB_LEARNED, 0}))
            continue;
        stations[{vlan, mac}] = {port, sends};
        if (!sends)
            fdbAge(vlan, mac, 0);
    }
}
