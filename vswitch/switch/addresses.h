/*
 * addresses.h - the address table, for the files that write to it or walk through it: learning, simulated stations,
 * static filters. Other files use the questions in state.h.
 */
#ifndef VSWITCH_ADDRESSES_H
#define VSWITCH_ADDRESSES_H

#include <stdint.h>

#include <functional>
#include <map>
#include <set>
#include <utility>

#include "vswitch/switch/state.h"

inline constexpr uint32_t MAX_ADDRESSES = 32768;

/* The entries in two orders: by VLAN and address, and by address and VLAN. */
using Fdb = std::map<std::pair<uint32_t, uint64_t>, FdbEntry>;
const Fdb &fdbEntries();
const std::set<std::pair<uint64_t, uint32_t>> &fdbByAddress();

/* The highest number of entries since start or fdbResetMostEntries(); how often an entry found the table full. */
uint32_t fdbMostEntries();
void fdbResetMostEntries();
uint64_t fdbBadAdds();

/* Adds or replaces an entry. False when the table is full, which counts as a bad add. */
bool fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry);
void fdbErase(uint32_t vlan, uint64_t mac);

inline bool isLearned(const Fdb::value_type &entry)
{
    return entry.second.type == FDB_LEARNED;
}

/* Removes the learned entries that match. */
void fdbFlush(const std::function<bool(const Fdb::value_type &)> &matches);

/* Removes the entries that were learned on the port. */
void fdbForgetPort(uint32_t port);

/* Lets the entry age from `seen` on, an uptime in seconds. A frame that the station sends later renews it. */
void fdbAge(uint32_t vlan, uint64_t mac, uint64_t seen);

/* When fdbRemoveAged() is due next, an uptime in seconds; UINT64_MAX: nothing ages. */
uint64_t fdbNextAge(uint64_t limit);

/* Removes learned entries that are `limit` seconds old at `now`, except of stations that sends() says still send. */
void fdbRemoveAged(uint64_t now, uint64_t limit, bool (*sends)(uint32_t vlan, uint64_t mac));

/* Registers the function that runs for each erased entry. */
void onAddressRemoved(void (*removed)(uint32_t vlan, uint64_t mac));

/* Addresses without static filters: zero, broadcast, bridge group addresses, the address of the switch. */
bool macRestricted(uint64_t mac);

#endif
