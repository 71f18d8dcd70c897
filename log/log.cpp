/*
 * log.cpp - the logger. It ignores its failures: a program that cannot log still serves its request.
 */
#include "log/log.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

static const char LEVEL_FILE[] = "/tmp/devmgr_log_level";
static const char LOG_FILE[] = "/tmp/zt731.log";
static const char OLD_LOG_FILE[] = "/tmp/zt731.log.old";

enum { LEVEL_FILE_SIZE = 4, LOG_FILE_LIMIT = 0x100000, DEFAULT_THRESHOLD = 6, ATTEMPTS = 3 };

/* More than the longest text a client can send: Linux limits an environment variable to 128 KiB. */
enum { ENTRY_BYTES = 160 * 1024 };

static struct {
    int32_t flags = -1;
    int32_t facility = -1;
    const char *identity = nullptr;
    int32_t fileFd = -1;
    int32_t levelFd = -1;
    bool started = false; /* a line was written */
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* guards fileFd and `entry` */
    char processName[64] = "";
} logger;

static char entry[ENTRY_BYTES]; /* only the pages that a line touches take memory */

static bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

static const char *levelName(int level)
{
    static const char *const names[] = {"", "", "", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG"};
    return level >= 0 && level <= LEVEL_DEBUG ? names[level] : "";
}

/* Every user can create files in /tmp, so do not follow a link, and do not wait (for the other end of a pipe). */
enum { SHARED_FLAGS = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC };

/*
 * Creates the file only when it is missing: the kernel can refuse O_CREAT for another user's file, even to root
 * (fs.protected_regular). Fails with EEXIST when another process creates it at the same time.
 */
static int openOrCreate(const char *path, int flags)
{
    int fd = open(path, flags | SHARED_FLAGS);
    if (fd < 0 && errno == ENOENT)
        fd = open(path, flags | SHARED_FLAGS | O_CREAT | O_EXCL, 0666);
    return fd;
}

/* Opens a shared file. Returns -1 on failure, or when it is not a regular file with one name. */
static int openShared(const char *path, int flags, struct stat *status)
{
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        int fd = openOrCreate(path, flags);
        if (fd < 0 && errno == EEXIST)
            continue;
        if (fd < 0)
            return -1;
        bool known = fstat(fd, status) == 0;
        if (known && S_ISREG(status->st_mode) && status->st_nlink == 1)
            return fd;
        close(fd);
        if (!known || status->st_nlink > 0) /* 0: another process has just removed it; try again */
            return -1;
    }
    return -1;
}

static void closeDescriptor(int32_t *fd)
{
    if (*fd >= 0)
        close(*fd);
    *fd = -1;
}

/* The caller holds the lock. */
static void reopenFile()
{
    struct stat status;
    closeDescriptor(&logger.fileFd);
    logger.fileFd = openShared(LOG_FILE, O_APPEND, &status);
}

static void openFile()
{
    pthread_mutex_lock(&logger.lock);
    reopenFile();
    pthread_mutex_unlock(&logger.lock);
}

static void closeFile()
{
    pthread_mutex_lock(&logger.lock);
    closeDescriptor(&logger.fileFd);
    pthread_mutex_unlock(&logger.lock);
}

/*
 * The first byte of the level file; 0 when there is none. Other processes can write the file at any time. It is not
 * mapped: when another process empties it, as a shell's ">" does, an access to the mapping would end this process.
 */
static char levelByte()
{
    char byte;
    return logger.levelFd >= 0 && pread(logger.levelFd, &byte, 1, 0) == 1 ? byte : (char)0;
}

/* Truncates only a file of another size: even without effect a truncation costs the file system work. */
static bool giveLevelFileItsSize(off_t size)
{
    return size == LEVEL_FILE_SIZE || ftruncate(logger.levelFd, LEVEL_FILE_SIZE) == 0;
}

static bool giveLevelFileADigit()
{
    const char standard = '0' + DEFAULT_THRESHOLD;
    return isDigit(levelByte()) || pwrite(logger.levelFd, &standard, 1, 0) == 1;
}

