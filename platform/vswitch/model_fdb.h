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
    uint32_t port;
    uint32_t type;
    uint64_t seen; /* uptime in seconds when the station was last heard */
};

/* Ordered as a switch orders it: by VLAN, then address. A step of a walk is a search, not a scan. */
using Fdb = std::map<std::pair<uint32_t, uint64_t>, FdbEntry>;

const Fdb &fdb();

/* Every address and the VLANs it is known in, ordered by address. */
const std::set<std::pair<uint64_t, uint32_t>> &fdbAddresses();

void fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry);
void fdbErase(uint32_t vlan, uint64_t mac);

#endif
