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

enum { SESSION_SECONDS = 7200, LOCK_WAIT_SECONDS = 10, LOCK_POLL_MS = 10 };

/*
 * Only a regular file that lies directly in /tmp/session/ is a session. A token with a "/" would reach other files of
 * /tmp, the shared log among them, into which anybody can write lines that read as a session.
 */
static FILE *openSession(const char *token, const char *path)
{
    if (strchr(token, '/'))
        return nullptr;
    int descriptor = open(path, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    if (descriptor < 0)
        return nullptr;
    FILE *file = nullptr;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        file = fdopen(descriptor, "r+");
    if (!file)
        close(descriptor);
    return file;
}

static time_t monotonicSeconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

/* Waits for the lock, but not for ever: a neighbour that hangs with it must not pile up processes behind it. */
static bool lockSession(FILE *file)
{
    for (time_t deadline = monotonicSeconds() + LOCK_WAIT_SECONDS;;) {
        if (flock(fileno(file), LOCK_EX | LOCK_NB) == 0)
            return true;
        if ((errno != EWOULDBLOCK && errno != EINTR) || monotonicSeconds() >= deadline)
            return false;
        struct timespec pause = {.tv_sec = 0, .tv_nsec = LOCK_POLL_MS * 1000000L};
        nanosleep(&pause, nullptr);
    }
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
    FILE *file = openSession(token, path);
    if (!file) {
        LOG(LEVEL_DEBUG, "%s file not exsits, ignore\n", path); /* the wording is established; the request is refused */
        return -1;
    }
    int verdict = -1;
    char user[200] = "";
    char stamp[200] = "";
    char role[16] = "";
    char content[256];
    struct sysinfo system;
    bool isAdmin;

    if (!lockSession(file)) {
        LOG(LEVEL_ERROR, "File lock failed\n");
        goto done;
    }
    if (!fgets(user, sizeof user, file) || !fgets(stamp, sizeof stamp, file))
        stamp[0] = 0; /* a line that is missing is an empty one */

    isAdmin = memcmp(user, "admin\n", sizeof "admin\n") == 0;
    if (!isAdmin) {
        bool allowed;
        if (!fgets(role, sizeof role, file))
            role[0] = 0;
        if (strncmp(role, "ro", 2) == 0) {
            allowed = entry->needsSession != SESSION_ADMIN && entry->method == HTTP_GET;
        } else if (strncmp(role, "rw", 2) == 0) {
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
    if (isExpired(system.uptime, stamp)) {
        LOG(LEVEL_INFO, "Token timeout(%ld - %ld).please login again. (userName: %s timestamp: %s)\r\n", system.uptime,
            strtol(stamp, nullptr, 10), user, stamp);
        unlink(path);
        goto done;
    }
    if (!refresh) {
        /* Rewritten from its first byte but never shortened: established behaviour, old bytes behind it stay. */
        if (isAdmin)
            snprintf(content, sizeof content, "%s%ld\n%s", user, system.uptime, token);
        else
            snprintf(content, sizeof content, "%s%ld\n%s%s", user, system.uptime, role, token);
        rewind(file);
        fputs(content, file);
        fflush(file); /* before the lock is given up */
        LOG(LEVEL_DEBUG, "Token update to file. (%s)\r\n", content);
    }
    if (flock(fileno(file), LOCK_UN) != 0)
        LOG(LEVEL_ERROR, "File unlock failed\n");
    else
        verdict = 0;
done:
    fclose(file);
    return verdict;
}