static void openLevel()
{
    struct stat status;
    logger.levelFd = openShared(LEVEL_FILE, 0, &status);
    if (logger.levelFd >= 0 && !(giveLevelFileItsSize(status.st_size) && giveLevelFileADigit()))
        closeDescriptor(&logger.levelFd);
}

/* Closes all files and syslog. */
static void stop()
{
    if (logger.flags & LOG_TO_SYSLOG)
        closelog();
    if (logger.flags & LOG_TO_FILE)
        closeFile();
    closeDescriptor(&logger.levelFd);
    logger.started = false;
}

void logOpen(int flags, int facility, const char *identity)
{
    if (logger.started)
        stop();
    logger.identity = identity;
    logger.flags = flags;
    logger.facility = facility;
    if (logger.levelFd < 0)
        openLevel();
    if (flags & LOG_TO_FILE)
        openFile();
}

void logClose()
{
    if (logger.started)
        stop();
}

static bool isAtPath(const char *path, const struct stat *open)
{
    struct stat found;
    return lstat(path, &found) == 0 && found.st_dev == open->st_dev && found.st_ino == open->st_ino;
}

/* Is what is open still the file at its path, as a process would open it that starts now? */
static bool isCurrent(int fd, const char *path, struct stat *status)
{
    return fd >= 0 && fstat(fd, status) == 0 && isAtPath(path, status) && status->st_nlink == 1;
}

void logRefresh()
{
    struct stat status;
    tzset();
    if (!isCurrent(logger.levelFd, LEVEL_FILE, &status) || status.st_size != LEVEL_FILE_SIZE || !isDigit(levelByte())) {
        closeDescriptor(&logger.levelFd);
        openLevel();
    }
    if ((logger.flags & LOG_TO_FILE) && !isCurrent(logger.fileFd, LOG_FILE, &status))
        openFile();
}

static int threshold()
{
    char digit = levelByte();
    return isDigit(digit) ? digit - '0' : DEFAULT_THRESHOLD;
}

/* The process name in the kernel; null: it could not be read. */
static const char *readProcessName()
{
    FILE *status = fopen("/proc/self/status", "re");
    if (!status)
        return nullptr;
    char line[64];
    const char *name = nullptr;
    while (!name && fgets(line, sizeof line, status)) {
        char *rest = nullptr;
        if (strncmp(line, "Name:", 5) == 0 && strtok_r(line, "\t\n", &rest))
            name = strtok_r(nullptr, "\t\n", &rest);
        if (name)
            name = strcpy(logger.processName, name);
    }
    fclose(status);
    return name;
}

static void start()
{
    if (logger.flags < 0)
        logger.flags = LOG_TO_STDOUT;
    if (logger.facility < 0)
        logger.facility = LOG_USER;
    if (!logger.identity && logger.flags != LOG_TO_STDOUT)
        logger.identity = readProcessName();
    if (logger.flags & LOG_TO_SYSLOG)
        openlog(logger.identity, 0, logger.facility);
    logger.started = true;
}

/*
 * Exchanges the log file for a new one in one step: if the name were free for a moment, another user could put a link
 * there. Where the file system cannot exchange, renames the log file to the old name; where that fails too (the old one
 * is a directory, or another user's), empties it.
 */
static void replaceFile()
{
    unlink(OLD_LOG_FILE);
    int fresh = open(OLD_LOG_FILE, SHARED_FLAGS | O_CREAT | O_EXCL, 0666);
    bool exchanged = fresh >= 0 && renameat2(AT_FDCWD, OLD_LOG_FILE, AT_FDCWD, LOG_FILE, RENAME_EXCHANGE) == 0;
    if (fresh >= 0)
        close(fresh);
    if (!exchanged && rename(LOG_FILE, OLD_LOG_FILE) != 0)
        [[maybe_unused]] int cut = ftruncate(logger.fileFd, 0);
}

