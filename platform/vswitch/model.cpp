/*
 * model.cpp - what the families of the virtual switch share.
 */
#include "model.h"

#include <ctype.h>
#include <stdio.h>
#include <time.h>

#include "operations.h"
#include "settings.h"

static ModelOptions options;
static timespec started;
static uint64_t passed; /* seconds that were let pass */

static void serveSystem()
{
    SERVE(rpcclt_openapiConnectivityCheck, []() -> int { return OPEN_OK; });
    SERVE(rpcclt_openapiNetworkOSVersionGet, [](OpenBufferDesc *version) { return setText(version, "9.1.0.4"); });
    SERVE(rpcclt_openapiApiVersionGet, [](OpenApiVersion *version) -> int {
        *version = {1, 26, 0, 1, {}};
        return OPEN_OK;
    });
}

void createModel(const ModelOptions &chosen)
{
    options = chosen;
    serveSystem();
    serveBridge();
    serveFdb();
    serveVlans();
    servePrivateVlans();
    serveVlanGroups();
    serveFilters();
    servePortFiltering();
    serveRegistration();
    serveVoice();
    serveAccessLists();
    resetModel();
}

void resetModel()
{
    clock_gettime(CLOCK_MONOTONIC, &started);
    passed = 0;
    resetSettings();
    resetVlans();
    resetPrivateVlans();
    resetVlanGroups();
    resetFilters();
    resetPortFiltering();
    resetRegistration();
    resetVoice();
    resetAccessLists();
    resetFdb(); /* its stations live in VLANs */
}

const ModelOptions &modelOptions()
{
    return options;
}

bool portExists(uint32_t port)
{
    return port >= 1 && port <= options.ports;
}

bool portHasLink(uint32_t port)
{
    return portExists(port) && port <= 4;
}

uint32_t nextPort(uint32_t port)
{
    return port < options.ports ? port + 1 : 0;
}

uint64_t bridgeMac()
{
    return 0x02A0C9000001;
}

std::string macText(uint64_t mac)
{
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", (unsigned)(mac >> 40 & 0xFF),
             (unsigned)(mac >> 32 & 0xFF), (unsigned)(mac >> 24 & 0xFF), (unsigned)(mac >> 16 & 0xFF),
             (unsigned)(mac >> 8 & 0xFF), (unsigned)(mac & 0xFF));
    return text;
}

bool parseMac(const std::string &text, uint64_t *mac)
{
    if (text.size() != 17)
        return false;
    *mac = 0;
    for (size_t i = 0; i < text.size(); i++) {
        char c = text[i];
        if (i % 3 == 2) {
            if (c != ':' && c != '-')
                return false;
            continue;
        }
        if (!isxdigit((unsigned char)c))
            return false;
        *mac = *mac << 4 | (uint64_t)(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
    }
    return true;
}

uint64_t uptimeSeconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (uint64_t)(now.tv_sec - started.tv_sec) + passed;
}

void passTime(uint64_t seconds)
{
    passed += seconds;
}
