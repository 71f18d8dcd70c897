/*
 * open_client.cpp - connects this process to the switch, and allocates long texts.
 */
#include "common/open_client.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "log/log.h"
#include "proc_libs.h"

enum { CONNECT_ATTEMPTS = 7, CONNECT_PAUSE_SECONDS = 3 };

OpenClient openClient;

int initHandler(const char *baseName, OpenClient *client)
{
    *client = {};
    l7proc_crashlog_register();

    char clientName[100];
    snprintf(clientName, sizeof clientName, "%s_%d", baseName ? baseName : "common.c", (int)getpid());
    int result = openapiClientRegister(clientName, client);
    if (result != OPEN_OK) {
        LOG(LEVEL_ERROR, "\nFailed to initialize RPC to OpEN. Exiting (result = %d)\n", result);
        return -1;
    }
    LOG(LEVEL_DEBUG, "Register RPC to OpEN success. (client name = %s)\n", clientName);

    for (int attempt = 1; (result = rpcclt_openapiConnectivityCheck(client)) != OPEN_OK; attempt++) {
        if (attempt == CONNECT_ATTEMPTS)
            return -1;
        LOG(LEVEL_WARN, "RPC call can fail until server starts. Keep trying (result = %d)\n", result);
        sleep(CONNECT_PAUSE_SECONDS);
    }

    OpenText<100> osVersion;
    if (rpcclt_openapiNetworkOSVersionGet(client, bufferSized(osVersion)) == OPEN_OK)
        LOG(LEVEL_DEBUG, "ORNIS Version = %s\n", osVersion.bytes);
    else
        LOG(LEVEL_ERROR, "Network OS Version retrieve error\n");

    OpenApiVersion api = {};
    if (rpcclt_openapiApiVersionGet(client, &api) == OPEN_OK)
        LOG(LEVEL_DEBUG, "Open API Version = %d.%d.%d.%d\n", api.release, api.version, api.maintenanceLevel,
            api.buildNumber);
    else
        LOG(LEVEL_ERROR, "Open API Version retrieve error\n");
    return 0;
}

bool longTextReserve(LongText &text, uint64_t size)
{
    if (size >= UINT32_MAX) /* a descriptor may state the terminator too */
        return false;
    text.bytes = (char *)calloc((size_t)size + 1, 1);
    text.size = text.bytes ? (uint32_t)size : 0;
    return text.bytes;
}

void longTextFree(LongText &text)
{
    free(text.bytes);
    text = {};
}
