/*
 * parent.h - the program started with a listening socket: a parent that keeps workers.
 */
#ifndef MAIN_PARENT_H
#define MAIN_PARENT_H

/* The listening socket that this process was started with, as standard input or by LISTEN_FDS; -1: none. */
int listeningSocket();

/* Serves SCGI requests from the socket `passed` until SIGTERM. The result is the exit status. */
int parentRun(int passed);

#endif
