/*
 * control.h - the virtual switch as a whole: its start, its reset, and the commands that clients send.
 */
#ifndef VSWITCH_CONTROL_H
#define VSWITCH_CONTROL_H

#include <string>

#include "vswitch/base/commands.h"

/* Registers all operations and commands. Once. Nothing is built yet: resetAll() does that. */
void registerAll();

/* The switch as it left the factory: without faults, at uptime 0. */
void resetAll();

/* Runs the command of a line. *answer is what it prints, or what is wrong: lines, each with its end. */
CommandOutcome runCommand(const std::string &line, std::string *answer);

#endif
