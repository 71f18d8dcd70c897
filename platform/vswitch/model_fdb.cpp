/*
 * model_fdb.cpp - the virtual switch's forwarding database, and what the bridge shows of it.
 *
 * At start it holds the switch's own address (VLAN 1, port 0) and the learned stations that were asked for. They were
 * heard once, at start, so they age like stations that have fallen silent.
 *
 * Walking: a step with a VLAN stays in that VLAN, goes by address and fails at the VLAN's end, so a client that hands
 * each address back with the VLAN it is walking sees the VLAN once and whole. A step with VLAN 0 goes through all VLANs
 * by address, then port; an address that is known on one port in several VLANs shows once there. The address a step
 * starts from need not be known (any more).
 *
 * Flushing and deleting are for learned entries; flushing what is not there is no failure.
 */
#include "model_fdb.h"

#include <algorithm>
#include <functional>
#include <tuple>

#include "model.h"
#include "operations.h"
#include "settings.h"

static const uint32_t MAX_ENTRIES = 131072;
static const uint32_t FDB_ID = 1; /* the only database */

static Fdb entries;
static std::set<std::pair<uint64_t, uint32_t>> addresses;
static std::set<std::tuple<uint64_t, uint32_t, uint64_t>> learned; /* (seen, VLAN, address): the next to age is first */
static uint32_t mostEntries;                                       /* since start, or since it was reset */
static uint32_t badAdds;

static void ageEntries()
{
    uint64_t limit = settingValue("rpcclt_openapiDbDot1dTpAgingTimeGet"), now = uptimeSeconds();
    while (!learned.empty()) {
        auto [seen, vlan, mac] = *learned.begin();
        if (now - seen < limit)
            return;
        fdbErase(vlan, mac);
    }
}

const Fdb &fdb()
{
    ageEntries();
    return entries;
}

const std::set<std::pair<uint64_t, uint32_t>> &fdbAddresses()
{
    ageEntries();
    return addresses;
}

bool fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry)
{
    ageEntries();
    fdbErase(vlan, mac);
    if (entries.size() == MAX_ENTRIES) {
        badAdds++;
        return false;
    }
    entries[{vlan, mac}] = entry;
    addresses.insert({mac, vlan});
    if (entry.type == FDB_LEARNED)
        learned.insert({entry.seen, vlan, mac});
    mostEntries = std::max(mostEntries, (uint32_t)entries.size());
    return true;
}

void fdbErase(uint32_t vlan, uint64_t mac)
{
    auto found = entries.find({vlan, mac});
    if (found == entries.end())
        return;
    learned.erase({found->second.seen, vlan, mac});
    entries.erase(found);
    addresses.erase({mac, vlan});
}

bool macRestricted(uint64_t mac)
{
    return mac == 0xFFFFFFFFFFFF || (mac & ~0xFull) == 0x0180C2000000 || mac == bridgeMac();
}

void resetFdb()
{
    entries.clear();
    addresses.clear();
    learned.clear();
    mostEntries = 0;
    badAdds = 0;
    const ModelOptions &options = modelOptions();
    fdbInsert(1, bridgeMac(), {0, FDB_MANAGEMENT, 0});
    for (uint32_t i = 0; i < options.stations; i++) {
        uint32_t vlan = 1 + i % options.stationVlans;
        uint32_t port = 1 + (i + i / options.ports) % options.ports; /* not in step with the VLANs */
        fdbInsert(vlan, 0x020000000000 + 257ull * (i + 1), {port, FDB_LEARNED, uptimeSeconds()});
    }
}

/* The bridge's view: addresses without VLANs */

/* The entry of an address in whatever VLAN it is known first; null when it is not known. */
static const FdbEntry *entryOf(const OpenBufferDesc *address)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac))
        return nullptr;
    auto found = fdbAddresses().lower_bound({mac, 0});
    if (found == addresses.end() || found->first != mac)
        return nullptr;
    return &entries.at({found->second, mac});
}

