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

enum { REQUESTS_MAX = 10'000, REFUSAL_MILLIS = 1000 };

static volatile sig_atomic_t stopping;
static int listeningSocket, nothing; /* `nothing`: /dev/null */
static pid_t parent;
static timer_t lastRequestTimer;
static volatile int32_t *busySince; /* see worker.h */
static bool isRegistered; /* with OpEN */

int32_t monotonicSeconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int32_t)now.tv_sec;
}

/*
 * After this signal, an accept that waits starts again and fails: the descriptor is no socket any more. An accept that
 * has a connection returns it. So no request is lost, whenever the signal comes. A timer limits the last request:
 * the parent may have ended. If it has, nothing may listen any more: a web server that finds a listener at the socket
 * starts no other parent.
 */
static void stop(int)
{
    int error = errno;
    int32_t last = (*busySince ? *busySince : monotonicSeconds()) + REQUEST_SECONDS;
    const struct itimerspec end = {.it_interval = {}, .it_value = {.tv_sec = last + 1, .tv_nsec = 0}};
    stopping = true;
    timer_settime(lastRequestTimer, TIMER_ABSTIME, &end, nullptr);
    if (getppid() != parent)
        shutdown(listeningSocket, SHUT_RDWR);
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
    parent = getppid();
    nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    struct sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGVTALRM;
    if (nothing < 0 || timer_create(CLOCK_MONOTONIC, &event, &lastRequestTimer) != 0) {
        LOG(LEVEL_ERROR, "A worker cannot start: %m\n");
        exit(1);
    }
    dup2(nothing, STDIN_FILENO);
    close(STDOUT_FILENO); /* the number is for connections */
#ifdef M_MMAP_THRESHOLD /* not every C library has it */
    mallopt(M_MMAP_THRESHOLD, 128 * 1024); /* fixed: the memory of a large request goes back to the system */
#endif
    prepareSignals();
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

/* Standard output is the connection. Without a switch a CGI process ends; so does this worker. */
static void serve(RouteTree *tree, Request *request)
{
    requestChoose(request);
    if (!reachSwitch())
        exit(-1);
    httpdProcessRequest(tree);
    fflush(stdout);
    __fpurge(stdout);
    clearerr(stdout);
}

static void refuse(const char *wrong)
{
    static const char answer[] = "Status: 400\r\n\r\n";
    LOG_AS("workerRun", LEVEL_ERROR, "No SCGI request: %s\n", wrong);
    send(STDOUT_FILENO, answer, sizeof answer - 1, MSG_NOSIGNAL);
}

static void handle(RouteTree *tree)
{
    Request request;
    const char *wrong = nullptr;
    *busySince = monotonicSeconds();
    logRefresh();
    ScgiOutcome outcome = scgiReceive(STDOUT_FILENO, &request, &wrong);
    if (outcome == SCGI_REQUEST)
        serve(tree, &request);
    else if (outcome == SCGI_WRONG)
        refuse(wrong);
    scgiEnd(STDOUT_FILENO, outcome == SCGI_WRONG ? REFUSAL_MILLIS : 0);
    *busySince = 0;
}

/* Makes the next connection the standard output: it gets that number, the lowest free one. False: there is none. */
static bool acceptConnection()
{
    int connection = accept4(listeningSocket, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection >= 0 && connection != STDOUT_FILENO) { /* a library has opened a file meanwhile */
        dup2(connection, STDOUT_FILENO);
        close(connection);
    }
    return connection >= 0;
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

void workerRun(int listening, RouteTree *tree, volatile int32_t *since)
{
    busySince = since;
    prepare(listening);
    for (int served = 0; served < REQUESTS_MAX && !stopping;) {
        if (acceptConnection()) {
            handle(tree);
            served++;
        } else if (!stopping && !mayAcceptAgain()) {
            LOG(LEVEL_ERROR, "A worker cannot accept connections: %m\n");
            exit(1);
        }
    }
    if (isRegistered)
        openapiClientTearDown(&openClient);
    logClose();
    exit(0);
}
