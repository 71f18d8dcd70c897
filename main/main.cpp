/*
 * main.cpp - one process, one request: attach to the switch, find the endpoint, answer, detach.
 */
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

#include "common/open_client.h"
#include "httpd/dispatch.h"
#include "log/log.h"
#include "main/endpoints.h"

/* The version, where it can be read without running the program (readelf -p .version); this section is not loaded. */
asm(".pushsection .version, \"\", %progbits\n"
    ".asciz \"switching_v2.cgi " SWITCHING_VERSION "\"\n"
    ".popsection\n");

/* A closed standard stream must not leave its number to the next file that is opened: the answer would go there. */
static void occupyStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; stream++)
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", O_RDWR); /* takes the lowest free number: this one */
}

int main()
{
    occupyStandardStreams();
    signal(SIGPIPE, SIG_IGN); /* a web server that has stopped reading does not change how a request ends */

    logOpen(LOG_TO_FILE, LOG_USER, "kelt_cgi");
    if (initHandler("switching_v2.cgi", &openClient) < 0) {
        logClose();
        return -1;
    }
    static RouteTree *tree; /* lives as long as the process */
    tree = routeTreeCreate();
    if (!tree)
        exit(1);
    registerEndpoints(tree);
    httpdProcessRequest(tree);
    fflush(stdout); /* what was done is answered, whatever the tear-down does */
    openapiClientTearDown(&openClient);
    logClose();
    return 0;
}