/*
 * False: another process is rotating the file. Ignores a read lock: a process that may only read the file can take one,
 * and could keep the log growing for ever.
 */
static bool lockForRotation()
{
    struct flock lock = {.l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = 0, .l_len = 0, .l_pid = 0};
    if (fcntl(logger.fileFd, F_SETLK, &lock) == 0)
        return true;
    return fcntl(logger.fileFd, F_GETLK, &lock) == 0 && lock.l_type == F_RDLCK;
}

/* One of the processes that see the full file replaces it; the others only open the new one. */
static void rotate(const struct stat *status)
{
    if (!lockForRotation())
        return;
    if (isAtPath(LOG_FILE, status))
        replaceFile();
    reopenFile(); /* closing the old file unlocks it */
}

static void printEntry(size_t length)
{
    fwrite(entry, 1, length, stdout);
    fflush(stdout);
}

/* Writes with one call, so that no other process's entry comes between. False: the file was removed meanwhile. */
static bool writeEntry(size_t length)
{
    struct stat status;
    [[maybe_unused]] ssize_t written = write(logger.fileFd, entry, length);
    if (fstat(logger.fileFd, &status) != 0)
        return true;
    if (status.st_nlink > 0 && status.st_size > LOG_FILE_LIMIT)
        rotate(&status);
    return status.st_nlink > 0;
}

/* Without a file the entry goes to standard output. */
static void appendEntry(size_t length)
{
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        if (logger.fileFd < 0)
            return printEntry(length);
        if (writeEntry(length))
            return;
        reopenFile(); /* the entry may be lost with the removed file: write it again */
    }
}

/* How many bytes of a formatted text of `length` bytes fit into `room`, besides the terminator. */
static size_t fitting(int length, size_t room)
{
    return length < 0 ? 0 : (size_t)length < room ? (size_t)length : room - 1;
}

/* Formats the line into `entry` and returns its length. A line that is too long is cut, but keeps its newline. */
__attribute__((format(printf, 2, 0))) static size_t formatEntry(int level, const char *format, va_list arguments)
{
    const char *identity = logger.identity ? logger.identity : "";
    struct timespec now;
    struct tm calendar;
    int prefix;
    if (clock_gettime(CLOCK_REALTIME, &now) == 0 && localtime_r(&now.tv_sec, &calendar))
        prefix = snprintf(entry, sizeof entry, "%04d-%02d-%02d %02d:%02d:%02d.%03ld (%s): %s: ",
                          calendar.tm_year + 1900, calendar.tm_mon + 1, calendar.tm_mday, calendar.tm_hour,
                          calendar.tm_min, calendar.tm_sec, now.tv_nsec / 1000000, levelName(level), identity);
    else
        prefix = snprintf(entry, sizeof entry, "(%s): %s: ", levelName(level), identity);
    size_t used = fitting(prefix, sizeof entry);
    used += fitting(vsnprintf(entry + used, sizeof entry - used, format, arguments), sizeof entry - used);
    if (used == sizeof entry - 1)
        entry[used - 1] = '\n';
    return used;
}

void logWrite(int level, const char *format, ...)
{
    if (level > threshold())
        return;
    if (!logger.started)
        start();

    va_list arguments;
    if (logger.flags & (LOG_TO_STDOUT | LOG_TO_FILE)) {
        pthread_mutex_lock(&logger.lock);
        va_start(arguments, format);
        size_t length = formatEntry(level, format, arguments);
        va_end(arguments);
        if (logger.flags & LOG_TO_STDOUT)
            printEntry(length);
        if (logger.flags & LOG_TO_FILE)
            appendEntry(length);
        pthread_mutex_unlock(&logger.lock);
    }
    if (logger.flags & LOG_TO_SYSLOG) {
        va_start(arguments, format);
        vsyslog(level, format, arguments);
        va_end(arguments);
    }
}

void logMaskControls(char *text)
{
    for (; *text; text++)
        if ((unsigned char)*text < ' ' || *text == 0x7f)
            *text = '?';
}
