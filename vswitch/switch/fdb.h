/*
 * fdb.h - learning, for simulated stations. Everybody else asks state.h.
 */
#ifndef VSWITCH_FDB_H
#define VSWITCH_FDB_H

#include <stdint.h>

/* Could the station be learned there? */
bool mayLearn(uint32_t vlan, uint64_t mac, uint32_t port);

/* After so many seconds without a frame a learned entry goes. */
uint64_t fdbAgeingSeconds();

/* Removes what was learned on ports that are down, or that are not in the VLAN any more. */
void fdbForgetUnreachable();

/* Puts the static filters in force into the address table, and takes the others out (filters.cpp). */
void showFilters();

#endif
