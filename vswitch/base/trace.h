/*
 * trace.h - what the virtual switch writes while it runs: the trace of what it was asked and did, and errors.
 */
#ifndef VSWITCH_TRACE_H
#define VSWITCH_TRACE_H

#include <string>

/* From now on traceLine() writes to the file ("-": standard output), behind what is there. False with errno set. */
bool openTrace(const char *path);

/* Whether anybody wants lines: what is not wanted need not be made. */
bool tracing();

/*
 * Writes a line, given without its end. It has been written when this returns, unless nobody takes it: then lines wait,
 * up to a MiB; what comes after that is dropped, and a line says how many when there is room again.
 */
void traceLine(const std::string &line);

/* Writes "vswitch: MESSAGE" to standard error; drops it when the pipe there is full, so that no client can stop the switch. */
void printError(const std::string &message);

#endif
