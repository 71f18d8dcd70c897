/*
 * filters.cpp - static MAC filters: from which ports to which may frames to an address in a VLAN go?
 */
#include <algorithm>
#include <map>

#include "vswitch/base/operations.h"
#include "vswitch/switch/addresses.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/fdb.h"
#include "vswitch/switch/port_list.h"
#include "vswitch/switch/settings.h"

static const size_t MAX_FILTERS = 256;
using FilterKey = std::pair<uint64_t, uint32_t>; /* address, VLAN */
using Filters = std::map<FilterKey, Filter>;

static Filters filters;
static uint32_t commonMode; /* of the VLANs that are not in vlanFilteringModes */
static std::map<uint32_t, uint32_t> vlanFilteringModes;

/* On from the start, so that a new filter takes effect at once. */
static Setting adminMode = {.name = "FilterAdminMode", .initial = 1, .settable = true};
static Setting size = {.name = "FilterSize", .initial = MAX_FILTERS};

const Filter *filterFor(uint32_t vlan, uint64_t mac)
{
    auto found = filters.find({mac, vlan});
    return found == filters.end() || !adminMode.value() || !vlanExists(vlan) ? nullptr : &found->second;
}

FilteringMode filteringMode(uint32_t vlan)
{
    return (FilteringMode)valueIn(vlanFilteringModes, vlan, commonMode);
}

static void forgetVlan(uint32_t vlan)
{
    std::erase_if(filters, [=](const auto &filter) { return filter.first.second == vlan; });
    vlanFilteringModes.erase(vlan);
}

static int readKey(const OpenBufferDesc *address, uint32_t vlan, FilterKey *key)
{
    if (!parseMac(textOf(address), &key->first) || !vlanExists(vlan))
        return OPEN_BAD_ARGUMENT;
    key->second = vlan;
    return OPEN_OK;
}

void addFilterEntries(std::map<std::pair<uint32_t, uint64_t>, FdbEntry> *entries)
{
    for (const auto &[key, filter] : filters)
        if (filterFor(key.second, key.first) && !isGroup(key.first) && !filter.destinations.empty())
            entries->insert({{key.second, key.first}, {*filter.destinations.begin(), FDB_STATIC, 0}});
}

static int findFilter(const OpenBufferDesc *address, uint32_t vlan, Filters::iterator *found)
{
    FilterKey key;
    if (int rc = readKey(address, vlan, &key))
        return rc;
    *found = filters.find(key);
    return *found == filters.end() ? OPEN_FAILED : OPEN_OK;
}

/* Runs `use` on the filter. Otherwise returns the code of findFilter(). */
template <class Use> static int withFilter(const OpenBufferDesc *address, uint32_t vlan, Use use)
{
    Filters::iterator found;
    int rc = findFilter(address, vlan, &found);
    return rc ? rc : use(found->second);
}

static int createFilter(OpenBufferDesc *address, uint32_t vlan)
{
    FilterKey key;
    if (int rc = readKey(address, vlan, &key))
        return rc;
    if (macRestricted(key.first) || !vlanIsConfigured(vlan))
        return OPEN_BAD_ARGUMENT;
    if (filters.contains(key))
        return OPEN_EXISTS;
    if (filters.size() == MAX_FILTERS)
        return OPEN_FAILED;
    filters[key] = {};
    return OPEN_OK;
}

static int removeFilter(OpenBufferDesc *address, uint32_t vlan)
{
    Filters::iterator found;
    if (int rc = findFilter(address, vlan, &found))
        return rc;
    filters.erase(found);
    return OPEN_OK;
}

static int storeKey(Filters::const_iterator filter, OpenBufferDesc *address, uint32_t *vlan)
{
    if (filter == filters.end())
        return OPEN_FAILED;
    *vlan = filter->first.second;
    return setText(address, macText(filter->first.first));
}

/* The filter need not exist. */
static int nextFilter(OpenBufferDesc *address, uint32_t vlan, OpenBufferDesc *nextAddress, uint32_t *nextVlan)
{
    uint64_t mac;
    if (!parseMac(textOf(address), &mac))
        return OPEN_BAD_ARGUMENT;
    return storeKey(filters.upper_bound({mac, vlan}), nextAddress, nextVlan);
}

/* Ports of a filter */

template <PortSet Filter::*ports>
static int storePorts(OpenBufferDesc *address, uint32_t vlan, uint32_t *count, OpenBufferDesc *list)
{
    return withFilter(address, vlan, [=](const Filter &filter) {
        *count = (uint32_t)(filter.*ports).size();
        return setText(list, portListText(filter.*ports));
    });
}

