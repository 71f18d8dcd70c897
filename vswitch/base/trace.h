/*
 * trace.h - what the virtual switch writes while it runs: the trace, and error messages.
 */
#ifndef VSWITCH_TRACE_H
#define VSWITCH_TRACE_H

#include <string>

/*
 * Makes traceLine() append to the file ("-": standard output). False: the file cannot be opened; errno says why.
 * ELOOP: it is a symbolic link, which another user may have put there.
 */
bool openTrace(const char *path);

/* Was a trace opened? If not, callers need not build lines. */
bool tracing();

/*
 * Writes a line, given without its end. The line is written when this returns, unless the reader is slow: then up to a
 * MiB of lines waits. Lines beyond that are dropped, and a notice in the trace says how many.
 */
void traceLine(const std::string &line);

/* Writes "vswitch: MESSAGE" to standard error. Drops it if the pipe there is full: errors must not block the switch. */
void printError(const std::string &message);

#endif
