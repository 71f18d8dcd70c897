/*
 * log_file.cpp - opens and rotates the shared files. A new file gets its mode and owner under a name that no other user
 * can know before, and takes its place in one step: if the place were empty for a moment, another user could take it.
 */
#include "log/log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sendfile.h>
#include <sys/syscall.h>
#include <unistd.h>

#define LOG_FILE "/tmp/zt731.log"

static const char LEVEL_FILE[] = "/tmp/devmgr_log_level";
static const char OLD_LOG_FILE[] = LOG_FILE ".old";
static const char NEW_FILE[] = LOG_FILE ".XXXXXX";

enum { ATTEMPTS = 3 };

/* A C library can lack this call. */
#ifndef RENAME_EXCHANGE
enum { RENAME_EXCHANGE = 2 };
static int renameat2(int fromDirectory, const char *from, int toDirectory, const char *to, unsigned flags)
{
    return (int)syscall(SYS_renameat2, fromDirectory, from, toDirectory, to, flags);
}
#endif

/* Every user can create files in /tmp, so do not follow a link, and do not wait (for the other end of a pipe). */
enum { SHARED_FLAGS = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC };

/* Removes a file or an empty directory. Keeps errno. */
static void removePath(const char *path)
{
    int reason = errno;
    if (unlink(path) != 0)
        rmdir(path);
    errno = reason;
}

/* The mode of `like`. Without its group, the group may do only what all others may. */
static mode_t modeOf(const struct stat *like, bool sameGroup)
{
    mode_t group = sameGroup ? like->st_mode & 0070 : (like->st_mode & 0007) << 3;
    return (like->st_mode & 0707) | group;
}

/*
 * Creates an empty file and stores its path in `path`. It has the mode and the owner of `like`, as far as this user may
 * give a file away. Returns its descriptor; -1 on failure.
 */
static int createLike(const struct stat *like, char *path)
{
    strcpy(path, NEW_FILE);
    int file = mkostemp(path, O_CLOEXEC);
    if (file < 0)
        return -1;
    bool sameGroup =
        fchown(file, like->st_uid, like->st_gid) == 0 || fchown(file, (uid_t)-1, like->st_gid) == 0;
    if (fchmod(file, modeOf(like, sameGroup)) == 0)
        return file;
    removePath(path);
    close(file);
    return -1;
}

/* Is the open file of that status still at the path? If so, brings the status up to date. */
static bool isAtPath(const char *path, struct stat *status)
{
    struct stat found;
    if (lstat(path, &found) != 0 || found.st_dev != status->st_dev || found.st_ino != status->st_ino)
        return false;
    *status = found;
    return true;
}

/* Copies the whole file. False: it is too large, or there is no room for it. */
static bool copyContent(int from, int to)
{
    off_t offset = 0;
    ssize_t copied = 1;
    while (copied > 0 && offset <= LOG_HOPELESS)
        copied = sendfile(to, from, &offset, LOG_LIMIT);
    return copied == 0;
}

/*
 * Moves a new file to `path`, in place of what is there. A directory cannot be replaced: it gets the new file's name
 * and stays there, unless it is empty. On failure removes the new file.
 */
static bool moveTo(const char *path, const char *newFile)
{
    if (rename(newFile, path) == 0)
        return true;
    bool moved = renameat2(AT_FDCWD, newFile, AT_FDCWD, path, RENAME_EXCHANGE) == 0;
    removePath(newFile);
    return moved;
}

/*
 * Replaces a file that has a second name by a copy: the user of the other name could write the file, and must not get
 * new lines. Works with the copy's descriptor, as the copy can get a second name, too. Returns it; -1 on failure.
 */
static int openCopy(const char *path, int file, int flags, struct stat *status)
{
    char newFile[sizeof NEW_FILE];
    int copy = createLike(status, newFile);
    if (copy < 0)
        return -1;
    copyContent(file, copy); /* as far as possible: a shorter log is better than none */
    bool current = isAtPath(path, status);
    if (!current)
        removePath(newFile);
    if (current && moveTo(path, newFile) && fcntl(copy, F_SETFL, flags) == 0 && fstat(copy, status) == 0)
        return copy;
    close(copy);
    return -1;
}

