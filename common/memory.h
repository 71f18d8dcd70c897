/*
 * memory.h - what this program does when memory runs out:
 *
 * Registering endpoints: without a tree, exit with status 1. Log an endpoint that does not fit and go on without it.
 * Checking the session, logging: these need no memory; only a path that was not found may be missing from its line.
 * Reading a JSON body that must parse: log a line and answer 10003.
 * Reading any other input: log a line and exit with status 1, without output, so that the web server answers an error.
 * No default ever replaces a value that the client sent.
 * Building an answer: log a line, print no body, end as usual.
 * Two exceptions: answerOutcomeFixed logs only a failed print; groupIntfListGet answers 10000.
 */
#ifndef COMMON_MEMORY_H
#define COMMON_MEMORY_H

/* Logs that the process could not `what`. */
void logWithoutMemory(const char *what);

/* The same, drops what is printed but not yet written, and exits with status 1. */
[[noreturn]] void exitWithoutMemory(const char *what);

#endif
