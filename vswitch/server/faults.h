/*
 * faults.h - faults on demand: operations that answer a given code or given values, late, garbage, or not at all.
 */
#ifndef VSWITCH_FAULTS_H
#define VSWITCH_FAULTS_H

#include <stdint.h>

#include <map>
#include <string>

#include "vswitch/base/commands.h"
#include "vswitch/base/operations.h"

using ValuesByName = std::map<std::string, std::string>; /* of parameters, as they were given */

struct Fault {
    Args args;              /* as it was given, but for "times" */
    ValuesByName conditions; /* the calls it meets send these values */
    ValuesByName outputs;    /* what they return */
    bool hasCode = false;    /* the code is answered and the model is not asked */
    int code = 0;
    long long times = -1;    /* for so many calls; -1 until cleared */
    uint64_t met = 0;        /* calls so far */
    uint32_t delayMs = 0;
    bool hangUp = false;
    bool garbage = false;
};

/* The fault this call of the operation meets, null for none; counts the call. Valid until the next call. */
const Fault *takeFault(const Operation &operation, const Arguments &arguments);

/* Puts the fault's values into the arguments. */
void overrideOutputs(const Fault &fault, const Operation &operation, Arguments *arguments);

/* All of them end. */
void clearFaults();

/* The commands that make and end faults. Once. */
void registerFaults();

#endif
