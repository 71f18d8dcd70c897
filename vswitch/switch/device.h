/*
 * device.h - what the switch is made of: its ports, its address, and whether its traffic is simulated.
 */
#ifndef VSWITCH_DEVICE_H
#define VSWITCH_DEVICE_H

#include <stdint.h>

#include "vswitch/base/values.h"

struct DeviceOptions {
    uint32_t ports = 28;
    uint32_t stations = 8;       /* simulated stations, whose addresses are learned at start */
    uint32_t silentStations = 2; /* so many of them never send again */
    uint32_t stationVlans = 1;   /* they are spread over the VLANs 1 to this one, which exist at start */
};

/* Before the first reset. */
void setDeviceOptions(const DeviceOptions &options);
const DeviceOptions &deviceOptions();

/* The switch's own MAC address. */
uint64_t bridgeMac();

/* Is it a port with a socket? Is it such a port or a LAG? Ports are 1 to their number, and the LAGs follow. */
bool portExists(uint32_t port);
bool interfaceExists(uint32_t port);
uint32_t highestInterface();

/* The port after `port` (0: the first), 0 behind the last one. The second goes on through the LAGs. */
uint32_t nextPort(uint32_t port);
uint32_t nextInterface(uint32_t port);

/*
 * Operations that ask one thing of a port, or of an interface: OPEN_BAD_ARGUMENT without asking it when there is none.
 */
template <auto question> int ofPort(uint32_t port, uint32_t *result)
{
    return portExists(port) ? store((uint32_t)question(port), result) : (int)OPEN_BAD_ARGUMENT;
}

template <auto question> int ofInterface(uint32_t port, uint32_t *result)
{
    return interfaceExists(port) ? store((uint32_t)question(port), result) : (int)OPEN_BAD_ARGUMENT;
}

/* Are links, stations, neighbours and packets to the switch itself simulated? Not once something is plugged into a port. */
bool trafficIsSimulated();
void setTrafficSimulated(bool simulated);

/* Something was set or happened: the next bringUpToNow() works out what follows from it. */
void stateChanged();

/* Has something changed since the last call? */
bool takeStateChanged();

#endif
