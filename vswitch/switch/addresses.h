/*
 * addresses.h - the address table itself, for those who write to it or walk through it: learning, simulated stations,
 * static filters. Everybody else asks state.h.
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

/* Ordered by VLAN, then address, so that a step of a walk is a search and not a scan; and by address, then VLAN. */
using Fdb = std::map<std::pair<uint32_t, uint64_t>, FdbEntry>;
const Fdb &fdbEntries();
const std::set<std::pair<uint64_t, uint32_t>> &fdbByAddress();

/* Since start, or since it was reset: the highest number of entries. Since start: entries that found the table full. */
uint32_t fdbMostEntries();
void fdbResetMostEntries();
uint32_t fdbBadAdds();

/* Adds or replaces an entry. False when the table is full, which counts as a bad add. */
bool fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry);
void fdbErase(uint32_t vlan, uint64_t mac);

inline bool isLearned(const Fdb::value_type &entry)
{
    return entry.second.type == FDB_LEARNED;
}

/* Removes the learned entries that match. */
void fdbFlush(const std::function<bool(const Fdb::value_type &)> &matches);

/* Removes what was learned on the port. */
void fdbForgetPort(uint32_t port);

/* From now on the entry ages, unless the station is heard after `seen`, an uptime in seconds. */
void fdbAge(uint32_t vlan, uint64_t mac, uint64_t seen);

/* Removes the learned entries that have aged for `limit` seconds at `now`, except those of stations that `sends` names. */
void fdbRemoveAged(uint64_t now, uint64_t limit, bool (*sends)(uint32_t vlan, uint64_t mac));

/* Calls `removed` from now on for each entry that is erased. */
void onAddressRemoved(void (*removed)(uint32_t vlan, uint64_t mac));

/* An address that no static filter may have: zero, broadcast, a bridge group address, the switch's own. */
bool macRestricted(uint64_t mac);

#endif
