/*
 * sandbox.cpp - gives a process a private /tmp, in which other users' files are protected, and the faults that a test
 * asks for. It is preloaded into the unchanged program and linked into the tests, so no test disturbs another, or a
 * running switch.
 *
 * Environment:
 *   SANDBOX_TMP               the directory that replaces /tmp
 *   SANDBOX_SLEEP_MS          sleep() lasts so many milliseconds, and appends the seconds asked for to /tmp/slept
 *   SANDBOX_FAST_TIMER        timers (setitimer) run ten times as fast
 *   SANDBOX_UPTIME            the uptime that sysinfo() returns, in seconds; "fail": sysinfo() fails
 *   SANDBOX_REGISTER_FAILS    openapiClientRegister returns -1
 *   SANDBOX_TEAR_DOWN_CRASHES openapiClientTearDown aborts the process
 *   SANDBOX_READ_ONLY         /tmp is on a read-only file system
 *   SANDBOX_IMMOVABLE         this path of /tmp belongs to another user, and the directory is sticky: it cannot be
 *                             removed, renamed or replaced
 *   SANDBOX_FAIL_ALLOCATION   N: only the Nth allocation since the start of main fails, and creates
 *                             /tmp/allocation-failed (preloaded only)
 */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#ifdef _TIME_BITS /* a 32-bit build: the functions for large files and late times have other names */
#define __open_2 __open64_2
static const char *const otherNames[][2] = {{"open", "open64"}, {"openat", "openat64"}, {"lstat", "__lstat64_time64"},
                                         {"mkostemp", "mkostemp64"}, {"setitimer", "__setitimer64"}};
#else
static const char *const otherNames[][2] = {{"", ""}};
#endif

/* The C library's function of that name. */
template <class Function> static Function *next(const char *name, Function *)
{
    for (const auto &[usual, other] : otherNames)
        name = strcmp(name, usual) == 0 ? other : name;
    return (Function *)dlsym(RTLD_NEXT, name);
}
#define NEXT(function) next(#function, (decltype(&::function))nullptr)

struct Path {
    char text[4096];
};

static const char *moved(const char *path, Path *storage)
{
    const char *tmp = getenv("SANDBOX_TMP");
    if (!tmp || !path || strncmp(path, "/tmp/", 5) != 0 || strncmp(path, tmp, strlen(tmp)) == 0)
        return path;
    snprintf(storage->text, sizeof storage->text, "%s/%s", tmp, path + 5);
    return storage->text;
}

#define EXPORT extern "C" __attribute__((visibility("default")))

/* True, with errno set: a change of `path` must fail. */
static bool isReadOnly(const char *path)
{
    if (!getenv("SANDBOX_READ_ONLY") || strncmp(path, "/tmp/", 5) != 0)
        return false;
    errno = EROFS;
    return true;
}

/* True, with errno set: another user's file would have to go. */
static bool isImmovable(const char *from, const char *to)
{
    const char *path = getenv("SANDBOX_IMMOVABLE");
    struct stat status;
    Path storage;
    if (!path || (strcmp(path, from) != 0 && strcmp(path, to) != 0) || NEXT(lstat)(moved(path, &storage), &status) != 0)
        return false;
    errno = EPERM;
    return true;
}

/* As with fs.protected_regular = 2: O_CREAT without O_EXCL fails for another user's file. */
static bool isProtected(const char *path, int flags)
{
    struct stat status;
    if ((flags & (O_CREAT | O_EXCL)) != O_CREAT || lstat(path, &status) != 0 || status.st_uid == geteuid())
        return false;
    errno = EACCES;
    return true;
}

static int openMoved(const char *path, int flags, mode_t mode)
{
    Path storage;
    if (((flags & O_ACCMODE) != O_RDONLY && isReadOnly(path)) || isProtected(path, flags))
        return -1;
    return NEXT(open)(moved(path, &storage), flags, mode);
}

EXPORT int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return openMoved(path, flags, mode);
}

EXPORT int __open_2(const char *path, int flags) /* open() in a fortified build */
{
    return openMoved(path, flags, 0);
}

EXPORT int openat(int directory, const char *path, int flags, ...) /* only for existing files in a directory of /tmp */
{
    if ((flags & O_ACCMODE) != O_RDONLY && isReadOnly("/tmp/"))
        return -1;
    return NEXT(openat)(directory, path, flags);
}

EXPORT int lstat(const char *path, struct stat *status) noexcept
{
    Path storage;
    return NEXT(lstat)(moved(path, &storage), status);
}

EXPORT int unlink(const char *path) noexcept
{
    Path storage;
    if (isReadOnly(path) || isImmovable(path, path))
        return -1;
    return NEXT(unlink)(moved(path, &storage));
}

EXPORT int rmdir(const char *path) noexcept
{
    Path storage;
    if (isReadOnly(path) || isImmovable(path, path))
        return -1;
    return NEXT(rmdir)(moved(path, &storage));
}

EXPORT int mkostemp(char *path, int flags)
{
    Path storage;
    if (isReadOnly(path))
        return -1;
    char *created = (char *)moved(path, &storage);
    int file = NEXT(mkostemp)(created, flags);
    strcpy(path + strlen(path) - 6, created + strlen(created) - 6);
    return file;
}

EXPORT int rename(const char *from, const char *to) noexcept
{
    Path fromStorage, toStorage;
    if (isReadOnly(from) || isImmovable(from, to))
        return -1;
    return NEXT(rename)(moved(from, &fromStorage), moved(to, &toStorage));
}

