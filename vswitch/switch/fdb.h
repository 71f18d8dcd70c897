/*
 * fdb.h - learning and ageing, for simulated stations. Other files use the questions in state.h.
 */
#ifndef VSWITCH_FDB_H
#define VSWITCH_FDB_H

#include <stdint.h>

#include <map>
#include <utility>

#include "vswitch/switch/state.h"

/* Would fdbLearn() learn the address there, if the table has room? */
bool mayLearn(uint32_t vlan, uint64_t mac, uint32_t port);

/* A learned entry is removed after this time without a frame. */
uint64_t fdbAgeingSeconds();

/* Removes the entries that were learned on ports that are now down or no longer in the VLAN. */
void fdbForgetUnreachable();

/* Adds the static filters in force and the registered groups to the address table, and removes the others. */
void showEntries();

/* For showEntries(), by VLAN and address: static filters that show in the table (filters.cpp), groups (groups.cpp). */
void addFilterEntries(std::map<std::pair<uint32_t, uint64_t>, FdbEntry> *entries);
void addGroupEntries(std::map<std::pair<uint32_t, uint64_t>, FdbEntry> *entries);

#endif
