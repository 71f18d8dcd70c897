/*
 * parent.cpp - keeps workers: starts them, replaces those that end, and ends them. It reads no request and calls no
 * OpEN operation, so nothing that a client or the switch does can harm it.
 */
#include "main/parent.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "log/log.h"
#include "main/endpoints.h"
#include "main/worker.h"

/* LOOK_SECONDS: how often the parent looks whether its program file and its web server are still there. */
enum { WORKERS = 8, WORKERS_MAX = 256, LOOK_SECONDS = 5, AT_ONCE_SECONDS = 1, PAUSE_SECONDS_MAX = 16 };

/* pid 0: it has ended, and is to be replaced. */
struct Worker {
    pid_t pid;
    int32_t started;
};

static Worker *workers;
static int workerCount;
static volatile int32_t *busySince; /* of each worker, in memory that all share; see worker.h */
static int pauseSeconds; /* between the end of a worker that ended at once, and the next start */
static int32_t nextStart;
static struct stat program;
static const char *programPath; /* null: it was removed before the parent looked */
static pid_t webServer;

static bool isListening(int fd)
{
    int listens = 0;
    socklen_t size = sizeof listens;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens;
}

int listeningSocket()
{
    enum { FIRST_PASSED = 3 }; /* of the descriptors of LISTEN_FDS */
    if (isListening(STDIN_FILENO))
        return STDIN_FILENO;
    const char *process = getenv("LISTEN_PID");
    bool passed = process && getenv("LISTEN_FDS") && strtol(process, nullptr, 10) == getpid();
    return passed && isListening(FIRST_PASSED) ? FIRST_PASSED : -1;
}

/* The parent logs rarely: the files may have been replaced since its last line. */
#define LOG_PARENT(...) (logRefresh(), LOG_AS("parentRun", __VA_ARGS__))

static int configuredWorkers()
{
    const char *text = getenv("SWITCHING_WORKERS");
    if (!text)
        return WORKERS;
    char *end;
    long count = strtol(text, &end, 10);
    if (end != text && !*end && count >= 1 && count <= WORKERS_MAX)
        return (int)count;
    LOG_PARENT(LEVEL_ERROR, "SWITCHING_WORKERS is \"%s\", not a number from 1 to %d: starting %d workers\n", text,
               WORKERS_MAX, WORKERS);
    return WORKERS;
}

static void rememberProgram()
{
    programPath = realpath("/proc/self/exe", nullptr);
    stat("/proc/self/exe", &program);
}

static bool isReplaced()
{
    struct stat found;
    return !programPath || stat(programPath, &found) != 0 || found.st_dev != program.st_dev ||
           found.st_ino != program.st_ino;
}

static void pauseStarts()
{
    if (nextStart > monotonicSeconds()) /* several ended together */
        return;
    pauseSeconds = pauseSeconds == 0 ? 1 : pauseSeconds < PAUSE_SECONDS_MAX ? 2 * pauseSeconds : PAUSE_SECONDS_MAX;
    nextStart = monotonicSeconds() + pauseSeconds;
}

static void startWorker(int listening, RouteTree *tree, int index)
{
    pid_t parent = getpid();
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) /* it ended before that call */
            _exit(0);
        workerRun(listening, tree, &busySince[index]);
    }
    workers[index] = {pid > 0 ? pid : 0, monotonicSeconds()};
    if (pid > 0)
        return;
    pauseStarts();
    LOG_PARENT(LEVEL_ERROR, "Cannot start a worker: %s. Trying again in %d s\n", strerror(errno), pauseSeconds);
}

static void startWorkers(int listening, RouteTree *tree)
{
    for (int i = 0; i < workerCount; i++)
        if (workers[i].pid == 0 && monotonicSeconds() >= nextStart)
            startWorker(listening, tree, i);
}

/* A worker that ends by itself after its requests ends with status 0. */
static void logEnd(const Worker *worker, int status)
{
    int32_t seconds = monotonicSeconds() - worker->started;
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGVTALRM)
        LOG_PARENT(LEVEL_ERROR, "Worker %d was ended: its request took too long\n", (int)worker->pid);
    else if (WIFSIGNALED(status))
        LOG_PARENT(LEVEL_ERROR, "Worker %d was ended by signal %d (%s) after %d s\n", (int)worker->pid,
                   WTERMSIG(status), strsignal(WTERMSIG(status)), seconds);
    else
        LOG_PARENT(LEVEL_ERROR, "Worker %d ended with status %d after %d s\n", (int)worker->pid, WEXITSTATUS(status),
                   seconds);
}

