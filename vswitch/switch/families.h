/*
 * families.h - the families of the switch: each one registers its operations and commands once, and resets its state.
 */
#ifndef VSWITCH_FAMILIES_H
#define VSWITCH_FAMILIES_H

#include <stdint.h>

#include "vswitch/base/operations.h"

/* Registers the operations and commands of all families. Once. */
void registerFamilies();

/* All families are as the switch left the factory. After resetClock(). */
void resetFamilies();

/* Answers a call of an operation: brings the state up to now before it, and after one that changes something. */
int runOperation(const Operation &operation, Arguments &arguments);

/*
 * Works out what time has brought since the last call, and what follows from a change. runOperation() does it; commands
 * and frames do it before they look at the state, and after they have changed it.
 */
void bringUpToNow();

/* A family's two functions, in the table of families.cpp. */
void registerAccessLists();
void resetAccessLists();
void registerBridge();
void registerClassification();
void resetClassification();
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

/* Families in which time changes something. `now` is the uptime in seconds. bringUpToNow() calls them in its order. */
void advanceAccessLists(uint64_t now);
void advanceLoopProtection(uint64_t now);
void advancePorts(uint64_t now);
void advanceRegistration(uint64_t now);
void advanceStations(uint64_t now);
void advanceStormControl();
void advanceVlans();

/* What follows for the stations and the address table from a change of anything. */
void settleStations(uint64_t now);

#endif
