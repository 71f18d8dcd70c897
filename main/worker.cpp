/*
 * worker.cpp - serves one SCGI request after another, each as a process of its own would.
 */
#include "main/worker.h"

#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "common/open_client.h"
#include "httpd/dispatch.h"
#include "log/log.h"
#include "main/scgi.h"

enum { REQUESTS_MAX = 10'000, REQUEST_SECONDS = 30, REFUSAL_MILLIS = 1000 };

static volatile sig_atomic_t stopping;
static int listeningSocket, nothing; /* `nothing`: /dev/null */
static timer_t requestTimer;
static bool isRegistered; /* with OpEN */

/*
 * An accept that waits begins anew after this, and finds no socket; one that has got a connection returns it. So no
 * request is lost, at whatever moment the signal comes.
 */
static void stop(int)
{
    int error = errno;
    stopping = true;
    dup2(nothing, listeningSocket);
    errno = error;
}

static void prepareSignals()
{
    struct sigaction action = {};
    action.sa_handler = stop;
    action.sa_flags = SA_RESTART;
    for (int number : {SIGTERM, SIGINT, SIGHUP})
        sigaction(number, &action, nullptr);
    signal(SIGVTALRM, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

static void prepare(int listening)
{
    listeningSocket = listening;
    nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    struct sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGVTALRM;
    if (nothing < 0 || timer_create(CLOCK_MONOTONIC, &event, &requestTimer) != 0) {
        LOG(LEVEL_ERROR, "A worker cannot start: %m\n");
        exit(1);
    }
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
#ifdef M_MMAP_THRESHOLD /* another C library gives memory back by itself */
    mallopt(M_MMAP_THRESHOLD, 128 * 1024); /* fixed: the memory of a large request goes back to the system */
#endif
    prepareSignals();
}

/* Ends the process after so many seconds; 0: never. */
static void setTimer(time_t seconds)
{
    const struct itimerspec limit = {.it_interval = {}, .it_value = {.tv_sec = seconds, .tv_nsec = 0}};
    timer_settime(requestTimer, 0, &limit, nullptr);
}

/* Registers with OpEN at the first request, and anew when the connection is lost. False: there is no switch. */
static bool reachSwitch()
{
    if (isRegistered && rpcclt_openapiConnectivityCheck(&openClient) == OPEN_OK)
        return true;
    if (isRegistered)
        openapiClientTearDown(&openClient);
    isRegistered = initHandler("switching_v2.cgi", &openClient) == 0;
    return isRegistered;
}

/* The request gets fresh streams. Its process would end without a switch: so does this one. */
static void serve(int connection, RouteTree *tree, Request *request)
{
    dup2(connection, STDOUT_FILENO);
    requestChoose(request);
    if (!reachSwitch())
        exit(-1);
    httpdProcessRequest(tree);
    fflush(stdout);
    __fpurge(stdout);
    clearerr(stdout);
    dup2(nothing, STDOUT_FILENO);
}

static void refuse(int connection, const char *wrong)
{
    static const char answer[] = "Status: 400\r\n\r\n";
    LOG_AS("workerRun", LEVEL_ERROR, "No SCGI request: %s\n", wrong);
    send(connection, answer, sizeof answer - 1, MSG_NOSIGNAL);
}

static void handle(int connection, RouteTree *tree)
{
    Request request;
    const char *wrong = nullptr;
    setTimer(REQUEST_SECONDS);
    logRefresh();
    ScgiOutcome outcome = scgiReceive(connection, &request, &wrong);
    if (outcome == SCGI_REQUEST)
        serve(connection, tree, &request);
    else if (outcome == SCGI_WRONG)
        refuse(connection, wrong);
    scgiEnd(connection, outcome == SCGI_WRONG ? REFUSAL_MILLIS : 0);
    setTimer(0);
}

/* After an accept that failed. False: no other will succeed. */
static bool mayAcceptAgain()
{
    struct pollfd waiting = {.fd = listeningSocket, .events = POLLIN, .revents = 0};
    switch (errno) {
    case EAGAIN: /* another worker was faster; the web server has made the socket non-blocking */
        poll(&waiting, 1, -1);
        return true;
    case EMFILE: case ENFILE: case ENOBUFS: case ENOMEM:
        usleep(100'000);
        return true;
    case EBADF: case EINVAL: case ENOTSOCK: case EOPNOTSUPP:
        return false;
    default: /* the connection had an error */
        return true;
    }
}

void workerRun(int listening, RouteTree *tree, volatile bool *busy)
{
    prepare(listening);
    for (int served = 0; served < REQUESTS_MAX && !stopping;) {
        int connection = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0 && !stopping && !mayAcceptAgain()) {
            LOG(LEVEL_ERROR, "A worker cannot accept connections: %m\n");
            exit(1);
        }
        if (connection < 0)
            continue;
        *busy = true;
        handle(connection, tree);
        *busy = false;
        served++;
    }
    if (isRegistered)
        openapiClientTearDown(&openClient);
    logClose();
    exit(0);
}
