/*
 * sockets.h - Unix-domain sockets: listening and connecting.
 */
#ifndef VSWITCH_SOCKETS_H
#define VSWITCH_SOCKETS_H

#include <string>

/*
 * Returns a listening socket at `path`, or -1: then *wrong says why. It replaces a socket that no process listens on;
 * it does not replace one that is in use, or anything else.
 */
int listenOn(const char *path, std::string *wrong);

/* Connects to the socket at `path`. Returns a descriptor whose reads and writes end after 5 s, or -1 with errno set. */
int connectTo(const char *path);

#endif
