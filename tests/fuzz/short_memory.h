/*
 * short_memory.h - runs code as a process of its own would run it: it may exit(), and its memory may run out.
 */
#ifndef TESTS_FUZZ_SHORT_MEMORY_H
#define TESTS_FUZZ_SHORT_MEMORY_H

enum { NO_FAILURE = 0, EXITED = 1, OUT_OF_MEMORY = 2 };

/*
 * Runs `function`. Its `failing`th allocation fails (0: none does), as does any that is too large. An exit() comes back
 * here, and what was allocated until then is freed. Returns which of EXITED and OUT_OF_MEMORY came to pass.
 */
int runWithMemory(void (*function)(), unsigned failing);

#endif