static int setSources(OpenBufferDesc *address, uint32_t vlan, OpenBufferDesc *list)
{
    return withFilter(address, vlan, [=](Filter &filter) -> int {
        PortSet ports;
        if (!parsePortList(textOf(list), &ports))
            return OPEN_BAD_ARGUMENT;
        filter.sources = ports;
        return OPEN_OK;
    });
}

static int addSource(OpenBufferDesc *address, uint32_t vlan, uint32_t port)
{
    return withFilter(address, vlan, [=](Filter &filter) -> int {
        if (!interfaceExists(port))
            return OPEN_BAD_ARGUMENT;
        return filter.sources.insert(port).second ? OPEN_OK : OPEN_EXISTS;
    });
}

static int addDestination(OpenBufferDesc *address, uint32_t vlan, uint32_t port)
{
    return withFilter(address, vlan, [=](Filter &filter) -> int {
        if (!interfaceExists(port))
            return OPEN_BAD_ARGUMENT;
        filter.filtered.erase(port);
        return filter.destinations.insert(port).second ? OPEN_OK : OPEN_EXISTS;
    });
}

template <PortSet Filter::*ports> static int removePort(OpenBufferDesc *address, uint32_t vlan, uint32_t port)
{
    return withFilter(address, vlan, [=](Filter &filter) -> int {
        if (!interfaceExists(port))
            return OPEN_BAD_ARGUMENT;
        return (filter.*ports).erase(port) ? OPEN_OK : OPEN_FAILED;
    });
}

/*
 * Reads the port lists of an operation on several destinations. `port`, unless it is 0, joins *forwardPorts. False when
 * a list is malformed, or a port is in both.
 */
static bool readDestinations(uint32_t port, const OpenBufferDesc *forward, const OpenBufferDesc *filter,
                             PortSet *forwardPorts, PortSet *filterPorts)
{
    if (!parsePortList(textOf(forward), forwardPorts) || !parsePortList(textOf(filter), filterPorts) ||
        (port && !interfaceExists(port)))
        return false;
    if (port)
        forwardPorts->insert(port);
    return std::none_of(forwardPorts->begin(), forwardPorts->end(),
                        [=](uint32_t forwarded) { return filterPorts->contains(forwarded); });
}

/* A port is a destination or filtered, not both. */
static void add(const PortSet &ports, PortSet &to, PortSet &other)
{
    for (uint32_t port : ports) {
        to.insert(port);
        other.erase(port);
    }
}

static int addDestinations(OpenBufferDesc *address, uint32_t vlan, uint32_t port, OpenBufferDesc *forward,
                           OpenBufferDesc *filter)
{
    return withFilter(address, vlan, [=](Filter &found) -> int {
        PortSet forwardPorts, filterPorts;
        if (!readDestinations(port, forward, filter, &forwardPorts, &filterPorts))
            return OPEN_BAD_ARGUMENT;
        add(forwardPorts, found.destinations, found.filtered);
        add(filterPorts, found.filtered, found.destinations);
        return OPEN_OK;
    });
}

/* Ignores ports that the filter does not have. */
static int removeDestinations(OpenBufferDesc *address, uint32_t vlan, uint32_t port, OpenBufferDesc *forward,
                              OpenBufferDesc *filter)
{
    return withFilter(address, vlan, [=](Filter &found) -> int {
        PortSet forwardPorts, filterPorts;
        if (!readDestinations(port, forward, filter, &forwardPorts, &filterPorts))
            return OPEN_BAD_ARGUMENT;
        std::erase_if(found.destinations, [&](uint32_t p) { return forwardPorts.contains(p); });
        std::erase_if(found.filtered, [&](uint32_t p) { return filterPorts.contains(p); });
        return OPEN_OK;
    });
}

static bool isInAnyFilter(uint32_t port)
{
    return std::any_of(filters.begin(), filters.end(), [=](const auto &entry) {
        const Filter &filter = entry.second;
        return filter.sources.contains(port) || filter.destinations.contains(port) || filter.filtered.contains(port);
    });
}

