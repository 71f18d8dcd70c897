/*
 * families.h - the families of the switch: how each is registered and reset, and how time advances for it.
 */
#ifndef VSWITCH_FAMILIES_H
#define VSWITCH_FAMILIES_H

#include <stdint.h>

#include "vswitch/base/operations.h"

/* Registers the operations and commands of all families. To be called once. */
void registerFamilies();

/* Gives all families their factory state. To be called after resetClock(). */
void resetFamilies();

/* Runs an operation and returns its code. Brings the state up to now before, and after an operation that changes it. */
int runOperation(const Operation &operation, Arguments &arguments);

/*
 * Computes what follows from the time since the last call, and from changes. runOperation() calls it; commands and
 * frames call it before they read the state, and after they have changed it.
 */
void bringUpToNow();

/* For the table of families.cpp. */
void registerAccessLists();
void resetAccessLists();
void registerBridge();
void registerClassification();
void resetClassification();
void registerErrors();
void registerFdb();
void resetAddresses();
void registerFilters();
void resetFilters();
void registerLoopProtection();
void resetLoopProtection();
void registerMembership();
void registerPorts();
void resetPorts();
void registerPrivateVlans();
void resetPrivateVlans();
void registerProtectedPorts();
void resetProtectedPorts();
void registerRegistration();
void resetRegistration();
void registerSpanningTree();
void resetSpanningTree();
void registerStations();
void resetStations();
void registerStormControl();
void resetStormControl();
void registerSwitchports();
void resetSwitchports();
void registerVlans();
void resetVlans();
void registerVoice();
void resetVoice();

/* For bringUpToNow(): advance the families that time changes. `now` is the uptime in seconds. */
void advanceAccessLists(uint64_t now);
void advanceLoopProtection(uint64_t now);
void advancePorts(uint64_t now);
void advanceRegistration(uint64_t now);
void advanceStations(uint64_t now);
void advanceStormControl();
void advanceVlans();

/* For bringUpToNow(): adapts stations and address table to a change. */
void settleStations(uint64_t now);

#endif
