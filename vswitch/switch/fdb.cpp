/*
 * model_fdb.cpp - the virtual switch's forwarding database, what the bridge shows of it, and the walks through it.
 */
#include <algorithm>
#include <functional>
#include <tuple>

#include "vswitch/base/operations.h"
#include "vswitch/switch/fdb.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

static const uint32_t MAX_ENTRIES = 32768;

static Fdb entries;
static std::set<std::pair<uint64_t, uint32_t>> addresses; /* and their VLANs, ordered by address */
static std::set<std::tuple<uint64_t, uint32_t, uint64_t>> ageing; /* when last seen at least, VLAN, address */
static uint32_t mostEntries;                                      /* since start, or since it was reset */
static uint32_t badAdds;

static Setting ageingTime = {"rpcclt_openapiDbDot1dTpAgingTimeGet", "rpcclt_openapiDbDot1dTpAgingTimeSet", FOR_SWITCH,
                             300, 10, 1000000};
static Setting maxEntries = {"rpcclt_openapiFdbMaxTableEntriesGet", nullptr, FOR_SWITCH, MAX_ENTRIES, 0, 0};
static Setting hardwareLimit = {"rpcclt_openapiFdbMacMaxHwLimitGet", nullptr, FOR_SWITCH, MAX_ENTRIES, 0, 0};
static Setting learningType = {"rpcclt_openapiFdbTypeOfVLGet", nullptr, FOR_SWITCH, LEARNING_INDEPENDENT, 0, 0};

const Fdb &fdb()
{
    return entries;
}

bool isStation(uint64_t mac)
{
    return mac && !isGroup(mac) && mac != bridgeMac();
}

bool macRestricted(uint64_t mac)
{
    return mac == 0 || mac == 0xFFFFFFFFFFFF || (mac & ~0xFull) == 0x0180C2000000 || mac == bridgeMac();
}

const FdbEntry *fdbFind(uint32_t vlan, uint64_t mac)
{
    auto found = entries.find({vlan, mac});
    return found == entries.end() ? nullptr : &found->second;
}

bool fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry)
{
    if (entries.size() == MAX_ENTRIES && !fdbFind(vlan, mac)) {
        badAdds++;
        return false;
    }
    entries[{vlan, mac}] = entry;
    addresses.insert({mac, vlan});
    mostEntries = std::max(mostEntries, (uint32_t)entries.size());
    return true;
}

void fdbErase(uint32_t vlan, uint64_t mac)
{
    if (!entries.erase({vlan, mac}))
        return;
    addresses.erase({mac, vlan});
    stationWasForgotten(vlan, mac);
}

bool mayLearn(uint32_t vlan, uint64_t mac, uint32_t port)
{
    const FdbEntry *known = fdbFind(vlan, mac);
    return isStation(mac) && portIsUp(port) && portInVlan(port, vlan) && (!known || known->type == FDB_LEARNED);
}

void fdbAge(uint32_t vlan, uint64_t mac, uint64_t seen)
{
    ageing.insert({seen, vlan, mac});
}

bool fdbLearn(uint32_t vlan, uint64_t mac, uint32_t port)
{
    if (!mayLearn(vlan, mac, port))
        return false;
    bool known = fdbFind(vlan, mac);
    if (!fdbInsert(vlan, mac, {port, FDB_LEARNED, uptimeSeconds()}))
        return false;
    if (!known)
        fdbAge(vlan, mac, uptimeSeconds());
    return true;
}

/* A station that was heard since it was noted is looked at again later; one that talks by itself does not age. */
void ageEntries(uint64_t now)
{
    uint64_t limit = ageingTime.value();
    while (!ageing.empty()) {
        auto [noted, vlan, mac] = *ageing.begin();
        if (now < noted + limit)
            return;
        ageing.erase(ageing.begin());
        const FdbEntry *entry = fdbFind(vlan, mac);
        if (!entry || entry->type != FDB_LEARNED || stationTalks(vlan, mac))
            continue;
        if (entry->seen > noted)
            fdbAge(vlan, mac, entry->seen);
        else
            fdbErase(vlan, mac);
    }
}

void resetFdb()
{
    entries.clear();
    addresses.clear();
    ageing.clear();
    mostEntries = badAdds = 0;
    fdbInsert(1, bridgeMac(), {0, FDB_MANAGEMENT, 0});
}

/* The bridge's view: addresses without VLANs */

/* The entry of an address in whatever VLAN it is known first; null when it is not known. */
static const FdbEntry *entryOf(const OpenBufferDesc *address)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac))
        return nullptr;
    auto found = addresses.lower_bound({mac, 0});
    return found == addresses.end() || found->first != mac ? nullptr : fdbFind(found->second, mac);
}

static int addressNext(OpenBufferDesc *address)
{
    uint64_t mac;
    std::string text = textOf(address);
    auto found = addresses.begin(); /* an empty text asks for the first address */
    if (!text.empty()) {
        if (!parseMac(text, &mac))
            return OPEN_BAD_ARGUMENT;
        found = addresses.upper_bound({mac, UINT32_MAX});
    }
    return found == addresses.end() ? (int)OPEN_FAILED : setText(address, macText(found->first));
}

