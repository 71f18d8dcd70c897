/*
 * families.cpp - the table of families, and the order in which time advances for them.
 */
#include "vswitch/switch/families.h"

#include "vswitch/base/clock.h"
#include "vswitch/base/values.h"
#include "vswitch/switch/device.h"
#include "vswitch/switch/settings.h"

static uint64_t broughtUpTo; /* the second of the last bringUpToNow() */

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
    {registerStormControl, resetStormControl},
    {registerProtectedPorts, resetProtectedPorts},
    {registerLoopProtection, resetLoopProtection},
    {registerRegistration, resetRegistration},
    {registerErrors, nothing},
    {registerVoice, resetVoice},
    {registerAccessLists, resetAccessLists},
    {registerFdb, resetAddresses},
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
    stateChanged();
}

/*
 * The order has a meaning. Loop protection and storm control shut ports down, so they come before the ports, which
 * count changes. Registered VLANs depend on the ports; where a station is heard depends on both. settleStations() then
 * handles all changes.
 */
void bringUpToNow()
{
    uint64_t now = uptimeSeconds();
    bool changed = takeStateChanged();
    if (now == broughtUpTo && !changed)
        return;
    broughtUpTo = now;
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
