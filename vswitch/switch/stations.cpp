/*
 * stations.cpp - the simulated stations: where does each send, when does the switch learn its address, and how many
 * frames do the ports count?
 *
 * A station sends frames with a tag or without one; what the port does with them decides in which VLAN it is learned.
 */
#include <algorithm>
#include <compare>

#include "vswitch/base/clock.h"
#include "vswitch/base/commands.h"
#include "vswitch/switch/addresses.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/fdb.h"

static const uint64_t IN_FRAMES = 5, OUT_FRAMES = 10; /* of a port that is up, in a second */
static const uint32_t TYPE_IPV4 = 0x0800;

struct StationKey {
    uint64_t mac;
    uint32_t port, tag; /* tag 0: none */
    auto operator<=>(const StationKey &) const = default;
};

/* A station is heard in a VLAN, will be heard at a time, waits for a place in the full table, or cannot be heard. */
struct Station {
    uint32_t heardIn = 0;
    uint64_t sendsAt = 0; /* uptime in seconds; 0: never */
    bool waits = false;
};

static std::map<StationKey, Station> stations; /* that send */

/* Calls use(key, station) for each station with the address. */
template <class Use> static void forAddress(uint64_t mac, Use use)
{
    for (auto at = stations.lower_bound({mac, 0, 0}); at != stations.end() && at->first.mac == mac;) {
        auto current = at++;
        use(current->first, current->second);
    }
}

static Arrival frameOf(const StationKey &key)
{
    return {key.port, key.tag, key.mac, TYPE_IPV4};
}

/* The VLAN in which the switch can learn the station, 0 for none. */
static uint32_t audibleIn(const StationKey &key)
{
    Admission admission = admit(frameOf(key));
    return admission.verdict == ADMITTED && mayLearn(admission.vlan, key.mac, key.port) ? admission.vlan : 0;
}

static bool stationSends(uint32_t vlan, uint64_t mac)
{
    bool sends = false;
    forAddress(mac, [&](const StationKey &, const Station &station) { sends |= station.heardIn == vlan; });
    return sends;
}

static void addressWasRemoved(uint32_t vlan, uint64_t mac)
{
    forAddress(mac, [=](const StationKey &, Station &station) {
        if (station.heardIn == vlan)
            station.heardIn = 0;
    });
    stateChanged();
}

/* The station does not send in the VLAN any more: its address ages from now on. */
static void leaveAgeing(uint32_t vlan, uint64_t mac, uint64_t now)
{
    const FdbEntry *entry = fdbFind(vlan, mac);
    if (!entry || entry->type != FDB_LEARNED)
        return;
    fdbInsert(vlan, mac, {entry->port, FDB_LEARNED, now});
    fdbAge(vlan, mac, now);
}

/* A station that can be heard sends in two to four seconds. */
static void schedule(const StationKey &key, Station *station, uint64_t now)
{
    uint32_t vlan = audibleIn(key);
    if (station->heardIn && station->heardIn != vlan) {
        leaveAgeing(station->heardIn, key.mac, now);
        station->heardIn = 0;
    }
    station->waits = station->waits && vlan && fdbEntries().size() == MAX_ADDRESSES;
    if (!vlan)
        station->sendsAt = 0;
    else if (!station->heardIn && !station->waits && !station->sendsAt)
        station->sendsAt = now + 2 + key.mac % 3;
}

static void hear(const StationKey &key, Station *station, uint64_t now)
{
    station->sendsAt = 0;
    uint32_t vlan = audibleIn(key);
    if (!vlan)
        return;
    station->waits = !fdbInsert(vlan, key.mac, {key.port, FDB_LEARNED, now});
    station->heardIn = station->waits ? 0 : vlan;
}

void advanceStations(uint64_t now)
{
    fdbRemoveAged(now, fdbAgeingSeconds(), stationSends);
    for (auto &[key, station] : stations)
        if (station.sendsAt && station.sendsAt <= now)
            hear(key, &station, now);
}

void settleStations(uint64_t now)
{
    fdbForgetUnreachable();
    showEntries();
    for (auto &[key, station] : stations)
        schedule(key, &station, now);
}

uint64_t nextOtherEvent(const PortSet &ports)
{
    uint64_t next = UINT64_MAX;
    bool anyWaits = false;
    for (const auto &[key, station] : stations) {
        if (station.sendsAt && !ports.contains(key.port))
            next = std::min(next, station.sendsAt);
        anyWaits |= station.waits;
    }
    return anyWaits ? std::min(next, fdbNextAge(fdbAgeingSeconds())) : next;
}

