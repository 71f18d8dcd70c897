/*
 * log.cpp - the logger. Every failure of its own is silent: a program that cannot log still serves its request.
 */
#include "log/log.h"

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

enum { LEVEL_FILE_SIZE = 4, LOG_FILE_LIMIT = 0x100000, DEFAULT_THRESHOLD = 6 };

static struct {
    int32_t flags = -1;
    int32_t facility = -1;
    const char *identity = nullptr;
    FILE *file = nullptr;
    int32_t fileBytes = 0; /* written to the current log file, what it held at opening included */
    int32_t levelFd = -1;
    bool started = false; /* the first line has been written */
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; /* guards file and fileBytes */
    char processName[64] = "";
} logger;

static bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

static const char *levelName(int level)
{
    static const char *const names[] = {"", "", "", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG"};
    return level >= 0 && level <= LEVEL_DEBUG ? names[level] : "";
}

static void closeFile()
{
    pthread_mutex_lock(&logger.lock);
    if (logger.file)
        fclose(logger.file);
    logger.file = nullptr;
    pthread_mutex_unlock(&logger.lock);
}

static void openFile()
{
    pthread_mutex_lock(&logger.lock);
    if (logger.file)
        fclose(logger.file);
    logger.file = fopen(LOG_FILE, "a+e");
    struct stat status;
    if (logger.file && fileno(logger.file) > 0 && fstat(fileno(logger.file), &status) == 0)
        logger.fileBytes = status.st_size > LOG_FILE_LIMIT ? LOG_FILE_LIMIT : (int32_t)status.st_size;
    pthread_mutex_unlock(&logger.lock);
}

/*
 * The first byte of the shared level file, 0 when there is none. Other processes write it at any time; it is read, not
 * mapped, because whoever empties the file first, as a shell's ">" does, would kill everybody who touches the mapping.
 */
static char levelByte()
{
    char byte;
    return logger.levelFd >= 0 && pread(logger.levelFd, &byte, 1, 0) == 1 ? byte : (char)0;
}

static void closeLevel()
{
    if (logger.levelFd >= 0)
        close(logger.levelFd);
    logger.levelFd = -1;
}

static void openLevel()
{
    const char standard = '0' + DEFAULT_THRESHOLD;
    logger.levelFd = open(LEVEL_FILE, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (logger.levelFd < 0)
        return;
    struct stat status; /* cheap, while even a truncation to the same size is the file system's work */
    bool hasSize = fstat(logger.levelFd, &status) == 0 && status.st_size == LEVEL_FILE_SIZE;
    if ((!hasSize && ftruncate(logger.levelFd, LEVEL_FILE_SIZE) != 0) ||
        (!isDigit(levelByte()) && pwrite(logger.levelFd, &standard, 1, 0) != 1))
        closeLevel();
}

/* What the first line set up, and the level file with it. */
static void stop()
{
    if (logger.flags & LOG_TO_SYSLOG)
        closelog();
    if (logger.flags & LOG_TO_FILE)
        closeFile();
    closeLevel();
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

static int threshold()
{
    char digit = levelByte();
    return isDigit(digit) ? digit - '0' : DEFAULT_THRESHOLD;
}

/* The process name, as the kernel gives it; null when it cannot be had. */
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

/* The full log file becomes the old one. When that fails the file stays closed and lines go to standard output. */
static void rotate()
{
    fclose(logger.file);
    unlink(OLD_LOG_FILE);
    rename(LOG_FILE, OLD_LOG_FILE);
    logger.file = fopen(LOG_FILE, "a+e");
    logger.fileBytes = 0;
}

__attribute__((format(printf, 3, 0))) static void logWriteLine(FILE *stream, int level, const char *format,
                                                              va_list arguments)
{
    const char *identity = logger.identity ? logger.identity : "";
    struct timespec now;
    struct tm calendar;
    int prefixBytes;
    if (clock_gettime(CLOCK_REALTIME, &now) == 0 && localtime_r(&now.tv_sec, &calendar))
        prefixBytes = fprintf(stream, "%04d-%02d-%02d %02d:%02d:%02d.%03ld (%s): %s: ", calendar.tm_year + 1900,
                              calendar.tm_mon + 1, calendar.tm_mday, calendar.tm_hour, calendar.tm_min,
                              calendar.tm_sec, now.tv_nsec / 1000000, levelName(level), identity);
    else
        prefixBytes = fprintf(stream, "(%s): %s: ", levelName(level), identity);
    int messageBytes = vfprintf(stream, format, arguments);

    if (stream == logger.file) {
        logger.fileBytes += (prefixBytes > 0 ? prefixBytes : 0) + (messageBytes > 0 ? messageBytes : 0);
        if (logger.fileBytes > LOG_FILE_LIMIT) {
            rotate();
            return; /* closing has flushed the line */
        }
    }
    fflush(stream);
}

void logWrite(int level, const char *format, ...)
{
    if (level > threshold())
        return;
    if (!logger.started)
        start();

    va_list arguments;
    if (logger.flags & LOG_TO_STDOUT) {
        va_start(arguments, format);
        logWriteLine(stdout, level, format, arguments);
        va_end(arguments);
    }
    if (logger.flags & LOG_TO_FILE) {
        va_start(arguments, format);
        pthread_mutex_lock(&logger.lock);
        logWriteLine(logger.file ? logger.file : stdout, level, format, arguments);
        pthread_mutex_unlock(&logger.lock);
        va_end(arguments);
    }
    if (logger.flags & LOG_TO_SYSLOG) {
        va_start(arguments, format);
        vsyslog(level, format, arguments);
        va_end(arguments);
    }
}
