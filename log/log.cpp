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

#include "log/log_file.h"

enum { LEVEL_FILE_SIZE = 4, DEFAULT_THRESHOLD = 6, ATTEMPTS = 3 };

/* More than the longest text a client can send: Linux limits an environment variable to 128 KiB. */
enum { ENTRY_BYTES = 160 * 1024 };

static struct {
    int32_t flags = -1;
    int32_t facility = -1;
    const char *identity = nullptr;
    int32_t fileFd = -1;
    int32_t levelFd = -1;
    struct stat fileStatus = {}; /* of the open files */
    struct stat levelStatus = {};
    bool checkFile = false; /* whether the open files are still the current ones */
    bool checkLevel = false;
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

static void closeDescriptor(int32_t *fd)
{
    if (*fd >= 0)
        close(*fd);
    *fd = -1;
}

/* The caller holds the lock. */
static void reopenFile()
{
    closeDescriptor(&logger.fileFd);
    logger.fileFd = logFileOpen(&logger.fileStatus);
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
    logger.levelFd = levelFileOpen(&logger.levelStatus);
    if (logger.levelFd >= 0 && !(giveLevelFileItsSize(logger.levelStatus.st_size) && giveLevelFileADigit()))
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

void logRefresh()
{
    logger.checkLevel = logger.checkFile = true;
}

/* Returns the level byte of the current level file. */
static char refreshLevel()
{
    bool isUsable = levelFileIsCurrent(&logger.levelStatus) && logger.levelStatus.st_size == LEVEL_FILE_SIZE;
    char digit = isUsable ? levelByte() : (char)0;
    logger.checkLevel = false;
    if (isDigit(digit))
        return digit;
    closeDescriptor(&logger.levelFd);
    openLevel();
    return levelByte();
}

static void refreshFile()
{
    logger.checkFile = false;
    tzset();
    if ((logger.flags & LOG_TO_FILE) && (logger.fileFd < 0 || !logFileIsCurrent(&logger.fileStatus)))
        openFile();
}

static int threshold()
{
    char digit = logger.checkLevel ? refreshLevel() : levelByte();
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

/* How many bytes of a formatted text of `length` bytes fit into `room`, besides the terminator. */
static size_t fitting(int length, size_t room)
{
    return length < 0 ? 0 : (size_t)length < room ? (size_t)length : room - 1;
}

/* Formats the line into `line` and returns its length. A line that is too long is cut, but keeps its newline. */
__attribute__((format(printf, 4, 0))) static size_t formatLine(char *line, size_t size, int level, const char *format,
                                                               va_list arguments)
{
    const char *identity = logger.identity ? logger.identity : "";
    struct timespec now;
    struct tm calendar;
    int prefix;
    if (clock_gettime(CLOCK_REALTIME, &now) == 0 && localtime_r(&now.tv_sec, &calendar))
        prefix = snprintf(line, size, "%04d-%02d-%02d %02d:%02d:%02d.%03ld (%s): %s: ",
                          calendar.tm_year + 1900, calendar.tm_mon + 1, calendar.tm_mday, calendar.tm_hour,
                          calendar.tm_min, calendar.tm_sec, now.tv_nsec / 1000000, levelName(level), identity);
    else
        prefix = snprintf(line, size, "(%s): %s: ", levelName(level), identity);
    size_t used = fitting(prefix, size);
    used += fitting(vsnprintf(line + used, size - used, format, arguments), size - used);
    if (used == size - 1)
        line[used - 1] = '\n';
    return used;
}

static void printEntry(size_t length)
{
    fwrite(entry, 1, length, stdout);
    fflush(stdout);
}

/* Writes the log's first line, without touching `entry`. */
__attribute__((format(printf, 1, 2))) static void writeNotice(const char *format, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    size_t length = formatLine(line, sizeof line, LEVEL_ERROR, format, arguments);
    va_end(arguments);
    [[maybe_unused]] ssize_t written = write(logger.fileFd, line, length);
}

/* The entry is the last line of the full log. Where the log's lines are lost, the new log has it, too. */
static void rotate(size_t length)
{
    RotationResult result = logFileRotate(logger.fileFd);
    int reason = errno;
    reopenFile();
    if (result != GIVEN_UP || logger.fileFd < 0)
        return;
    writeNotice("[%s:%d] More than %ld MiB of log are lost: it cannot be moved or copied to its .old file (%s)\n",
                __func__, __LINE__, LOG_HOPELESS >> 20, strerror(reason));
    [[maybe_unused]] ssize_t written = write(logger.fileFd, entry, length);
}

/* Writes with one call, so that no other process's entry comes between. False: the file was removed meanwhile. */
static bool writeEntry(size_t length)
{
    struct stat status;
    [[maybe_unused]] ssize_t written = write(logger.fileFd, entry, length);
    if (fstat(logger.fileFd, &status) != 0)
        return true;
    if (status.st_nlink > 0 && status.st_size > LOG_LIMIT)
        rotate(length);
    else if (status.st_nlink > 1)
        reopenFile(); /* replaces it */
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

void logWrite(int level, const char *format, ...)
{
    int error = errno;
    if (level > threshold())
        return;
    if (logger.checkFile)
        refreshFile();
    if (!logger.started)
        start();
    errno = error; /* for %m */

    va_list arguments;
    if (logger.flags & (LOG_TO_STDOUT | LOG_TO_FILE)) {
        pthread_mutex_lock(&logger.lock);
        va_start(arguments, format);
        size_t length = formatLine(entry, sizeof entry, level, format, arguments);
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

/* C1 controls are U+0080 to U+009F: in UTF-8 two bytes, the first of them 0xC2. */
static bool beginsC1(const unsigned char *text)
{
    return text[0] == 0xC2 && text[1] >= 0x80 && text[1] < 0xA0;
}

/* How many bytes of the same UTF-8 character may follow `first`. */
static int bytesAfter(unsigned char first)
{
    return first < 0xC2 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
}

void logMaskControls(char *text)
{
    int expected = 0; /* bytes of a UTF-8 character */
    for (unsigned char *at = (unsigned char *)text; *at; at++) {
        if (*at >= ' ' && *at < 0x7f) { /* nearly always */
            expected = 0;
            continue;
        }
        bool continues = expected > 0 && (*at & 0xC0) == 0x80;
        expected = continues ? expected - 1 : beginsC1(at) ? 0 : bytesAfter(*at);
        bool control = *at < ' ' || *at == 0x7f || beginsC1(at) || (*at >= 0x80 && *at < 0xA0 && !continues);
        if (control)
            *at = '?';
    }
}
