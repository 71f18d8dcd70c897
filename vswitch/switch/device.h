/*
 * device.h - which ports and which address does the switch have, and is its traffic simulated?
 */
#ifndef VSWITCH_DEVICE_H
#define VSWITCH_DEVICE_H

#include <stdint.h>

#include "vswitch/base/values.h"

struct DeviceOptions {
    uint32_t ports = 28;
    uint32_t stations = 8;       /* simulated; their addresses are learned at start */
    uint32_t silentStations = 2; /* of these, a quarter at most: they send nothing, so they age */
    uint32_t stationVlans = 1;   /* the stations are in the VLANs 1 to this one, which exist at start */
};

/* To be called before the first reset. */
void setDeviceOptions(const DeviceOptions &chosen);
const DeviceOptions &deviceOptions();

/* The MAC address of the switch. */
uint64_t bridgeMac();

/* Is it a port? Is it a port or a LAG? The ports are 1 to their number, and the LAGs follow. */
bool portExists(uint32_t port);
bool interfaceExists(uint32_t port);
uint32_t highestInterface();

/* The port after `port` (0: the first), 0 after the last one. nextInterface goes on through the LAGs. */
uint32_t nextPort(uint32_t port);
uint32_t nextInterface(uint32_t port);

/* Reads a command's argument as a port from 1 to `highest`. False, with the reason in *answer, when it is none. */
bool readPort(const std::string &text, uint32_t highest, uint32_t *port, std::string *answer);

/* For operations that read one number of a port or an interface: stores question(port), if the port exists. */
template <auto question> int ofPort(uint32_t port, uint32_t *result)
{
    return portExists(port) ? store((uint32_t)question(port), result) : (int)OPEN_BAD_ARGUMENT;
}

template <auto question> int ofInterface(uint32_t port, uint32_t *result)
{
    return interfaceExists(port) ? store((uint32_t)question(port), result) : (int)OPEN_BAD_ARGUMENT;
}

/* Are links, stations, neighbours and packets to the switch simulated? Not while ports have plugs for real hosts. */
bool trafficIsSimulated();
void setTrafficSimulated(bool simulated);

/* Notes that something changed: the next bringUpToNow() computes what follows. */
void stateChanged();

/* How often something changed. Equal numbers: nothing has changed between. */
uint64_t changeNumber();

/* Has something changed since the last call of this function? */
bool takeStateChanged();

#endif
