/*
 * faults.h - faults on demand: operations that answer a given code or given values, late, rubbish, or not at all.
 */
#ifndef VSWITCH_FAULTS_H
#define VSWITCH_FAULTS_H

#include <stdint.h>

#include <map>
#include <span>
#include <string>

#include "commands.h"
#include "operations.h"

struct Fault {
    bool hasCode = false; /* the code is answered and the model is not asked */
    int code = 0;
    long times = -1;      /* for so many calls; -1 until cleared */
    uint32_t delayMs = 0;
    bool hangUp = false;
    bool rubbish = false;
    std::map<std::string, std::string> outputs; /* values by parameter name */
};

/* The fault this call of the operation meets, null for none; counts the call. Valid until the next call. */
const Fault *takeFault(const std::string &operation);

/* Puts the fault's values into the arguments. */
void overrideOutputs(const Fault &fault, const Operation &operation, Arguments *arguments);

/* All of them end. */
void clearFaults();

/* The commands that make and end faults. */
std::span<const Command> faultCommands();

#endif