static int addressNext(OpenBufferDesc *address)
{
    uint64_t mac;
    std::string text = textOf(address);
    auto found = fdbAddresses().begin(); /* an empty text asks for the first address */
    if (!text.empty()) {
        if (!parseMac(text, &mac))
            return OPEN_BAD_ARGUMENT;
        found = addresses.upper_bound({mac, UINT32_MAX});
    }
    return found == addresses.end() ? (int)OPEN_FAILED : setText(address, macText(found->first));
}

/* Walking */

/* The entry of an address on the lowest port from `lowest` on, of several the one in the lowest VLAN. */
static Fdb::const_iterator onPortFrom(uint64_t mac, uint64_t lowest)
{
    auto found = entries.cend();
    for (auto at = addresses.lower_bound({mac, 0}); at != addresses.end() && at->first == mac; ++at) {
        auto entry = entries.find({at->second, mac});
        if (entry->second.port >= lowest && (found == entries.end() || entry->second.port < found->second.port))
            found = entry;
    }
    return found;
}

static Fdb::const_iterator nextInVlan(uint32_t vlan, const uint64_t *mac)
{
    auto next = mac ? entries.upper_bound({vlan, *mac}) : entries.lower_bound({vlan, 0});
    return next != entries.end() && next->first.first == vlan ? next : entries.end();
}

static Fdb::const_iterator nextInAnyVlan(const uint64_t *mac, uint32_t port)
{
    auto next = mac ? onPortFrom(*mac, (uint64_t)port + 1) : entries.cend();
    if (next != entries.end())
        return next;
    auto address = mac ? addresses.upper_bound({*mac, UINT32_MAX}) : addresses.begin();
    return address == addresses.end() ? entries.end() : onPortFrom(address->first, 0);
}

static int entryNext(OpenBufferDesc *address, uint32_t *vlan, uint32_t *port, uint32_t *type)
{
    uint64_t mac;
    std::string text = textOf(address);
    bool starts = text.empty();
    if ((!starts && !parseMac(text, &mac)) || (*vlan && !vlanExists(*vlan)))
        return OPEN_BAD_ARGUMENT;
    const uint64_t *from = starts ? nullptr : &mac;
    ageEntries();
    auto next = *vlan ? nextInVlan(*vlan, from) : nextInAnyVlan(from, *port);
    if (next == entries.end())
        return OPEN_FAILED;
    *vlan = next->first.first;
    *port = next->second.port;
    *type = next->second.type;
    return setText(address, macText(next->first.second));
}

/* Counting, flushing, deleting */

template <class Matches> static int countEntries(uint32_t *count, Matches matches)
{
    const Fdb &all = fdb();
    *count = (uint32_t)std::count_if(all.begin(), all.end(), matches);
    return OPEN_OK;
}

static bool isLearned(const Fdb::value_type &entry)
{
    return entry.second.type == FDB_LEARNED;
}

static int countInVlan(uint32_t vlan, bool dynamic, uint32_t *count)
{
    if (!vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    return countEntries(
        count, [=](const auto &entry) { return entry.first.first == vlan && isLearned(entry) == dynamic; });
}

static int countOnPort(uint32_t port, bool dynamic, uint32_t *count)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    return countEntries(
        count, [=](const auto &entry) { return entry.second.port == port && isLearned(entry) == dynamic; });
}

template <class Matches> static int flush(Matches matches)
{
    for (auto at = entries.begin(); at != entries.end();) {
        const auto &entry = *at++;
        if (isLearned(entry) && matches(entry))
            fdbErase(entry.first.first, entry.first.second);
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

static int flushByPort(uint32_t port)
{
    if (!portExists(port))
        return OPEN_BAD_ARGUMENT;
    return flush([=](const auto &entry) { return entry.second.port == port; });
}

/* Deletes the entry that stands exactly there. */
static int deleteEntry(OpenBufferDesc *address, uint32_t vlan, uint32_t port)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac) || !vlanExists(vlan) || !portExists(port))
        return OPEN_BAD_ARGUMENT;
    auto found = fdb().find({vlan, mac});
    if (found == entries.end() || found->second.port != port || !isLearned(*found))
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
        if (!entry)
            return OPEN_FAILED;
        *port = entry->port;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiDot1dTpFdbStatusGet, [](OpenBufferDesc *address, uint32_t *status) -> int {
        const FdbEntry *entry = entryOf(address);
        if (!entry)
            return OPEN_FAILED;
        *status = entry->type == FDB_LEARNED ? 3 : entry->type == FDB_MANAGEMENT ? 4 : 5; /* learned, self, mgmt */
        return OPEN_OK;
    });
}

