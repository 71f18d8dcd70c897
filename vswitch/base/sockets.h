/*
 * sockets.h - Unix-domain sockets, from both sides.
 */
#ifndef VSWITCH_SOCKETS_H
#define VSWITCH_SOCKETS_H

/*
 * A listening socket at `path`, or -1 with a message. A stale socket is cleaned up; a path that is being served, or is
 * something else than a socket, is refused.
 */
int listenOn(const char *path);

/* Connects to the socket at `path`; nothing on it takes longer than 5 s. A descriptor, or -1 with errno set. */
int connectTo(const char *path);

#endif
