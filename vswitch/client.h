/*
 * client.h - what `vswitch COMMAND` does: sends the command to the virtual switch that serves on a socket.
 */
#ifndef VSWITCH_CLIENT_H
#define VSWITCH_CLIENT_H

#include "vswitch/base/commands.h"

/* Runs the command args[0], prints what it answers, and returns the exit status. After all commands were registered. */
int runClient(const char *socketPath, const Args &args);

#endif