uint64_t nextStationEvent()
{
    return nextOtherEvent({});
}

void collectStationValues(const PortSet &ports, Values *values)
{
    for (auto &[key, station] : stations)
        if (ports.contains(key.port))
            values->push_back(&station.sendsAt);
}

/* Each port that is up receives frames without tags. Where it does not admit them, it discards them. */
void countSimulatedFrames(uint64_t seconds)
{
    if (!trafficIsSimulated() || !seconds)
        return;
    for (uint32_t port = nextInterface(0); port; port = nextInterface(port)) {
        if (!portIsUp(port))
            continue;
        Verdict verdict = admit({.port = port, .etherType = TYPE_IPV4}).verdict;
        countersOf(port).inFrames += IN_FRAMES * seconds;
        countersOf(port).inDiscards += verdict == ADMITTED ? 0 : IN_FRAMES * seconds;
        countersOf(port).outFrames += OUT_FRAMES * seconds;
    }
}

/* Commands */

/* The station sends in the VLAN; if it is not learned there, its frames would be. */
static bool isIn(uint32_t vlan, const StationKey &key, const Station &station)
{
    return station.heardIn == vlan || (!station.heardIn && admit(frameOf(key)).vlan == vlan);
}

/* Removes the stations of the address in the VLAN. False: there was none. */
static bool removeStations(uint32_t vlan, uint64_t mac)
{
    bool found = false;
    forAddress(mac, [&](const StationKey &key, const Station &station) {
        if (!isIn(vlan, key, station))
            return;
        found = true;
        stations.erase(StationKey(key));
    });
    return found;
}

/* Finds out how the station must send to be in the VLAN: without a tag, else with the VLAN's tag. */
static bool findTag(uint32_t vlan, StationKey *key, std::string *answer)
{
    std::string port = std::to_string(key->port), name = std::to_string(vlan);
    for (uint32_t tag : {0u, vlan}) {
        key->tag = tag;
        Admission admission = admit(frameOf(*key));
        if (admission.verdict != ADMITTED && tag) {
            refuse(answer, std::string("port ").append(port).append(" discards frames of VLAN ").append(name)
                               .append(": ").append(refusalText(frameOf(*key), admission)));
            return false;
        }
        if (admission.verdict == ADMITTED && admission.vlan == vlan)
            break;
    }
    if (!portInVlan(key->port, vlan))
        refuse(answer, "port " + port + " is not in VLAN " + name);
    else if (!mayLearn(vlan, key->mac, key->port))
        refuse(answer, "a static filter has " + macText(key->mac) + " in VLAN " + name + ": nothing is learned");
    else
        return true;
    return false;
}

static CommandOutcome learn(const Args &args, std::string *answer)
{
    long long vlan;
    StationKey key = {};
    if (!readNumber(args[0], 1, HIGHEST_VLAN, &vlan) || !vlanExists((uint32_t)vlan))
        return refuse(answer, "there is no VLAN \"" + args[0] + "\"; create it first");
    if (!parseMac(args[1], &key.mac) || !isStation(key.mac))
        return refuse(answer, "\"" + args[1] + "\" is no station's address");
    if (!readPort(args[2], highestInterface(), &key.port, answer))
        return COMMAND_REFUSED;
    if (!portLearns(key.port))
        return refuse(answer, "port " + args[2] + " is " + portStatusText(key.port) + ": no frame arrives there");
    if (!findTag((uint32_t)vlan, &key, answer))
        return COMMAND_REFUSED;
    removeStations((uint32_t)vlan, key.mac);
    hear(key, &stations[key], uptimeSeconds());
    if (stations[key].waits)
        *answer = "not learned: the address table is full\n";
    return COMMAND_DONE;
}

static CommandOutcome silence(const Args &args, std::string *answer)
{
    long long vlan;
    uint64_t mac;
    if (!readNumber(args[0], 1, HIGHEST_VLAN, &vlan) || !parseMac(args[1], &mac) ||
        !removeStations((uint32_t)vlan, mac))
        return refuse(answer, "no station " + args[1] + " sends in VLAN " + args[0]);
    leaveAgeing((uint32_t)vlan, mac, uptimeSeconds());
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
    onAddressRemoved(addressWasRemoved);
}

void resetStations()
{
    stations.clear();
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
        if (sends)
            stations[{mac, port, vlan == 1 ? 0 : vlan}].heardIn = vlan;
        else
            fdbAge(vlan, mac, 0);
    }
}
