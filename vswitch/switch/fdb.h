/*
 * fdb.h - the forwarding database for those who put something there: stations and static filters. Everybody else asks
 * state.h.
 */
#ifndef VSWITCH_FDB_H
#define VSWITCH_FDB_H

#include <stdint.h>

#include <map>
#include <utility>

#include "vswitch/switch/state.h"

/* Ordered as a switch orders it: by VLAN, then address. A step of a walk is a search, not a scan. */
using Fdb = std::map<std::pair<uint32_t, uint64_t>, FdbEntry>;
const Fdb &fdb();

/* Adds or replaces an entry. False when the table is full, which counts as a bad add. */
bool fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry);
void fdbErase(uint32_t vlan, uint64_t mac);

/* Could the station be learned there? */
bool mayLearn(uint32_t vlan, uint64_t mac, uint32_t port);

/* From now on the entry ages, unless the station is heard after `seen`. */
void fdbAge(uint32_t vlan, uint64_t mac, uint64_t seen);
void ageEntries(uint64_t now);

/* Removes what was learned on the port. */
void forgetPort(uint32_t port);

/* Removes what was learned on ports that are down, or not in the VLAN (any more). */
void forgetUnreachable();

/* An address that no static filter may have: zero, broadcast, a bridge group address, the switch's own. */
bool macRestricted(uint64_t mac);

/* Puts the static filters in force there, and takes the others away. */
void showFilters();

/* Made-up stations (model_stations.cpp): is there one that talks? Its entry was removed: it will be heard again. */
bool stationTalks(uint32_t vlan, uint64_t mac);
void stationWasForgotten(uint32_t vlan, uint64_t mac);

#endif
