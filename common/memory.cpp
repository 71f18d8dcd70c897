/*
 * memory.cpp - the exit of a process that is out of memory.
 */
#include "common/memory.h"

#include <stdlib.h>

#include "log/log.h"

void exitWithoutMemory(const char *what)
{
    LOG(LEVEL_ERROR, "[MEM] Failed to %s\n", what);
    exit(1);
}