static uint32_t bridgeStatus(FdbType type)
{
    return type == FDB_LEARNED ? BRIDGE_FDB_LEARNED : type == FDB_MANAGEMENT ? BRIDGE_FDB_SELF : BRIDGE_FDB_MGMT;
}

/* Walking */

/* The ports on which an entry shows. */
static PortSet portsOf(uint32_t vlan, uint64_t mac, const FdbEntry &entry)
{
    const Filter *filter = entry.type == FDB_STATIC ? filterFor(vlan, mac) : nullptr;
    return filter ? filter->destinations : PortSet{entry.port};
}

struct Step {
    uint32_t vlan;
    uint64_t mac;
    uint32_t port;
    FdbType type;
};

/* An address on the lowest port from `lowest` on, of several VLANs in the lowest. */
static bool onPortFrom(uint64_t mac, uint64_t lowest, Step *step)
{
    bool found = false;
    for (auto at = addresses.lower_bound({mac, 0}); at != addresses.end() && at->first == mac; ++at) {
        const FdbEntry *entry = fdbFind(at->second, mac);
        for (uint32_t port : portsOf(at->second, mac, *entry))
            if (port >= lowest && (!found || port < step->port)) {
                *step = {at->second, mac, port, entry->type};
                found = true;
            }
    }
    return found;
}

static bool nextInVlan(uint32_t vlan, const uint64_t *mac, Step *step)
{
    auto next = mac ? entries.upper_bound({vlan, *mac}) : entries.lower_bound({vlan, 0});
    if (next == entries.end() || next->first.first != vlan)
        return false;
    *step = {vlan, next->first.second, next->second.port, next->second.type};
    return true;
}

static bool nextInAnyVlan(const uint64_t *mac, uint32_t port, Step *step)
{
    if (mac && onPortFrom(*mac, (uint64_t)port + 1, step))
        return true;
    auto address = mac ? addresses.upper_bound({*mac, UINT32_MAX}) : addresses.begin();
    return address != addresses.end() && onPortFrom(address->first, 0, step);
}

static int entryNext(OpenBufferDesc *address, uint32_t *vlan, uint32_t *port, uint32_t *type)
{
    uint64_t mac;
    std::string text = textOf(address);
    bool starts = text.empty();
    if ((!starts && !parseMac(text, &mac)) || (*vlan && !vlanExists(*vlan)))
        return OPEN_BAD_ARGUMENT;
    const uint64_t *from = starts ? nullptr : &mac;
    Step next;
    if (!(*vlan ? nextInVlan(*vlan, from, &next) : nextInAnyVlan(from, *port, &next)))
        return OPEN_FAILED;
    *vlan = next.vlan;
    *port = next.port;
    *type = next.type;
    return setText(address, macText(next.mac));
}

/* Counting, flushing, deleting */

static bool isLearned(const Fdb::value_type &entry)
{
    return entry.second.type == FDB_LEARNED;
}

template <class Matches> static int countEntries(uint32_t *count, Matches matches)
{
    return tell((uint32_t)std::count_if(entries.begin(), entries.end(), matches), count);
}

template <bool dynamic> static int countInVlan(uint32_t vlan, uint32_t *count)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    auto from = entries.lower_bound({vlan, 0}), to = entries.lower_bound({vlan + 1, 0});
    return tell((uint32_t)std::count_if(from, to, [](const auto &entry) { return isLearned(entry) == dynamic; }), count);
}

template <bool dynamic> static int countOnPort(uint32_t port, uint32_t *count)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    return countEntries(count, [=](const auto &entry) {
        if (isLearned(entry) != dynamic)
            return false;
        return dynamic ? entry.second.port == port
                       : portsOf(entry.first.first, entry.first.second, entry.second).contains(port);
    });
}

template <class Matches> static int flush(Matches matches)
{
    for (auto at = entries.begin(); at != entries.end();) {
        auto [vlan, mac] = at->first;
        bool flushed = isLearned(*at) && matches(*at);
        ++at;
        if (flushed)
            fdbErase(vlan, mac);
    }
    return OPEN_OK;
}

static int flushByMac(OpenBufferDesc *address)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac))
        return OPEN_BAD_ARGUMENT;
    return flush([=](const auto &entry) { return entry.first.second == mac; });
}

static int flushByVlan(uint32_t vlan)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    return flush([=](const auto &entry) { return entry.first.first == vlan; });
}

void forgetPort(uint32_t port)
{
    flush([=](const auto &entry) { return entry.second.port == port; });
}

static int flushByPort(uint32_t port)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    forgetPort(port);
    return OPEN_OK;
}

/* Asks of each VLAN and port once. */
void forgetUnreachable()
{
    uint32_t ofVlan = 0;
    std::map<uint32_t, bool> keeps; /* by port */
    flush([&](const auto &entry) {
        if (entry.first.first != ofVlan) {
            ofVlan = entry.first.first;
            keeps.clear();
        }
        uint32_t port = entry.second.port;
        auto found = keeps.find(port);
        if (found == keeps.end())
            found = keeps.insert({port, portIsUp(port) && portInVlan(port, ofVlan)}).first;
        return !found->second;
    });
}

