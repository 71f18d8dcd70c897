/*
 * client.h - what `vswitch COMMAND` does: sends the command to the virtual switch that serves on a socket.
 */
#ifndef VSWITCH_CLIENT_H
#define VSWITCH_CLIENT_H

#include "vswitch/base/commands.h"

/* Runs the command args[0], prints the answer, and returns the exit status. Call it after registerAll(). */
int runClient(const char *socketPath, const Args &args);

#endif
