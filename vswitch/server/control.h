/*
 * control.h - the virtual switch as a whole: start, reset, commands.
 */
#ifndef VSWITCH_CONTROL_H
#define VSWITCH_CONTROL_H

#include <string>

#include "vswitch/base/commands.h"

/* Registers all operations and commands. Call it once; resetAll() then builds the state. */
void registerAll();

/* Back to factory settings, without faults, at uptime 0. */
void resetAll();

/* Runs a command line. Stores what it prints, or what is wrong: lines, each with its line end. */
CommandOutcome runCommand(const std::string &line, std::string *answer);

#endif
