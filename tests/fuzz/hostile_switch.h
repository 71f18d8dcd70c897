/*
 * hostile_switch.h - OpEN operations that answer whatever the fuzzer's input says.
 */
#ifndef TESTS_FUZZ_HOSTILE_SWITCH_H
#define TESTS_FUZZ_HOSTILE_SWITCH_H

#include "tests/fuzz/fuzz_input.h"

/* From now on replies are taken from `input`; those of the start-up only if it is hostile, too. */
void replyFrom(FuzzInput *input, bool hostileStartUp, bool canRegister);

/* How many operations were called since, those of the start-up aside. */
unsigned callsSinceStart();

#endif
