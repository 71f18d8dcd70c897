/*
 * device.cpp - what was chosen at start, and two facts about the whole switch.
 */
#include "vswitch/switch/device.h"

static const uint32_t LAGS = 8;

static DeviceOptions options;
static bool simulated = true, changed;

void setDeviceOptions(const DeviceOptions &chosen)
{
    options = chosen;
}

const DeviceOptions &deviceOptions()
{
    return options;
}

uint64_t bridgeMac()
{
    return 0x02A0C9000001;
}

bool portExists(uint32_t port)
{
    return port >= 1 && port <= options.ports;
}

uint32_t highestInterface()
{
    return options.ports + LAGS;
}

bool interfaceExists(uint32_t port)
{
    return port >= 1 && port <= highestInterface();
}

uint32_t nextPort(uint32_t port)
{
    return port < options.ports ? port + 1 : 0;
}

uint32_t nextInterface(uint32_t port)
{
    return port < highestInterface() ? port + 1 : 0;
}

bool trafficIsSimulated()
{
    return simulated;
}

void setTrafficSimulated(bool isSimulated)
{
    simulated = isSimulated;
}

void stateChanged()
{
    changed = true;
}

bool takeStateChanged()
{
    bool was = changed;
    changed = false;
    return was;
}
