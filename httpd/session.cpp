/*
 * session.cpp - checks the session file that the web login writes to /tmp/session/.
 *
 * Lines of the file: the user name; the uptime in seconds at the last allowed request; the role, "ro" or "rw" (not for
 * the user "admin"); the token, without a newline.
 */
#include "httpd/session.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <unistd.h>

#include "log/log.h"

#define DIRECTORY "/tmp/session"

/* All helpers log under the name of the public function. */
#define LOG_CHECK(...) LOG_AS("checkSessionX", __VA_ARGS__)

enum { SESSION_SECONDS = 7200, LOCK_WAIT_SECONDS = 10 };

/* An open session file; the token is its name. file: a descriptor, -1 when not open. */
struct Session {
    int file;
    const char *token;
};

/* The directory; it stays open from one check to the next. */
static int directory = -1; /* a descriptor */
static struct stat directoryStatus;

/* Every user can write to /tmp, so only files of root and of this program's user are trusted. Logs a refusal. */
static bool isTrusted(const char *what, uid_t owner)
{
    if (owner == 0 || owner == geteuid())
        return true;
    LOG_CHECK(LEVEL_ERROR, "%s is refused: it belongs to user %u, not to root or user %u\n", what, owner, geteuid());
    return false;
}

/* Why the directory cannot be opened. That it is missing is logged once, until it is there again. */
static void logDirectory(int reason)
{
    static bool missing;
    if (reason == ENOENT && !missing)
        LOG_CHECK(LEVEL_ERROR, "There is no " DIRECTORY ": a script at boot, or the login, must make it\n");
    else if (reason && reason != ENOENT)
        LOG_CHECK(LEVEL_ERROR, DIRECTORY " is refused: it must be a directory, and no link to one (%s)\n",
                  strerror(reason));
    missing = reason == ENOENT;
}

/* Is the open directory still the one at the path? */
static bool isCurrent()
{
    struct stat found;
    if (lstat(DIRECTORY, &found) != 0 || found.st_dev != directoryStatus.st_dev ||
        found.st_ino != directoryStatus.st_ino)
        return false;
    directoryStatus = found;
    return true;
}