/*
 * Creates the file only when it is missing: the kernel can refuse O_CREAT for another user's file, even to root
 * (fs.protected_regular). Fails with EEXIST when another process creates it at the same time.
 */
static int openOrCreate(const char *path, int flags)
{
    int file = open(path, flags | SHARED_FLAGS);
    if (file < 0 && errno == ENOENT)
        file = open(path, flags | SHARED_FLAGS | O_CREAT | O_EXCL, 0666);
    return file;
}

static int openShared(const char *path, int flags, struct stat *status)
{
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        int file = openOrCreate(path, flags);
        if (file < 0 && errno == EEXIST)
            continue;
        if (file < 0)
            return -1;
        bool regular = fstat(file, status) == 0 && S_ISREG(status->st_mode);
        if (regular && status->st_nlink == 1)
            return file;
        int copy = regular && status->st_nlink > 1 ? openCopy(path, file, flags | O_NONBLOCK, status) : -1;
        close(file);
        if (copy >= 0 || !regular || isAtPath(path, status))
            return copy;
        /* another process has just removed or replaced it: try again */
    }
    return -1;
}

bool levelFileIsCurrent(struct stat *status)
{
    return isAtPath(LEVEL_FILE, status) && status->st_nlink == 1;
}

bool logFileIsCurrent(struct stat *status)
{
    return isAtPath(LOG_FILE, status) && status->st_nlink == 1;
}

int levelFileOpen(struct stat *status)
{
    return openShared(LEVEL_FILE, 0, status);
}

int logFileOpen(struct stat *status)
{
    return openShared(LOG_FILE, O_APPEND, status);
}

/*
 * False: another process is rotating the log. Ignores a read lock: a process that may only read the file can take one.
 * Ignores any lock above LOG_PATIENCE: its holder hangs, or wants the log to grow for ever.
 */
static bool lockForRotation(int file, const struct stat *status)
{
    struct flock lock = {.l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = 0, .l_len = 0, .l_pid = 0};
    if (fcntl(file, F_SETLK, &lock) == 0 || status->st_size > LOG_PATIENCE)
        return true;
    return fcntl(file, F_GETLK, &lock) == 0 && lock.l_type == F_RDLCK;
}

/*
 * First moves an empty file to the old log's place, then exchanges it for the log. Where this user must not move the
 * log (another user's, in a sticky directory), or the file system cannot exchange, copies the content and empties the
 * log.
 */
static RotationResult replaceLog(int file, struct stat *status)
{
    char newFile[sizeof NEW_FILE];
    int fresh = createLike(status, newFile);
    if (fresh < 0)
        return NOT_ROTATED;
    if (!isAtPath(LOG_FILE, status)) {
        removePath(newFile);
        close(fresh);
        return ROTATED;
    }
    bool kept = moveTo(OLD_LOG_FILE, newFile) &&
                (renameat2(AT_FDCWD, OLD_LOG_FILE, AT_FDCWD, LOG_FILE, RENAME_EXCHANGE) == 0 ||
                 (copyContent(file, fresh) && ftruncate(file, 0) == 0));
    int reason = errno;
    close(fresh);
    errno = reason;
    return kept ? ROTATED : NOT_ROTATED;
}

RotationResult logFileRotate(int file)
{
    struct stat status;
    if (fstat(file, &status) != 0 || !lockForRotation(file, &status))
        return NOT_ROTATED;
    if (!isAtPath(LOG_FILE, &status))
        return ROTATED;
    RotationResult result = replaceLog(file, &status);
    int reason = errno;
    if (result == NOT_ROTATED && fstat(file, &status) == 0 && status.st_size > LOG_HOPELESS && ftruncate(file, 0) == 0)
        result = GIVEN_UP;
    errno = reason;
    return result;
}
