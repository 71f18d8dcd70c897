/*
 * model_fdb.cpp - the virtual switch's forwarding database, and what the bridge shows of it.
 */
#include "model_fdb.h"

#include "model.h"
#include "operations.h"

static Fdb entries;
static std::set<std::pair<uint64_t, uint32_t>> addresses;

const Fdb &fdb()
{
    return entries;
}

const std::set<std::pair<uint64_t, uint32_t>> &fdbAddresses()
{
    return addresses;
}

void fdbInsert(uint32_t vlan, uint64_t mac, const FdbEntry &entry)
{
    entries[{vlan, mac}] = entry;
    addresses.insert({mac, vlan});
}

void fdbErase(uint32_t vlan, uint64_t mac)
{
    entries.erase({vlan, mac});
    addresses.erase({mac, vlan});
}

void resetFdb()
{
    entries.clear();
    addresses.clear();
    const ModelOptions &options = modelOptions();
    fdbInsert(1, bridgeMac(), {0, FDB_MANAGEMENT, 0});
    for (uint32_t i = 0; i < options.stations; i++)
        fdbInsert(1 + i % options.stationVlans, 0x020000000000 + 257ull * (i + 1),
                  {1 + i % options.ports, FDB_LEARNED, uptimeSeconds()});
}

/* The entry of an address in whatever VLAN it is known first; null when it is not known. */
static const FdbEntry *entryOf(const OpenBufferDesc *address)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac))
        return nullptr;
    auto found = addresses.lower_bound({mac, 0});
    if (found == addresses.end() || found->first != mac)
        return nullptr;
    return &entries.at({found->second, mac});
}

static int addressNext(OpenBufferDesc *address)
{
    uint64_t mac;
    std::string text = textOf(address);
    auto found = addresses.begin(); /* an empty text asks for the first address */
    if (!text.empty()) {
        if (!parseMac(text, &mac))
            return OPEN_BAD_ARGUMENT;
        found = addresses.upper_bound({mac, UINT32_MAX});
    }
    return found == addresses.end() ? (int)OPEN_FAILED : setText(address, macText(found->first));
}

void serveFdb()
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