/* False: the directory is refused, or missing; the log says which. */
static bool openDirectory()
{
    if (directory >= 0 && !isCurrent()) {
        close(directory);
        directory = -1;
    }
    if (directory < 0) {
        directory = open(DIRECTORY, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        logDirectory(directory < 0 ? errno : 0);
        if (directory < 0 || fstat(directory, &directoryStatus) != 0)
            return false;
    }
    return isTrusted(DIRECTORY, directoryStatus.st_uid);
}

/*
 * Accepts only a regular file with one name, directly in the directory. A token with a "/" could name another file of
 * /tmp, such as the shared log, where every user can write lines that look like a session.
 */
static int openFile(const char *token)
{
    if (strchr(token, '/'))
        return -1;
    int file = openat(directory, token, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    if (file < 0 && errno == EACCES)
        LOG_CHECK(LEVEL_ERROR, "A file in " DIRECTORY " is refused: user %u may not enter, read and write there\n",
                  geteuid());
    if (file >= 0 && !(fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
                       isTrusted("A file in " DIRECTORY, status.st_uid))) {
        close(file);
        return -1;
    }
    return file;
}

/* The established text; the request is refused. */
static void logMissing(const Session *session)
{
    char path[512];
    snprintf(path, sizeof path, DIRECTORY "/%s", session->token);
    logMaskControls(path);
    LOG_CHECK(LEVEL_DEBUG, "%s file not exsits, ignore\n", path);
}

static bool openSession(Session *session)
{
    if (openDirectory())
        session->file = openFile(session->token);
    if (session->file < 0)
        logMissing(session);
    return session->file >= 0;
}

static volatile sig_atomic_t waitedTooLong;

static void endWait(int)
{
    waitedTooLong = true;
}

/* What a wait changes in the process, as it was before. */
struct SignalState {
    struct sigaction action;
    sigset_t mask;
    struct itimerval timer;
};

/*
 * Starts the timer that ends the wait. It repeats: its first signal can come before the wait begins. The program
 * inherits the signals that the web server blocks.
 */
static void startTimer(SignalState *before)
{
    struct sigaction action = {}; /* no SA_RESTART: the signal interrupts flock */
    action.sa_handler = endWait;
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    const struct itimerval timer = {.it_interval = {.tv_sec = 0, .tv_usec = 100'000},
                                    .it_value = {.tv_sec = LOCK_WAIT_SECONDS, .tv_usec = 0}};
    waitedTooLong = false;
    sigaction(SIGALRM, &action, &before->action);
    setitimer(ITIMER_REAL, &timer, &before->timer);
    sigprocmask(SIG_UNBLOCK, &alarm, &before->mask);
}

static void stopTimer(const SignalState *before)
{
    const struct itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr); /* a signal of this timer comes before this call returns */
    sigprocmask(SIG_SETMASK, &before->mask, nullptr);
    sigaction(SIGALRM, &before->action, nullptr);
    setitimer(ITIMER_REAL, &before->timer, nullptr);
}

/* Waits for the lock for a limited time: if its holder hangs, waiting processes must not pile up. */
static bool waitForLock(int file)
{
    SignalState before;
    startTimer(&before);
    int result;
    do
        result = flock(file, LOCK_EX);
    while (result != 0 && errno == EINTR && !waitedTooLong);
    stopTimer(&before);
    return result == 0;
}

/* The session can have been deleted during the wait: the user has logged out. */
static bool isStillThere(const Session *session)
{
    struct stat status;
    if (fstat(session->file, &status) == 0 && status.st_nlink == 1)
        return true;
    logMissing(session);
    return false;
}

static bool lockSession(const Session *session)
{
    if (flock(session->file, LOCK_EX | LOCK_NB) == 0)
        return true;
    if (errno == EWOULDBLOCK && waitForLock(session->file))
        return isStillThere(session);
    LOG_CHECK(LEVEL_ERROR, "File lock failed\n");
    return false;
}

static bool unlockSession(int file)
{
    if (flock(file, LOCK_UN) == 0)
        return true;
    LOG_CHECK(LEVEL_ERROR, "File unlock failed\n");
    return false;
}

/*
 * Moves a line with its newline from *text to `line`. Bytes beyond `size` - 1 count as the next line. At the end of the
 * text the line is empty.
 */
static void takeLine(const char **text, const char *end, char *line, size_t size)
{
    size_t length = size - 1 < (size_t)(end - *text) ? size - 1 : (size_t)(end - *text);
    const char *newline = (const char *)memchr(*text, '\n', length);
    if (newline)
        length = (size_t)(newline + 1 - *text);
    memcpy(line, *text, length);
    line[length] = 0;
    *text += length;
}

/* The start of the file, and the lines that the check needs, each with its newline; empty when the file lacks it. */
struct SessionLines {
    char text[416]; /* at most what the lines can hold */
    size_t length;
    char user[200];
    char stamp[200];
    char role[16]; /* empty for "admin" */
};

static bool isAdmin(const SessionLines *lines)
{
    return strcmp(lines->user, "admin\n") == 0;
}

static SessionLines readSession(int file)
{
    SessionLines lines;
    ssize_t length = read(file, lines.text, sizeof lines.text);
    lines.length = length > 0 ? (size_t)length : 0;
    const char *rest = lines.text;
    const char *end = rest + lines.length;
    takeLine(&rest, end, lines.user, sizeof lines.user);
    takeLine(&rest, end, lines.stamp, sizeof lines.stamp);
    lines.role[0] = 0;
    if (!isAdmin(&lines))
        takeLine(&rest, end, lines.role, sizeof lines.role);
    return lines;
}

static bool isAllowed(const SessionLines *lines, const RouteEntry *entry)
{
    bool readOnly = strncmp(lines->role, "ro", 2) == 0;
    if (isAdmin(lines))
        return true;
    if (!readOnly && strncmp(lines->role, "rw", 2) != 0) {
        LOG_CHECK(LEVEL_ERROR, "Invalid priviledged level in user session\n");
        return false;
    }
    if (entry->needsSession != SESSION_ADMIN && (!readOnly || entry->method == HTTP_GET))
        return true;
    LOG_CHECK(LEVEL_ERROR, "Permission denied, not a priviledged user\n");
    return false;
}

static bool readUptime(long *seconds)
{
    struct sysinfo system;
    if (sysinfo(&system) != 0) {
        LOG_CHECK(LEVEL_ERROR, "Failed to get sysinfo\r\n");
        return false;
    }
    *seconds = system.uptime;
    return true;
}

/* A stamp later than the uptime is from before the last reboot: not expired. Nor is stamp 0. */
static bool isExpired(long uptime, long stamp)
{
    long idle;
    if (stamp == 0)
        return false;
    return __builtin_sub_overflow(uptime, stamp, &idle) ? stamp < 0 : idle > SESSION_SECONDS;
}

/* False: the session has expired, and is deleted. */
static bool isAlive(const Session *session, const SessionLines *lines, long uptime)
{
    long stamp = strtol(lines->stamp, nullptr, 10);
    if (!isExpired(uptime, stamp))
        return true;
    LOG_CHECK(LEVEL_INFO, "Token timeout(%ld - %ld).please login again. (userName: %s timestamp: %s)\r\n", uptime,
              stamp, lines->user, lines->stamp);
    unlinkat(directory, session->token, 0);
    return false;
}

static void moveStamp(const Session *session, const SessionLines *lines, long uptime)
{
    char content[256]; /* the lines fit, the token may be cut */
    int used = snprintf(content, sizeof content, "%s%ld\n%s", lines->user, uptime, lines->role);
    char *token = content + used;
    snprintf(token, sizeof content - (size_t)used, "%s", session->token);
    size_t length = strlen(content);
    /*
     * Overwrites the file's start and does not truncate it, so old bytes can remain: established behaviour. The many
     * requests of one second write it once.
     */
    if (length > lines->length || memcmp(content, lines->text, length) != 0)
        [[maybe_unused]] ssize_t written = pwrite(session->file, content, length, 0);
    logMaskControls(token);
    LOG_CHECK(LEVEL_DEBUG, "Token update to file. (%s)\r\n", content);
}

static bool checkLocked(const Session *session, const char *refresh, const RouteEntry *entry)
{
    SessionLines lines = readSession(session->file);
    long uptime;
    if (!isAllowed(&lines, entry) || !readUptime(&uptime) || !isAlive(session, &lines, uptime))
        return false;
    if (!refresh)
        moveStamp(session, &lines, uptime);
    return unlockSession(session->file);
}

int checkSessionX(const char *token, const char *refresh, const RouteEntry *entry)
{
    Session session = {.file = -1, .token = token ? token : "(null)"};
    bool served = openSession(&session) && lockSession(&session) && checkLocked(&session, refresh, entry);
    if (session.file >= 0)
        close(session.file);
    return served ? 0 : -1;
}
