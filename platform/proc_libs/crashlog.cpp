/*
 * crashlog.cpp - stand-in for libproc_libs.so: the crash recorder, on machines that are not a switch.
 *
 * Appends a record to the file named by CRASHLOG_FILE (default /tmp/crashlog.txt): time, process, signal, and the call
 * stack as object+offset lines for addr2line. Then the signal ends the process as usual.
 */
#include "proc_libs.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>
#include <unwind.h>

/* A separate stack for the handler, so that it can record a stack overflow. */
static char handlerStack[64 * 1024];
static char recordPath[256];

struct CrashSignal {
    int number;
    const char *description;
};

static const CrashSignal crashSignals[] = {{SIGSEGV, "Segmentation fault"},
                                           {SIGABRT, "Aborted"},
                                           {SIGBUS, "Bus error"},
                                           {SIGFPE, "Floating point exception"},
                                           {SIGILL, "Illegal instruction"}};

static const char *descriptionOf(int signalNumber)
{
    for (const CrashSignal &crash : crashSignals)
        if (crash.number == signalNumber)
            return crash.description;
    return "?";
}

/* Writes each line at once: if the recorder itself crashes, the lines so far are in the file. */
__attribute__((format(printf, 2, 3))) static void writeLine(int file, const char *format, ...)
{
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length >= (int)sizeof line) {
        length = sizeof line - 1;
        line[length - 1] = '\n';
    }
    ssize_t written = write(file, line, length > 0 ? (size_t)length : 0);
    (void)written; /* a dying process cannot report a failure */
}

struct Stack {
    int file;
    int frames;
};

static _Unwind_Reason_Code writeStackFrame(_Unwind_Context *context, void *data)
{
    Stack *stack = (Stack *)data;
    int isExact = 0;
    uintptr_t address = _Unwind_GetIPInfo(context, &isExact);
    if (!address || stack->frames >= 64)
        return _URC_END_OF_STACK;
    if (!isExact)
        address--; /* a return address points behind the call */

    Dl_info object;
    bool known = dladdr((void *)address, &object) && object.dli_fname;
    writeLine(stack->file, "  #%d %s+0x%zx %s\n", stack->frames++, known ? object.dli_fname : "?",
              (size_t)(known ? address - (uintptr_t)object.dli_fbase : address),
              known && object.dli_sname ? object.dli_sname : "");
    return _URC_NO_REASON;
}

/* The date, `days` after 1970-01-01. Not by gmtime_r: it may allocate, and the heap may be damaged. */
static void dateOf(time_t days, int *year, int *month, int *day)
{
    static const int monthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    auto isLeap = [](int y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); };
    for (*year = 1970; days >= 365 + isLeap(*year); ++*year)
        days -= 365 + isLeap(*year);
    for (*month = 1; days >= monthDays[*month - 1] + (*month == 2 && isLeap(*year)); ++*month)
        days -= monthDays[*month - 1] + (*month == 2 && isLeap(*year));
    *day = (int)days + 1;
}

/* The name of this process; "?" when it cannot be read. */
static void processName(char *name, size_t size)
{
    snprintf(name, size, "?");
    int file = open("/proc/self/comm", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    ssize_t got = read(file, name, size - 1);
    name[got > 0 ? got - 1 : 0] = 0; /* without the newline */
    close(file);
}

static void recordCrash(int signalNumber, siginfo_t *info, void *)
{
    alarm(5); /* ends the process if the recorder hangs */
    int file = open(recordPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (file >= 0) {
        struct timespec now;
        char name[32];
        int year, month, day;
        clock_gettime(CLOCK_REALTIME, &now);
        dateOf(now.tv_sec / 86400, &year, &month, &day);
        int second = (int)(now.tv_sec % 86400);
        processName(name, sizeof name);
        writeLine(file, "%04d-%02d-%02d %02d:%02d:%02d UTC process %s (%d) died of signal %d (%s) at address %p\n",
                  year, month, day, second / 3600, second / 60 % 60, second % 60, name, (int)getpid(), signalNumber,
                  descriptionOf(signalNumber), info->si_addr);
        Stack stack = {file, 0};
        _Unwind_Backtrace(writeStackFrame, &stack);
        close(file);
    }
    signal(signalNumber, SIG_DFL); /* the signal is blocked until the handler returns; then it ends the process */
    raise(signalNumber);
}

void l7proc_crashlog_register(void)
{
    const char *path = getenv("CRASHLOG_FILE");
    snprintf(recordPath, sizeof recordPath, "%s", path && *path ? path : "/tmp/crashlog.txt");

    stack_t stack = {};
    stack.ss_sp = handlerStack;
    stack.ss_size = sizeof handlerStack;
    sigaltstack(&stack, nullptr);

    struct sigaction action = {};
    action.sa_sigaction = recordCrash;
    action.sa_flags = (int)(SA_SIGINFO | SA_ONSTACK | SA_RESETHAND);
    for (const CrashSignal &crash : crashSignals)
        sigaction(crash.number, &action, nullptr);
}
