/*
 * device.cpp - the options of the start, and whether traffic is simulated or something has changed.
 */
#include "vswitch/switch/device.h"

#include "vswitch/base/commands.h"

static const uint32_t LAGS = 8;

static DeviceOptions options;
static bool simulated = true, changed;
static uint64_t changeCount;

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

bool readPort(const std::string &text, uint32_t highest, uint32_t *port, std::string *answer)
{
    long long number;
    if (!readNumber(text, 1, highest, &number)) {
        refuse(answer, "there is no port \"" + text + "\"; use 1 to " + std::to_string(highest));
        return false;
    }
    *port = (uint32_t)number;
    return true;
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
    changeCount++;
}

uint64_t changeNumber()
{
    return changeCount;
}

bool takeStateChanged()
{
    bool was = changed;
    changed = false;
    return was;
}
