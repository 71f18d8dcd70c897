/*
 * crashlog.cpp - stand-in for libproc_libs.so: a recorder that writes down how a process died.
 *
 * A record is appended to the file named by CRASHLOG_FILE (/tmp/crashlog.txt): time, process, signal, and the call
 * stack as object+offset lines that addr2line understands. The process then dies of its signal as it would have.
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

/* The handler has a stack of its own, so that a stack overflow is recorded too. */
static char handlerStack[64 * 1024];
static char recordPath[256];

static const int crashSignals[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};

struct Record {
    char text[8192];
    size_t length;
    int frames;
};

__attribute__((format(printf, 2, 3))) static void append(Record *record, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    size_t room = sizeof record->text - record->length;
    int wanted = vsnprintf(record->text + record->length, room, format, arguments);
    va_end(arguments);
    if (wanted > 0)
        record->length += (size_t)wanted < room ? (size_t)wanted : room - 1;
}

static _Unwind_Reason_Code appendFrame(_Unwind_Context *context, void *data)
{
    Record *record = (Record *)data;
    int isCaller = 1; /* a return address belongs to the line before it, but the crashing address to its own */
    uintptr_t address = _Unwind_GetIPInfo(context, &isCaller);
    if (!address || record->frames >= 64)
        return _URC_END_OF_STACK;

    Dl_info object;
    const char *file = "?";
    uintptr_t offset = address;
    const char *symbol = "";
    if (dladdr((void *)address, &object) && object.dli_fname) {
        file = object.dli_fname;
        offset = address - (uintptr_t)object.dli_fbase;
        symbol = object.dli_sname ? object.dli_sname : "";
    }
    append(record, "  #%d %s+0x%zx %s\n", record->frames++, file, (size_t)offset, symbol);
    return _URC_NO_REASON;
}

static void recordCrash(int signalNumber, siginfo_t *info, void *)
{
    static Record record; /* static: the handler's stack is small */
    alarm(5);             /* a recorder that gets stuck must not keep a dead process around */

    struct timespec now;
    struct tm calendar;
    char processName[32] = "?";
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &calendar);
    int status = open("/proc/self/comm", O_RDONLY | O_CLOEXEC);
    if (status >= 0) {
        ssize_t got = read(status, processName, sizeof processName - 1);
        processName[got > 0 ? got - 1 : 0] = 0; /* without the newline */
        close(status);
    }
    append(&record, "%04d-%02d-%02d %02d:%02d:%02d UTC process %s (%d) died of signal %d (%s) at address %p\n",
           calendar.tm_year + 1900, calendar.tm_mon + 1, calendar.tm_mday, calendar.tm_hour, calendar.tm_min,
           calendar.tm_sec, processName, (int)getpid(), signalNumber, sigdescr_np(signalNumber), info->si_addr);
    _Unwind_Backtrace(appendFrame, &record);

    int file = open(recordPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file >= 0) {
        ssize_t written = write(file, record.text, record.length);
        (void)written; /* nobody is left to be told */
        close(file);
    }
    signal(signalNumber, SIG_DFL); /* blocked until the handler returns, then it ends the process */
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
    for (int signalNumber : crashSignals)
        sigaction(signalNumber, &action, nullptr);
}