/* Deletes the entry that stands exactly there. */
static int deleteEntry(OpenBufferDesc *address, uint32_t vlan, uint32_t port)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac) || !vlanExists(vlan) || !interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    const FdbEntry *entry = fdbFind(vlan, mac);
    if (!entry || entry->port != port || entry->type != FDB_LEARNED)
        return OPEN_FAILED;
    fdbErase(vlan, mac);
    return OPEN_OK;
}

static void serveBridgeView()
{
    SERVE(rpcclt_openapiDot1dTpFdbEntryNextGet, addressNext);
    SERVE(rpcclt_openapiDot1dTpFdbEntryGet,
          [](OpenBufferDesc *address) -> int { return entryOf(address) ? OPEN_OK : OPEN_FAILED; });
    SERVE(rpcclt_openapiDot1dTpFdbPortGet, [](OpenBufferDesc *address, uint32_t *port) -> int {
        const FdbEntry *entry = entryOf(address);
        return entry ? tell(entry->port, port) : OPEN_FAILED;
    });
    SERVE(rpcclt_openapiDot1dTpFdbStatusGet, [](OpenBufferDesc *address, uint32_t *status) -> int {
        const FdbEntry *entry = entryOf(address);
        return entry ? tell(bridgeStatus(entry->type), status) : OPEN_FAILED;
    });
    SERVE(rpcclt_openapiDot1dTpLearnedEntryDiscardsGet, [](uint32_t *count) { return tell(badAdds, count); });
}

static void serveDatabases()
{
    SERVE(rpcclt_openapiFdbIdGet, [](uint32_t fdbId) -> int { return vlanExists(fdbId) ? OPEN_OK : OPEN_FAILED; });
    SERVE(rpcclt_openapiFdbIdNextGet, [](uint32_t startFrom, uint32_t *next) {
        std::vector<uint16_t> ids = existingVlans();
        auto found = std::upper_bound(ids.begin(), ids.end(), startFrom);
        return tellNext(found == ids.end() ? 0 : *found, next);
    });
    SERVE(rpcclt_openapiFdbAddrAgingTimeoutGet, [](uint32_t fdbId, uint32_t *timeOut) -> int {
        return vlanExists(fdbId) ? tell((uint32_t)ageingTime.value(), timeOut) : OPEN_BAD_ARGUMENT;
    });
    SERVE(rpcclt_openapiFdbAddrAgingTimeoutSet, [](uint32_t fdbId, uint32_t timeOut) -> int {
        if (!vlanExists(fdbId) || timeOut < ageingTime.lowest || timeOut > ageingTime.highest)
            return OPEN_BAD_ARGUMENT;
        ageingTime.put(0, timeOut);
        return OPEN_OK;
    });
}

static void serveCounts()
{
    SERVE(rpcclt_openapiActiveAddrEntriesGet, [](uint32_t *count) { return tell((uint32_t)entries.size(), count); });
    SERVE(rpcclt_openapiFdbMaxCountGet, [](uint32_t *count) { return tell(mostEntries, count); });
    SERVE(rpcclt_openapiMaxCountReset, []() -> int {
        mostEntries = (uint32_t)entries.size();
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiFdbBadAddsGet, [](uint32_t *count) { return tell(badAdds, count); });
    SERVE(rpcclt_openapiFdbDynamicEntriesGet, [](uint32_t *count) { return countEntries(count, isLearned); });
    SERVE(rpcclt_openapiFdbInternalEntriesGet,
          [](uint32_t *count) { return countEntries(count, std::not_fn(isLearned)); });
    SERVE(rpcclt_openapiFdbVlanDynamicEntriesGet, countInVlan<true>);
    SERVE(rpcclt_openapiFdbVlanInternalEntriesGet, countInVlan<false>);
    SERVE(rpcclt_openapiFdbIntfDynamicEntriesGet, countOnPort<true>);
    SERVE(rpcclt_openapiFdbIntfInternalEntriesGet, countOnPort<false>);
}

void serveFdb()
{
    serveSettings({&ageingTime, &maxEntries, &hardwareLimit, &learningType});
    serveBridgeView();
    serveDatabases();
    serveCounts();

    SERVE(rpcclt_openapiIsRestrFilterMacGet, [](OpenBufferDesc *address) -> int {
        uint64_t mac;
        if (!parseMac(textOf(address), &mac))
            return OPEN_BAD_ARGUMENT;
        return macRestricted(mac) ? OPEN_RESTRICTED : OPEN_OK;
    });
    SERVE(rpcclt_openapiFdbEntryNextGet, entryNext);
    SERVE(rpcclt_openapiFdbFlushByMac, flushByMac);
    SERVE(rpcclt_openapiFdbFlushByVlan, flushByVlan);
    SERVE(rpcclt_openapiFdbFlushByPort, flushByPort);
    SERVE(rpcclt_openapiFdbFlush, []() { return flush([](const auto &) { return true; }); });
    SERVE(rpcclt_openapiFdbEntryDelete, deleteEntry);
}
