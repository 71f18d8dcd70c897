/*
 * session.cpp - the check of the session file that the web login leaves under /tmp/session/.
 *
 * Lines of the file: user name; uptime in seconds at the last allowed request; for users other than "admin" the role,
 * "ro" or "rw"; the token, without a newline.
 */
#include "httpd/session.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include "log/log.h"

enum { SESSION_SECONDS = 7200, LOCK_WAIT_SECONDS = 10, LOCK_POLL_MS = 1 };

/*
 * Only a regular file that lies directly in /tmp/session/ is a session. A token with a "/" would reach other files of
 * /tmp, the shared log among them, into which anybody can write lines that read as a session.
 */
static int openSession(const char *token, const char *path)
{
    if (strchr(token, '/'))
        return -1;
    int session = open(path, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    if (session >= 0 && (fstat(session, &status) != 0 || !S_ISREG(status.st_mode))) {
        close(session);
        return -1;
    }
    return session;
}

static time_t monotonicSeconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

/* Waits for the lock, but not for ever: a neighbour that hangs with it must not pile up processes behind it. */
static bool lockSession(int session)
{
    for (time_t deadline = 0;;) {
        if (flock(session, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        time_t now = monotonicSeconds();
        if (deadline == 0)
            deadline = now + LOCK_WAIT_SECONDS;
        if (now >= deadline)
            return false;
        struct timespec pause = {.tv_sec = 0, .tv_nsec = LOCK_POLL_MS * 1000000L};
        nanosleep(&pause, nullptr);
    }
}

/*
 * Takes a line with its newline off *text, at most `size` - 1 bytes of it: what is longer is the next line's. Empty at
 * the end.
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

/* The lines that count, each with its newline; empty where the file has none. */
struct SessionLines {
    char user[200];
    char stamp[200];
    char role[16]; /* "admin" has none: this is the token then, and not looked at */
};

static SessionLines readSession(int session)
{
    SessionLines lines;
    char text[sizeof lines]; /* as much as they can hold */
    ssize_t length = read(session, text, sizeof text);
    const char *rest = text;
    const char *end = text + (length > 0 ? length : 0);
    takeLine(&rest, end, lines.user, sizeof lines.user);
    takeLine(&rest, end, lines.stamp, sizeof lines.stamp);
    takeLine(&rest, end, lines.role, sizeof lines.role);
    return lines;
}

static bool isExpired(long uptime, const char *stampText)
{
    long stamp = strtol(stampText, nullptr, 10);
    long idle;
    if (stamp == 0)
        return false;
    return __builtin_sub_overflow(uptime, stamp, &idle) ? stamp < 0 : idle > SESSION_SECONDS;
}

int checkSessionX(const char *token, const char *refresh, const RouteEntry *entry)
{
    if (!token)
        token = "(null)";
    char path[512];
    snprintf(path, sizeof path, "/tmp/session/%s", token);
    int session = openSession(token, path);
    if (session < 0) {
        LOG(LEVEL_DEBUG, "%s file not exsits, ignore\n", path); /* the wording is established; the request is refused */
        return -1;
    }
    int verdict = -1;
    SessionLines lines;
    struct sysinfo system;
    bool isAdmin;

    if (!lockSession(session)) {
        LOG(LEVEL_ERROR, "File lock failed\n");
        goto done;
    }
    lines = readSession(session);
    isAdmin = strcmp(lines.user, "admin\n") == 0;
    if (!isAdmin) {
        bool allowed;
        if (strncmp(lines.role, "ro", 2) == 0) {
            allowed = entry->needsSession != SESSION_ADMIN && entry->method == HTTP_GET;
        } else if (strncmp(lines.role, "rw", 2) == 0) {
            allowed = entry->needsSession != SESSION_ADMIN;
        } else {
            LOG(LEVEL_ERROR, "Invalid priviledged level in user session\n");
            goto done;
        }
        if (!allowed) {
            LOG(LEVEL_ERROR, "Permission denied, not a priviledged user\n");
            goto done;
        }
    }
    if (sysinfo(&system) != 0) {
        LOG(LEVEL_ERROR, "Failed to get sysinfo\r\n");
        goto done;
    }
    if (isExpired(system.uptime, lines.stamp)) {
        LOG(LEVEL_INFO, "Token timeout(%ld - %ld).please login again. (userName: %s timestamp: %s)\r\n", system.uptime,
            strtol(lines.stamp, nullptr, 10), lines.user, lines.stamp);
        unlink(path);
        goto done;
    }
    if (!refresh) {
        char content[256];
        if (isAdmin)
            snprintf(content, sizeof content, "%s%ld\n%s", lines.user, system.uptime, token);
        else
            snprintf(content, sizeof content, "%s%ld\n%s%s", lines.user, system.uptime, lines.role, token);
        /* From its first byte, but it is never shortened: established behaviour, old bytes behind it stay. */
        [[maybe_unused]] ssize_t written = pwrite(session, content, strlen(content), 0);
        LOG(LEVEL_DEBUG, "Token update to file. (%s)\r\n", content);
    }
    if (flock(session, LOCK_UN) != 0)
        LOG(LEVEL_ERROR, "File unlock failed\n");
    else
        verdict = 0;
done:
    close(session);
    return verdict;
}
