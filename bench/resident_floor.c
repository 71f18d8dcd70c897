/*
 * resident_floor.c - the least that a request can cost a process that stays: receive it, check the connection to the
 * switch, call the operation of one plain reader, and send a ready-made answer. No log, no session, no JSON, no checks.
 */
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include "floor_answer.h"
#include "openclt.h"

int main(void)
{
    OpenClient client;
    if (openapiClientRegister("floor", &client) != OPEN_OK)
        return 1;
    for (;;) {
        char request[8192];
        uint32_t priority = 0;
        int connection = accept(STDIN_FILENO, NULL, NULL);
        if (connection < 0 || recv(connection, request, sizeof request, 0) <= 0 ||
            rpcclt_openapiConnectivityCheck(&client) != OPEN_OK ||
            rpcclt_openapiDot1dStpPriorityGet(&client, &priority) != OPEN_OK)
            return 1;
        if (write(connection, answer, sizeof answer - 1) < 0)
            return 1;
        close(connection);
    }
}
