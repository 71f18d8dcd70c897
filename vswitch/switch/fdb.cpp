/*
 * fdb.cpp - learning, and the operations that read, walk, count and flush the address table.
 */
#include "vswitch/switch/fdb.h"

#include <algorithm>
#include <functional>

#include "vswitch/base/clock.h"
#include "vswitch/base/operations.h"
#include "vswitch/switch/addresses.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"

static Setting ageingTime = {.name = "DbDot1dTpAgingTime", .initial = 300, .settable = true};
static Setting maxEntries = {.name = "FdbMaxTableEntries", .initial = MAX_ADDRESSES};
static Setting hardwareLimit = {.name = "FdbMacMaxHwLimit", .initial = MAX_ADDRESSES};
static Setting learningType = {.name = "FdbTypeOfVL", .initial = LEARNING_INDEPENDENT};

bool mayLearn(uint32_t vlan, uint64_t mac, uint32_t port)
{
    const FdbEntry *known = fdbFind(vlan, mac);
    return isStation(mac) && portLearns(port) && portInVlan(port, vlan) && (!known || known->type == FDB_LEARNED);
}

uint64_t fdbAgeingSeconds()
{
    return ageingTime.value();
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

/* Those that showEntries() added last; is each in the table, or was that full? */
static std::map<std::pair<uint32_t, uint64_t>, bool> shown;

/* A full table counts as a bad add once, when the entry is new. */
void showEntries()
{
    std::map<std::pair<uint32_t, uint64_t>, FdbEntry> wanted;
    addFilterEntries(&wanted);
    addGroupEntries(&wanted);
    for (auto at = shown.begin(); at != shown.end();) {
        auto [key, inTable] = *at;
        bool stays = wanted.contains(key);
        at = stays ? std::next(at) : shown.erase(at);
        if (!stays && inTable)
            fdbErase(key.first, key.second);
    }
    for (const auto &[key, entry] : wanted) {
        auto [place, isNew] = shown.try_emplace(key);
        if (isNew || place->second || fdbEntries().size() < MAX_ADDRESSES || fdbFind(key.first, key.second))
            place->second = fdbInsert(key.first, key.second, entry);
    }
}

/* The bridge operations: addresses without VLANs */

/* The entry of an address in its lowest VLAN, null when there is none. */
static const FdbEntry *entryOf(const OpenBufferDesc *address)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac))
        return nullptr;
    auto found = fdbByAddress().lower_bound({mac, 0});
    return found == fdbByAddress().end() || found->first != mac ? nullptr : fdbFind(found->second, mac);
}

static int addressNext(OpenBufferDesc *address)
{
    uint64_t mac;
    std::string text = textOf(address);
    auto found = fdbByAddress().begin(); /* an empty text starts the walk */
    if (!text.empty()) {
        if (!parseMac(text, &mac))
            return OPEN_BAD_ARGUMENT;
        found = fdbByAddress().upper_bound({mac, UINT32_MAX});
    }
    return found == fdbByAddress().end() ? (int)OPEN_FAILED : setText(address, macText(found->first));
}

static uint32_t bridgeStatus(FdbType type)
{
    switch (type) {
    case FDB_LEARNED:
        return BRIDGE_FDB_LEARNED;
    case FDB_MANAGEMENT:
        return BRIDGE_FDB_SELF;
    case FDB_STATIC:
        return BRIDGE_FDB_MGMT;
    default:
        return BRIDGE_FDB_OTHER;
    }
}

/* Walking */

/* The ports that an entry is counted on: a filter's destinations, those where a group is registered, or the port. */
static PortSet portsOf(uint32_t vlan, uint64_t mac, const FdbEntry &entry)
{
    if (entry.type == FDB_GMRP_LEARNED)
        return groupPorts({vlan, mac});
    const Filter *filter = entry.type == FDB_STATIC ? filterFor(vlan, mac) : nullptr;
    return filter ? filter->destinations : PortSet{entry.port};
}

struct Step {
    uint32_t vlan;
    uint64_t mac;
    uint32_t port;
    FdbType type;
};

