/*
 * families.h - the families of the switch: how each is registered and reset, and how time advances for it.
 */
#ifndef VSWITCH_FAMILIES_H
#define VSWITCH_FAMILIES_H

#include <stdint.h>

#include <vector>

#include "vswitch/base/operations.h"
#include "vswitch/switch/state.h"

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
void resetFdb();
void resetAddresses();
void registerFilters();
void resetFilters();
void registerGroups();
void resetGroups();
void registerLoopProtection();
void resetLoopProtection();
void registerMembership();
void registerNeighbours();
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

/* For bringUpToNow(): counts the frames that simulated hosts send and receive in this time, before anything changes. */
void countSimulatedFrames(uint64_t seconds);

/* For bringUpToNow(): adapts stations and address table to a change. */
void settleStations(uint64_t now);

/* For bringUpToNow(): the uptime in seconds at which the family changes the state of others. UINT64_MAX: never. */
uint64_t nextLoopEvent();
uint64_t nextStationEvent();

/*
 * For bringUpToNow(): counters and times that grow evenly while loop protection shuts ports and reopens them again and
 * again. All these ports take the same time for a round: loopRoundSeconds(), 0 when there are none.
 * collectLoopValues() returns the ports; its first values are when each reopens. nextOtherEvent() is the next event of
 * a station on another port.
 */
using Values = std::vector<uint64_t *>;
uint64_t loopRoundSeconds();
PortSet collectLoopValues(Values *values);
void collectAddressValues(Values *values);
void collectPortValues(Values *values);
void collectRegistrationValues(const PortSet &ports, Values *values);
void collectStationValues(const PortSet &ports, Values *values);
uint64_t nextOtherEvent(const PortSet &ports);

#endif
