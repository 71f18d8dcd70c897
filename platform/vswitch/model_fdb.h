/*
 * model_fdb.h - the forwarding database: which address was seen where.
 */
#ifndef VSWITCH_MODEL_FDB_H
#define VSWITCH_MODEL_FDB_H

#include <stdint.h>

#include <map>
#include <set>
#include <utility>

enum FdbType : uint32_t { FDB_STATIC = 0, FDB_LEARNED = 1, FDB_MANAGEMENT = 2, FDB_SELF = 4 };

struct FdbEntry {
    uint32_t port; /* 0 is the switch itself */
    uint32_t type;
    uint64_t seen; /* uptime in seconds when the station was last heard; learned entries age from then on */
};

/* Ordered as a switch orders it: by VLAN, then address. A step of a walk is a search, not a scan. */
using Fdb = std::map<std::pair<uint32_t, uint64_t>, FdbEntry>;

/* What there is now: what has aged is gone. */
const Fdb &fdb();

/* Every address and the VLANs it is known in, ordered by address. */
const std::set<std::pair<uint64_t, uint32_t>> &fdbAddresses();

/* Adds or replaces an entry. False when the table is full, which counts as a bad add. */
bool fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry);
void fdbErase(uint32_t vlan, uint64_t mac);

/* An address that no static filter may have: broadcast, a bridge group address, the switch's own. */
bool macRestricted(uint64_t mac);

/* The VLAN is gone: so are its static filters and its filtering mode. */
void forgetVlanOfFilters(uint32_t vlan);

#endif
