/*
 * hostile_switch.h - OpEN operations that return the values of the fuzzer's input.
 */
#ifndef TESTS_FUZZ_HOSTILE_SWITCH_H
#define TESTS_FUZZ_HOSTILE_SWITCH_H

#include "tests/fuzz/fuzz_input.h"

/* Replies come from `input` from now on; those of the start-up calls only with `hostileStartUp`. */
void replyFrom(FuzzInput *input, bool hostileStartUp, bool canRegister);

/* The number of calls since then, without those of the start-up. */
unsigned callsSinceStart();

#endif
