/*
 * families.cpp - the table of families, and the order in which time advances for them.
 */
#include "vswitch/switch/families.h"

#include <algorithm>

#include "vswitch/base/clock.h"
#include "vswitch/base/values.h"
#include "vswitch/switch/device.h"
#include "vswitch/switch/settings.h"

static const int MOST_TRIES = 2000; /* attempts to find two equal rounds; they take some tenths of a second */

static uint64_t reached; /* uptime in seconds: all families have advanced to it */

static void registerSystem()
{
    ASK(rpcclt_openapiConnectivityCheck, []() -> int { return OPEN_OK; });
    ASK(rpcclt_openapiNetworkOSVersionGet, [](OpenBufferDesc *version) { return setText(version, "9.1.0.4"); });
    ASK(rpcclt_openapiApiVersionGet, [](OpenApiVersion *version) -> int {
        *version = {1, 26, 0, 1, {}};
        return OPEN_OK;
    });
}

static void nothing()
{
}

/* In the order of reset. The stations are last: they need VLANs, ports and the address table. */
static const struct {
    void (*registerIt)(), (*reset)();
} families[] = {
    {registerSystem, resetSettings},
    {registerPorts, resetPorts},
    {registerSpanningTree, resetSpanningTree},
    {registerBridge, nothing},
    {registerVlans, resetVlans},
    {registerSwitchports, resetSwitchports},
    {registerMembership, nothing},
    {registerPrivateVlans, resetPrivateVlans},
    {registerClassification, resetClassification},
    {registerFilters, resetFilters},
    {registerGroups, resetGroups},
    {registerStormControl, resetStormControl},
    {registerProtectedPorts, resetProtectedPorts},
    {registerLoopProtection, resetLoopProtection},
    {registerRegistration, resetRegistration},
    {registerNeighbours, nothing},
    {registerErrors, nothing},
    {registerVoice, resetVoice},
    {registerAccessLists, resetAccessLists},
    {registerFdb, resetFdb},
    {registerStations, resetStations},
};

void registerFamilies()
{
    for (const auto &family : families)
        family.registerIt();
}

void resetFamilies()
{
    for (const auto &family : families)
        family.reset();
    reached = 0;
    stateChanged();
}

/*
 * The order has a meaning. Loop protection and storm control shut ports down, so they come before the ports, which
 * count changes. Registered VLANs depend on the ports; where a station is heard depends on both. settleStations() then
 * handles all changes.
 */
static void advanceAll(uint64_t now, bool changed)
{
    countSimulatedFrames(now - reached);
    reached = now;
    advanceLoopProtection(now);
    advanceStormControl();
    advancePorts(now);
    advanceRegistration(now);
    advanceVlans();
    advanceStations(now);
    if (takeStateChanged() || changed)
        settleStations(now);
    takeStateChanged();
    advanceAccessLists(now);
}

/*
 * All families advance together from event to event, so the result does not depend on how often this is called. Before
 * an event nothing changes: each family counts that time in one step. Then comes the second of the event.
 */
static void advanceTo(uint64_t end)
{
    while (reached < end) {
        uint64_t next = std::min({end, nextLoopEvent(), nextStationEvent()});
        if (next - 1 > reached)
            advanceAll(next - 1, false);
        advanceAll(next, false);
    }
}

static std::vector<uint64_t> growth(const Values &values, std::vector<uint64_t> *before)
{
    std::vector<uint64_t> grown;
    for (size_t i = 0; i < values.size(); i++) {
        grown.push_back(*values[i] - (*before)[i]);
        (*before)[i] = *values[i];
    }
    return grown;
}

/*
 * Ports that loop protection shuts and reopens would make millions of events in a long time. If two rounds have the
 * same effect, so has each round until `end` or another event: adds them in one step. Not `exact`: adds the effect of
 * the second round, also if the first was another.
 */
static void skipRounds(uint64_t end, uint64_t round, bool exact)
{
    Values values;
    PortSet ports = collectLoopValues(&values);
    collectAddressValues(&values);
    collectPortValues(&values);
    collectRegistrationValues(ports, &values);
    collectStationValues(ports, &values);
    std::vector<uint64_t> before(values.size());
    growth(values, &before);
    advanceTo(reached + round);
    std::vector<uint64_t> first = growth(values, &before);
    advanceTo(reached + round);
    std::vector<uint64_t> second = growth(values, &before);
    uint64_t until = exact ? std::min(end, nextOtherEvent(ports)) : end;
    uint64_t rounds = (std::max(reached, until) - reached) / round;
    auto reopenings = std::count(second.begin(), second.begin() + (ptrdiff_t)ports.size(), round);
    if (!rounds || (exact && (first != second || reopenings != (ptrdiff_t)ports.size())))
        return;
    for (size_t i = 0; i < values.size(); i++)
        *values[i] += rounds * second[i];
    reached += rounds * round;
    advanceAll(reached, false); /* the families that compute any time in one step */
}

void bringUpToNow()
{
    uint64_t now = uptimeSeconds();
    if (takeStateChanged())
        advanceAll(reached, true);
    uint64_t round = loopRoundSeconds();
    for (int tries = 0; round && reached + 3 * round <= now; tries++)
        skipRounds(now, round, tries < MOST_TRIES);
    advanceTo(now);
}

int runOperation(const Operation &operation, Arguments &arguments)
{
    if (!operation.run)
        return OPEN_UNSUPPORTED;
    bringUpToNow();
    int code = operation.run(arguments);
    if (!operation.asks) {
        stateChanged();
        bringUpToNow();
    }
    return code;
}
