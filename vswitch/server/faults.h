/*
 * faults.h - faults on demand: operations answer a given code or values, late, with garbage, or not at all.
 */
#ifndef VSWITCH_FAULTS_H
#define VSWITCH_FAULTS_H

#include <stdint.h>

#include <map>
#include <string>

#include "vswitch/base/commands.h"
#include "vswitch/base/operations.h"

using ValuesByName = std::map<std::string, std::string>; /* by parameter, as the user wrote them */

struct Fault {
    Args args;               /* as the user wrote them, without times=N */
    ValuesByName conditions; /* the fault applies only to calls that send these values */
    ValuesByName outputs;    /* the values that these calls return */
    bool hasCode = false;    /* answer `code`; the operation does not run */
    int code = 0;
    long long times = -1;    /* calls that are left; -1: no limit */
    uint64_t met = 0;        /* calls that it applied to */
    uint32_t delayMs = 0;
    bool hangUp = false;
    bool garbage = false;
};

/* Finds the fault that applies to this call, and counts the call. Null: none. Valid until the next takeFault(). */
const Fault *takeFault(const Operation &operation, const Arguments &arguments);

/* Stores the fault's outputs in the arguments. */
void overrideOutputs(const Fault &fault, const Operation &operation, Arguments *arguments);

/* Ends all faults. */
void clearFaults();

/* Registers the commands fault, faults and clear. Call it once. */
void registerFaults();

#endif
