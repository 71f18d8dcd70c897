/*
 * floor.c - the least that a request can cost: the platform calls of a plain reader, and a ready-made answer. It has no
 * log, no routes, no session and no JSON; the difference to the program is the cost of those.
 */
#include <cjson/cJSON.h>
#include <stdio.h>
#include <unistd.h>

#include "floor_answer.h"
#include "openclt.h"
#include "proc_libs.h"

int main(void)
{
    OpenClient client;
    char name[100];
    char osVersionText[101] = "";
    OpenBufferDesc osVersion = {100, osVersionText};
    OpenApiVersion apiVersion = {0};
    uint32_t priority = 0;

    l7proc_crashlog_register();
    snprintf(name, sizeof name, "floor_%d", (int)getpid());
    if (openapiClientRegister(name, &client) != OPEN_OK || rpcclt_openapiConnectivityCheck(&client) != OPEN_OK ||
        rpcclt_openapiNetworkOSVersionGet(&client, &osVersion) != OPEN_OK ||
        rpcclt_openapiApiVersionGet(&client, &apiVersion) != OPEN_OK ||
        rpcclt_openapiDot1dStpPriorityGet(&client, &priority) != OPEN_OK)
        return 1;
    cJSON_Delete(NULL); /* keeps libcjson among the libraries to be loaded */
    fputs(answer, stdout);
    openapiClientTearDown(&client);
    return 0;
}
