/*
 * memory.cpp - what a process that is out of memory logs, and its exit.
 */
#include "common/memory.h"

#include <stdio.h>
#include <stdio_ext.h>
#include <stdlib.h>

#include "log/log.h"

void logWithoutMemory(const char *what)
{
    LOG(LEVEL_ERROR, "[MEM] Failed to %s\n", what);
}

void exitWithoutMemory(const char *what)
{
    __fpurge(stdout); /* the header: without it, the web server answers that the program failed */
    logWithoutMemory(what);
    exit(1);
}
