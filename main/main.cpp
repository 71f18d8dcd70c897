/*
 * main.cpp - started with a listening socket, the program serves SCGI requests from it until it is stopped. Otherwise
 * it is a CGI program: connect to the switch, find the endpoint, answer, disconnect.
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
#include "main/parent.h"

/* The version, readable without running the program: readelf -p .version. The section is not loaded. */
asm(".pushsection .version, \"\", %progbits\n"
    ".asciz \"switching_v2.cgi " SWITCHING_VERSION "\"\n"
    ".popsection\n");

/* Opens every closed standard stream: otherwise the next file gets its number, and the answer goes into that file. */
static void occupyStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; stream++)
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", O_RDWR); /* gets the lowest free number: `stream` */
}

static int serveOneRequest()
{
    if (initHandler("switching_v2.cgi", &openClient) < 0) {
        logClose();
        return -1;
    }
    static RouteTree *tree; /* never freed; static, so that a leak checker still reaches it */
    tree = routeTreeCreate();
    if (!tree)
        exit(1);
    registerEndpoints(tree);
    httpdProcessRequest(tree);
    fflush(stdout); /* the client gets its answer even if the tear-down crashes */
    openapiClientTearDown(&openClient);
    logClose();
    return 0;
}

int main()
{
    occupyStandardStreams();
#ifndef __GLIBC__ /* musl would send the header line at once, before memory can run out */
    setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
#endif
    signal(SIGPIPE, SIG_IGN); /* the request ends as usual, even if the web server no longer reads */
    logOpen(LOG_TO_FILE, LOG_USER, "kelt_cgi");
    int listening = listeningSocket();
    return listening < 0 ? serveOneRequest() : parentRun(listening);
}