/* Finds the entry of `mac` with the lowest port >= `lowest`; on a tie, the lowest VLAN. */
static bool onPortFrom(uint64_t mac, uint64_t lowest, Step *step)
{
    bool found = false;
    for (auto at = fdbByAddress().lower_bound({mac, 0}); at != fdbByAddress().end() && at->first == mac; ++at) {
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
    auto next = mac ? fdbEntries().upper_bound({vlan, *mac}) : fdbEntries().lower_bound({vlan, 0});
    if (next == fdbEntries().end() || next->first.first != vlan)
        return false;
    *step = {vlan, next->first.second, next->second.port, next->second.type};
    return true;
}

static bool nextInAnyVlan(const uint64_t *mac, uint32_t port, Step *step)
{
    if (mac && onPortFrom(*mac, (uint64_t)port + 1, step))
        return true;
    auto address = mac ? fdbByAddress().upper_bound({*mac, UINT32_MAX}) : fdbByAddress().begin();
    return address != fdbByAddress().end() && onPortFrom(address->first, 0, step);
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

template <class Matches> static int countEntries(uint32_t *count, Matches matches)
{
    return store((uint32_t)std::count_if(fdbEntries().begin(), fdbEntries().end(), matches), count);
}

template <bool dynamic> static int countInVlan(uint32_t vlan, uint32_t *count)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    auto from = fdbEntries().lower_bound({vlan, 0}), to = fdbEntries().lower_bound({vlan + 1, 0});
    auto matches = [](const auto &entry) { return isLearned(entry) == dynamic; };
    return store((uint32_t)std::count_if(from, to, matches), count);
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

static int flush(const std::function<bool(const Fdb::value_type &)> &matches)
{
    fdbFlush(matches);
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

static int flushByPort(uint32_t port)
{
    if (!interfaceExists(port))
        return OPEN_BAD_ARGUMENT;
    fdbForgetPort(port);
    return OPEN_OK;
}

/* Computes membership once for each VLAN and port: the table can have 32768 entries. */
void fdbForgetUnreachable()
{
    uint32_t ofVlan = 0;
    std::map<uint32_t, bool> keeps; /* by port */
    fdbFlush([&](const auto &entry) {
        if (entry.first.first != ofVlan) {
            ofVlan = entry.first.first;
            keeps.clear();
        }
        uint32_t port = entry.second.port;
        auto found = keeps.find(port);
        if (found == keeps.end())
            found = keeps.insert({port, portLearns(port) && portInVlan(port, ofVlan)}).first;
        return !found->second;
    });
}

/* Deletes a learned entry, if it is on that port. */
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

static void registerBridgeView()
{
    ASK(rpcclt_openapiDot1dTpFdbEntryNextGet, addressNext);
    ASK(rpcclt_openapiDot1dTpFdbEntryGet,
        [](OpenBufferDesc *address) -> int { return entryOf(address) ? OPEN_OK : OPEN_FAILED; });
    ASK(rpcclt_openapiDot1dTpFdbPortGet, [](OpenBufferDesc *address, uint32_t *port) -> int {
        const FdbEntry *entry = entryOf(address);
        return entry ? store(entry->port, port) : OPEN_FAILED;
    });
    ASK(rpcclt_openapiDot1dTpFdbStatusGet, [](OpenBufferDesc *address, uint32_t *status) -> int {
        const FdbEntry *entry = entryOf(address);
        return entry ? store(bridgeStatus(entry->type), status) : OPEN_FAILED;
    });
    ASK(rpcclt_openapiDot1dTpLearnedEntryDiscardsGet,
        [](uint32_t *count) { return store((uint32_t)fdbBadAdds(), count); });
}

static void registerDatabases()
{
    ASK(rpcclt_openapiFdbIdGet, [](uint32_t fdbId) -> int { return vlanExists(fdbId) ? OPEN_OK : OPEN_FAILED; });
    ASK(rpcclt_openapiFdbIdNextGet, [](uint32_t startFrom, uint32_t *next) {
        std::vector<uint16_t> ids = existingVlans();
        auto found = std::upper_bound(ids.begin(), ids.end(), startFrom);
        return storeNext(found == ids.end() ? 0 : *found, next);
    });
    ASK(rpcclt_openapiFdbAddrAgingTimeoutGet, [](uint32_t fdbId, uint32_t *timeOut) -> int {
        return vlanExists(fdbId) ? store((uint32_t)ageingTime.value(), timeOut) : OPEN_BAD_ARGUMENT;
    });
    DO(rpcclt_openapiFdbAddrAgingTimeoutSet, [](uint32_t fdbId, uint32_t timeOut) -> int {
        if (!vlanExists(fdbId) || !AGEING_TIME.contains(timeOut))
            return OPEN_BAD_ARGUMENT;
        ageingTime.put(0, timeOut);
        return OPEN_OK;
    });
}

static void registerCounts()
{
    ASK(rpcclt_openapiActiveAddrEntriesGet,
        [](uint32_t *count) { return store((uint32_t)fdbEntries().size(), count); });
    ASK(rpcclt_openapiFdbMaxCountGet, [](uint32_t *count) { return store(fdbMostEntries(), count); });
    DO(rpcclt_openapiMaxCountReset, []() -> int {
        fdbResetMostEntries();
        return OPEN_OK;
    });
    ASK(rpcclt_openapiFdbBadAddsGet, [](uint32_t *count) { return store((uint32_t)fdbBadAdds(), count); });
    ASK(rpcclt_openapiFdbDynamicEntriesGet, [](uint32_t *count) { return countEntries(count, isLearned); });
    ASK(rpcclt_openapiFdbInternalEntriesGet,
        [](uint32_t *count) { return countEntries(count, std::not_fn(isLearned)); });
    ASK(rpcclt_openapiFdbVlanDynamicEntriesGet, countInVlan<true>);
    ASK(rpcclt_openapiFdbVlanInternalEntriesGet, countInVlan<false>);
    ASK(rpcclt_openapiFdbIntfDynamicEntriesGet, countOnPort<true>);
    ASK(rpcclt_openapiFdbIntfInternalEntriesGet, countOnPort<false>);
}

void resetFdb()
{
    shown.clear();
    resetAddresses();
}

void registerFdb()
{
    registerSettings({&ageingTime, &maxEntries, &hardwareLimit, &learningType});
    registerBridgeView();
    registerDatabases();
    registerCounts();

    ASK(rpcclt_openapiIsRestrFilterMacGet, [](OpenBufferDesc *address) -> int {
        uint64_t mac;
        if (!parseMac(textOf(address), &mac))
            return OPEN_BAD_ARGUMENT;
        return macRestricted(mac) ? OPEN_RESTRICTED : OPEN_OK;
    });
    ASK(rpcclt_openapiFdbEntryNextGet, entryNext);
    DO(rpcclt_openapiFdbFlushByMac, flushByMac);
    DO(rpcclt_openapiFdbFlushByVlan, flushByVlan);
    DO(rpcclt_openapiFdbFlushByPort, flushByPort);
    DO(rpcclt_openapiFdbFlush, []() { return flush([](const auto &) { return true; }); });
    DO(rpcclt_openapiFdbEntryDelete, deleteEntry);
}