EXPORT int renameat2(int fromDirectory, const char *from, int toDirectory, const char *to, unsigned flags) noexcept
{
    Path fromStorage, toStorage;
    if (isImmovable(from, to))
        return -1;
    return NEXT(renameat2)(fromDirectory, moved(from, &fromStorage), toDirectory, moved(to, &toStorage), flags);
}

EXPORT unsigned sleep(unsigned seconds)
{
    const char *millis = getenv("SANDBOX_SLEEP_MS");
    if (!millis)
        return NEXT(sleep)(seconds);
    int slept = open("/tmp/slept", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dprintf(slept, "%u ", seconds);
    close(slept);
    usleep((useconds_t)atoi(millis) * 1000);
    return 0;
}

#ifdef __GLIBC__
using TimerKind = __itimer_which_t;
#else
using TimerKind = int;
#endif

EXPORT int setitimer(TimerKind which, const struct itimerval *timer, struct itimerval *before) noexcept
{
    struct itimerval fast = *timer;
    if (getenv("SANDBOX_FAST_TIMER"))
        fast.it_value = {.tv_sec = timer->it_value.tv_sec / 10, .tv_usec = timer->it_value.tv_sec % 10 * 100'000};
    return NEXT(setitimer)(which, &fast, before);
}

EXPORT int sysinfo(struct sysinfo *info) noexcept
{
    const char *uptime = getenv("SANDBOX_UPTIME");
    int result = NEXT(sysinfo)(info);
    if (uptime && strcmp(uptime, "fail") == 0)
        return -1;
    if (uptime)
        info->uptime = atol(uptime);
    return result;
}

/*
 * Fills a whole record, as a real switch's library may, although the stand-in uses only a part. (Calls memset through a
 * pointer, so that a sanitizer sees it.)
 */
static void fill(void *record, size_t size)
{
    static void *(*volatile const filled)(void *, int, size_t) = memset;
    filled(record, 'x', size);
}

struct OpenClient;
EXPORT int openapiClientRegister(const char *name, struct OpenClient *client)
{
    using Register = int(const char *, struct OpenClient *);
    if (getenv("SANDBOX_REGISTER_FAILS"))
        return -1;
    fill(client, 2048);
    Register *original = (Register *)dlsym(RTLD_NEXT, "openapiClientRegister");
    return original ? original(name, client) : -1;
}

EXPORT int openapiClientTearDown(struct OpenClient *client)
{
    using TearDown = int(struct OpenClient *);
    if (getenv("SANDBOX_TEAR_DOWN_CRASHES"))
        abort();
    TearDown *original = (TearDown *)dlsym(RTLD_NEXT, "openapiClientTearDown");
    return original ? original(client) : -1;
}

#ifdef SANDBOX_PRELOADED /* not in the tests: their allocations must not fail */

struct OpenApiVersion;
EXPORT int rpcclt_openapiApiVersionGet(struct OpenClient *client, struct OpenApiVersion *version)
{
    using Get = int(struct OpenClient *, struct OpenApiVersion *);
    int result = ((Get *)dlsym(RTLD_NEXT, "rpcclt_openapiApiVersionGet"))(client, version);
    fill((char *)version + 4, 60);
    return result;
}

static long untilFailure; /* allocations up to the failing one; 0: none fails */

static bool allocationFails()
{
    if (untilFailure == 0 || --untilFailure > 0)
        return false;
    int mark = open("/tmp/allocation-failed", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (mark >= 0)
        close(mark);
    errno = ENOMEM;
    return true;
}

EXPORT void *malloc(size_t size) noexcept
{
    static auto *const original = NEXT(malloc);
    return allocationFails() ? nullptr : original(size);
}

EXPORT void *calloc(size_t count, size_t size) noexcept
{
    static auto *const original = NEXT(calloc);
    return allocationFails() ? nullptr : original(count, size);
}

EXPORT void *realloc(void *old, size_t size) noexcept
{
    static auto *const original = NEXT(realloc);
    return allocationFails() ? nullptr : original(old, size);
}

/* A sanitizer's strndup would not allocate with the functions above. */
EXPORT char *strndup(const char *text, size_t limit) noexcept
{
    size_t length = strnlen(text, limit);
    char *copy = (char *)malloc(length + 1);
    if (!copy)
        return nullptr;
    copy[length] = 0;
    return (char *)memcpy(copy, text, length);
}

EXPORT char *strdup(const char *text) noexcept
{
    return strndup(text, SIZE_MAX);
}

using Main = int(int, char **, char **);
static Main *originalMain;

static int mainInSandbox(int argc, char **argv, char **environment)
{
    const char *failing = getenv("SANDBOX_FAIL_ALLOCATION");
    untilFailure = failing ? atol(failing) : 0;
    return originalMain(argc, argv, environment);
}

EXPORT int __libc_start_main(Main *entry, int argc, char **argv, void (*init)(), void (*fini)(), void (*dynamicFini)(),
                             void *stackEnd)
{
    using Start = int(Main *, int, char **, void (*)(), void (*)(), void (*)(), void *);
    originalMain = entry;
    Start *original = (Start *)dlsym(RTLD_NEXT, "__libc_start_main");
    return original(mainInSandbox, argc, argv, init, fini, dynamicFini, stackEnd);
}

#endif