static void registerFilterPorts()
{
    DO(rpcclt_openapiFilterSrcIntfListModify, setSources);
    ASK(rpcclt_openapiFilterSrcIntfListGet, storePorts<&Filter::sources>);
    ASK(rpcclt_openapiFilterDstIntfListGet, storePorts<&Filter::destinations>);
    ASK(rpcclt_openapiFilterDstFiltIntfListGet, storePorts<&Filter::filtered>);
    DO(rpcclt_openapiFilterSrcIntfAdd, addSource);
    DO(rpcclt_openapiFilterSrcIntfDelete, removePort<&Filter::sources>);
    DO(rpcclt_openapiFilterDstIntfAdd, addDestination);
    DO(rpcclt_openapiFilterDstIntfDelete, removePort<&Filter::destinations>);
    DO(rpcclt_openapiFilterDstIntfListAdd, addDestinations);
    DO(rpcclt_openapiFilterDstIntfListDelete, removeDestinations);

    ASK(rpcclt_openapiFilterIsIntfInAnyFilter, ofInterface<isInAnyFilter>);
    ASK(rpcclt_openapiFilterPortParmCanSet, [](uint32_t port, uint32_t *flag) -> int {
        *flag = 1; /* every port can be in filters */
        return interfaceExists(port) ? OPEN_OK : OPEN_BAD_ARGUMENT;
    });
    ASK(rpcclt_openapiFilterIsValidIntf,
        [](uint32_t port, uint32_t *flag) { return store(interfaceExists(port), flag); });
}

static void registerModes()
{
    DO(rpcclt_openapiFilterFilteringModeSet, [](uint32_t mode) -> int {
        if (mode > FILTER_UNREGISTERED)
            return OPEN_BAD_ARGUMENT;
        commonMode = mode;
        return OPEN_OK;
    });
    DO(rpcclt_openapiFilterVlanFilteringModeSet, [](uint32_t vlan, uint32_t mode) -> int {
        if (mode > FILTER_UNREGISTERED || !vlanIsConfigured(vlan))
            return OPEN_BAD_ARGUMENT;
        vlanFilteringModes[vlan] = mode;
        return OPEN_OK;
    });
    ASK(rpcclt_openapiFilterVlanFilteringModeGet, [](uint32_t vlan, uint32_t *mode) -> int {
        return vlanExists(vlan) ? store(filteringMode(vlan), mode) : OPEN_BAD_ARGUMENT;
    });
}

void registerFilters()
{
    onVlanEnd(forgetVlan);
    registerSettings({&adminMode, &size});
    registerModes();
    registerFilterPorts();

    DO(rpcclt_openapiFilterCreate, createFilter);
    DO(rpcclt_openapiFilterRemove, removeFilter);
    ASK(rpcclt_openapiFilterFirstGet, [](OpenBufferDesc *address, uint32_t *vlan) -> int {
        return storeKey(filters.begin(), address, vlan);
    });
    ASK(rpcclt_openapiFilterNextGet, nextFilter);
    ASK(rpcclt_openapiFilterCountGet, [](uint32_t *count) { return store((uint32_t)filters.size(), count); });
    ASK(rpcclt_openapiFilterCountersGet, [](uint32_t *total, uint32_t *multicast, uint32_t *unicast) -> int {
        *total = (uint32_t)filters.size();
        *multicast = (uint32_t)std::count_if(filters.begin(), filters.end(),
                                             [](const auto &filter) { return isGroup(filter.first.first); });
        *unicast = *total - *multicast;
        return OPEN_OK;
    });
    ASK(rpcclt_openapiFilterCheckMacAddrTypeMulticast, [](OpenBufferDesc *address, uint32_t *flag) -> int {
        uint64_t mac;
        return parseMac(textOf(address), &mac) ? store(isGroup(mac), flag) : OPEN_BAD_ARGUMENT;
    });
    ASK(rpcclt_openapiFilterIsConfigured, [](OpenBufferDesc *address, uint32_t vlan, uint32_t *flag) -> int {
        FilterKey key;
        int rc = readKey(address, vlan, &key);
        return rc == OPEN_OK ? store(filters.contains(key), flag) : rc;
    });
    DO(rpcclt_openapiFilterStreamSet, [](OpenBufferDesc *address, uint32_t vlan, uint32_t stream) -> int {
        return withFilter(address, vlan, [=](Filter &filter) -> int {
            filter.stream = stream;
            return OPEN_OK;
        });
    });
    ASK(rpcclt_openapiFilterStreamGet, [](OpenBufferDesc *address, uint32_t vlan, uint32_t *stream) {
        return withFilter(address, vlan, [=](const Filter &filter) { return store(filter.stream, stream); });
    });
}

void resetFilters()
{
    filters.clear();
    commonMode = FORWARD_ALL;
    vlanFilteringModes.clear();
}
