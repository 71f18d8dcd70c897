/*
 * addresses.cpp - the address table: its entries in two orders, and the queue in which they age.
 */
#include "vswitch/switch/addresses.h"

#include <algorithm>
#include <tuple>

#include "vswitch/base/clock.h"
#include "vswitch/switch/families.h"

static Fdb entries;
static std::set<std::pair<uint64_t, uint32_t>> addresses; /* the same, by address and VLAN */
static std::set<std::tuple<uint64_t, uint32_t, uint64_t>> ageing; /* seen at this uptime; VLAN; address */
static uint32_t mostEntries;
static uint64_t badAdds, learnings;
static void (*removedHook)(uint32_t vlan, uint64_t mac);

const Fdb &fdbEntries()
{
    return entries;
}

const std::set<std::pair<uint64_t, uint32_t>> &fdbByAddress()
{
    return addresses;
}

uint32_t fdbMostEntries()
{
    return mostEntries;
}

void fdbResetMostEntries()
{
    mostEntries = (uint32_t)entries.size();
}

uint64_t fdbBadAdds()
{
    return badAdds;
}

void onAddressRemoved(void (*removed)(uint32_t vlan, uint64_t mac))
{
    removedHook = removed;
}

bool isStation(uint64_t mac)
{
    return mac && !isGroup(mac) && mac != bridgeMac();
}

bool macRestricted(uint64_t mac)
{
    return mac == 0 || mac == BROADCAST || (mac & ~0xFull) == 0x0180C2000000 || mac == bridgeMac();
}

const FdbEntry *fdbFind(uint32_t vlan, uint64_t mac)
{
    auto found = entries.find({vlan, mac});
    return found == entries.end() ? nullptr : &found->second;
}

bool fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry)
{
    if (entries.size() == MAX_ADDRESSES && !fdbFind(vlan, mac)) {
        badAdds++;
        return false;
    }
    entries[{vlan, mac}] = entry;
    if (entry.type == FDB_LEARNED)
        entries[{vlan, mac}].learning = ++learnings;
    addresses.insert({mac, vlan});
    mostEntries = std::max(mostEntries, (uint32_t)entries.size());
    return true;
}

void fdbErase(uint32_t vlan, uint64_t mac)
{
    if (!entries.erase({vlan, mac}))
        return;
    addresses.erase({mac, vlan});
    if (removedHook)
        removedHook(vlan, mac);
}

void fdbAge(uint32_t vlan, uint64_t mac, uint64_t seen)
{
    ageing.insert({seen, vlan, mac});
}

uint64_t fdbNextAge(uint64_t limit)
{
    return ageing.empty() ? UINT64_MAX : std::get<0>(*ageing.begin()) + limit;
}

void collectAddressValues(Values *values)
{
    values->push_back(&badAdds);
}

/* An entry that was renewed goes back into the queue with its new time. */
void fdbRemoveAged(uint64_t now, uint64_t limit, bool (*sends)(uint32_t vlan, uint64_t mac))
{
    while (!ageing.empty()) {
        auto [noted, vlan, mac] = *ageing.begin();
        if (now < noted + limit)
            return;
        ageing.erase(ageing.begin());
        const FdbEntry *entry = fdbFind(vlan, mac);
        if (!entry || entry->type != FDB_LEARNED || sends(vlan, mac))
            continue;
        if (entry->seen > noted)
            fdbAge(vlan, mac, entry->seen);
        else
            fdbErase(vlan, mac);
    }
}

void fdbFlush(const std::function<bool(const Fdb::value_type &)> &matches)
{
    for (auto at = entries.begin(); at != entries.end();) {
        auto [vlan, mac] = at->first;
        bool flushed = isLearned(*at) && matches(*at);
        ++at;
        if (flushed)
            fdbErase(vlan, mac);
    }
}

void fdbForgetPort(uint32_t port)
{
    fdbFlush([=](const auto &entry) { return entry.second.port == port; });
}

void resetAddresses()
{
    entries.clear();
    addresses.clear();
    ageing.clear();
    mostEntries = 0;
    badAdds = learnings = 0;
    fdbInsert(1, bridgeMac(), {0, FDB_MANAGEMENT, 0});
}
