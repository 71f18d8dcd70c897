/*
 * short_memory.cpp - stands between the program and the C library (see the linker's --wrap) and between cJSON and it.
 */
#include "tests/fuzz/short_memory.h"

#include <cjson/cJSON.h>
#include <errno.h>
#include <setjmp.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <unordered_map>

enum : size_t { LARGEST = 1 << 20, TREE_BLOCK = 32 * 1024 /* the route tree's blocks live on, as does the tree */ };

static thread_local bool running; /* the fuzzer has a thread besides */
static unsigned untilFailure;
static int outcome;
static jmp_buf beforeExit;

static std::unordered_map<void *, size_t> &held()
{
    static std::unordered_map<void *, size_t> allocations;
    return allocations;
}

extern "C" {

void __real_exit(int status) __attribute__((noreturn));
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *old, size_t size);
void __real_free(void *memory);
char *__real_strndup(const char *text, size_t limit);

static bool fails(size_t size)
{
    if (!running || (size <= LARGEST && (untilFailure == 0 || --untilFailure > 0)))
        return false;
    outcome |= OUT_OF_MEMORY;
    errno = ENOMEM;
    return true;
}

static void *hold(void *memory, size_t size)
{
    if (running && memory)
        held()[memory] = size;
    return memory;
}

void *__wrap_malloc(size_t size)
{
    return fails(size) ? nullptr : hold(__real_malloc(size), size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return fails(count > LARGEST ? count : count * size) ? nullptr : hold(__real_calloc(count, size), count * size);
}

void __wrap_free(void *memory)
{
    if (running)
        held().erase(memory);
    __real_free(memory);
}

void *__wrap_realloc(void *old, size_t size)
{
    if (fails(size))
        return nullptr;
    if (running)
        held().erase(old);
    return hold(__real_realloc(old, size), size);
}

char *__wrap_strndup(const char *text, size_t limit)
{
    size_t length = strnlen(text, limit);
    return fails(length + 1) ? nullptr : (char *)hold(__real_strndup(text, limit), length + 1);
}

char *__wrap_strdup(const char *text)
{
    return __wrap_strndup(text, SIZE_MAX);
}

/* Nobody waits here. The fuzzer's thread does, but not in the sandbox, which would look into a changing environment. */
unsigned __wrap_sleep(unsigned seconds)
{
    if (!running)
        usleep(seconds * 1000000);
    return 0;
}

void __wrap_exit(int status)
{
    if (!running)
        __real_exit(status);
    longjmp(beforeExit, 1);
}

} /* extern "C" */

static void freeHeld()
{
    for (const auto &[memory, size] : held())
        if (size != TREE_BLOCK)
            __real_free(memory);
}

int runWithMemory(void (*function)(), unsigned failing)
{
    static cJSON_Hooks hooks = {__wrap_malloc, __wrap_free};
    cJSON_InitHooks(&hooks);
    held().clear();
    untilFailure = failing;
    outcome = NO_FAILURE;
    running = true;
    bool exited = setjmp(beforeExit) != 0;
    if (!exited)
        function();
    running = false;
    cJSON_InitHooks(nullptr);
    if (exited) {
        outcome |= EXITED;
        freeHeld();
    }
    return outcome;
}