static void noteEnd(int index, int status)
{
    if (status != 0) {
        logEnd(&workers[index], status);
        if (monotonicSeconds() - workers[index].started > AT_ONCE_SECONDS)
            pauseSeconds = 0;
        else
            pauseStarts();
    }
    workers[index].pid = 0;
    busySince[index] = 0;
}

static void noteEnds()
{
    int status;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;)
        for (int i = 0; i < workerCount; i++)
            if (workers[i].pid == pid)
                noteEnd(i, status);
}

/* Ends the workers whose request takes too long. Returns how many workers serve a request. */
static int endOverdue()
{
    int busy = 0;
    for (int i = 0; i < workerCount; i++) {
        int32_t since = busySince[i];
        if (since && monotonicSeconds() - since > REQUEST_SECONDS && workers[i].pid > 0)
            kill(workers[i].pid, SIGVTALRM);
        busy += since != 0;
    }
    return busy;
}

/* Each worker ends when it has served its request. */
static void stopWorkers()
{
    for (int i = 0; i < workerCount; i++)
        if (workers[i].pid > 0)
            kill(workers[i].pid, SIGTERM);
    for (int i = 0; i < workerCount; i++)
        if (workers[i].pid > 0 && waitpid(workers[i].pid, nullptr, 0) > 0)
            workers[i].pid = 0;
}

static bool isWaited(int listening)
{
    struct pollfd waiting = {.fd = listening, .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, 0) != 0;
}

/* Ends the workers if they are idle. False: they were not, or a client has come meanwhile; new workers serve it. */
static bool endsIdle(int listening)
{
    if (endOverdue() > 0 || isWaited(listening))
        return false;
    stopWorkers();
    return !isWaited(listening);
}

/* True: there is a reason to end. */
static bool shouldEnd(int listening)
{
    static bool wasReplaced;
    if (getppid() != webServer) {
        LOG_PARENT(LEVEL_NOTICE, "The web server has ended: ending, too\n");
        return true;
    }
    if (!wasReplaced && isReplaced()) {
        LOG_PARENT(LEVEL_NOTICE, "%s was replaced or removed: ending when no request is left\n",
                   programPath ? programPath : "The program");
        wasReplaced = true;
    }
    return wasReplaced && endsIdle(listening);
}

/* Waits for a signal, at most until the next look; only a second while there are requests, or a start is due. */
static int awaitSignal(const sigset_t *signals)
{
    bool isShort = endOverdue() > 0 || nextStart > monotonicSeconds();
    struct timespec wait = {.tv_sec = isShort ? 1 : LOOK_SECONDS, .tv_nsec = 0};
    return sigtimedwait(signals, nullptr, &wait);
}

static void keepWorkers(int listening, RouteTree *tree, const sigset_t *signals)
{
    int32_t nextLook = monotonicSeconds() + LOOK_SECONDS;
    for (;;) {
        startWorkers(listening, tree);
        int number = awaitSignal(signals);
        noteEnds();
        if (number > 0 && number != SIGCHLD)
            return;
        if (nextLook > monotonicSeconds())
            continue;
        if (!webServer) /* not at the start: the parent may then be a helper that starts this program and ends */
            webServer = getppid();
        if (shouldEnd(listening))
            return;
        nextLook = monotonicSeconds() + LOOK_SECONDS;
    }
}

/* Blocks them: awaitSignal() waits for them. */
static void blockSignals(sigset_t *signals)
{
    signal(SIGCHLD, SIG_DFL);
    sigemptyset(signals);
    for (int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(signals, number);
    sigprocmask(SIG_SETMASK, signals, nullptr);
}

int parentRun(int passed)
{
    sigset_t signals;
    blockSignals(&signals);
    int listening = fcntl(passed, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    busySince = (volatile int32_t *)mmap(nullptr, WORKERS_MAX * sizeof *busySince, PROT_READ | PROT_WRITE,
                                         MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    static RouteTree *tree; /* never freed; static, so that a leak checker still reaches it */
    tree = routeTreeCreate();
    workerCount = configuredWorkers();
    workers = (Worker *)calloc((size_t)workerCount, sizeof *workers);
    if (listening < 0 || busySince == MAP_FAILED || !tree || !workers) {
        LOG(LEVEL_ERROR, "Cannot serve SCGI: %m\n");
        return 1;
    }
    int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nothing, passed); /* as standard input */
    close(nothing);
    registerEndpoints(tree);
    rememberProgram();
    keepWorkers(listening, tree, &signals);
    stopWorkers();
    logClose();
    return 0;
}
