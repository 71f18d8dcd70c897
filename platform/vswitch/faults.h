/*
 * faults.h - faults on demand: operations that answer a given code or given values, late, rubbish, or not at all.
 */
#ifndef VSWITCH_FAULTS_H
#define VSWITCH_FAULTS_H

#include <stdint.h>

#include <map>
#include <string>

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

/*
 * Runs a command that somebody gave the running switch: "fault ...", "clear [OPERATION]", "reset", "pass SECONDS" or
 * "operations". False with an explanation in *answer when it cannot be run.
 */
bool runCommand(const std::string &command, std::string *answer);

#endif