/* The ageing time is the bridge's own: one value under two names. */
static void serveAgeing()
{
    SERVE(rpcclt_openapiFdbAddrAgingTimeoutGet, [](uint32_t fdbId, uint32_t *timeOut) -> int {
        if (fdbId != FDB_ID)
            return OPEN_BAD_ARGUMENT;
        *timeOut = (uint32_t)settingValue("rpcclt_openapiDbDot1dTpAgingTimeGet");
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiFdbAddrAgingTimeoutSet, [](uint32_t fdbId, uint32_t timeOut) -> int {
        if (fdbId != FDB_ID)
            return OPEN_BAD_ARGUMENT;
        Arguments arguments(1);
        arguments[0].number = timeOut;
        return operationNamed("rpcclt_openapiDbDot1dTpAgingTimeSet").run(arguments);
    });
}

static const Setting settings[] = {
    {"rpcclt_openapiFdbMaxTableEntriesGet", nullptr, FOR_SWITCH, MAX_ENTRIES, 0, 0},
    {"rpcclt_openapiFdbMacMaxHwLimitGet", nullptr, FOR_SWITCH, MAX_ENTRIES, 0, 0},
    {"rpcclt_openapiFdbTypeOfVLGet", nullptr, FOR_SWITCH, 1, 0, 0}, /* a station is learned in its VLAN: IVL */
};

static void serveCounts()
{
    SERVE(rpcclt_openapiActiveAddrEntriesGet,
          [](uint32_t *count) { return countEntries(count, [](const auto &) { return true; }); });
    SERVE(rpcclt_openapiFdbMaxCountGet, [](uint32_t *count) -> int {
        *count = mostEntries;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMaxCountReset, []() -> int {
        mostEntries = (uint32_t)fdb().size();
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiFdbBadAddsGet, [](uint32_t *count) -> int {
        *count = badAdds;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiFdbDynamicEntriesGet, [](uint32_t *count) { return countEntries(count, isLearned); });
    SERVE(rpcclt_openapiFdbInternalEntriesGet,
          [](uint32_t *count) { return countEntries(count, std::not_fn(isLearned)); });
    SERVE(rpcclt_openapiFdbVlanDynamicEntriesGet,
          [](uint32_t vlan, uint32_t *count) { return countInVlan(vlan, true, count); });
    SERVE(rpcclt_openapiFdbVlanInternalEntriesGet,
          [](uint32_t vlan, uint32_t *count) { return countInVlan(vlan, false, count); });
    SERVE(rpcclt_openapiFdbIntfDynamicEntriesGet,
          [](uint32_t port, uint32_t *count) { return countOnPort(port, true, count); });
    SERVE(rpcclt_openapiFdbIntfInternalEntriesGet,
          [](uint32_t port, uint32_t *count) { return countOnPort(port, false, count); });
}

void serveFdb()
{
    serveSettings(settings);
    serveBridgeView();
    serveAgeing();
    serveCounts();

    SERVE(rpcclt_openapiFdbIdGet, [](uint32_t fdbId) -> int { return fdbId == FDB_ID ? OPEN_OK : OPEN_FAILED; });
    SERVE(rpcclt_openapiFdbIdNextGet, [](uint32_t startFrom, uint32_t *next) -> int {
        if (startFrom >= FDB_ID)
            return OPEN_FAILED;
        *next = FDB_ID;
        return OPEN_OK;
    });
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
