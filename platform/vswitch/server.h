/*
 * server.h - the virtual switch's socket and its clients.
 */
#ifndef VSWITCH_SERVER_H
#define VSWITCH_SERVER_H

/*
 * Serves on the socket at `path` until SIGTERM or SIGINT, then removes it. A stale socket is cleaned up; a path that is
 * being served, or is something else than a socket, is refused with a message. Returns the exit status.
 */
int serveOn(const char *path);

/* Connects to the socket at `path`; nothing on it takes longer than 5 s. A descriptor, or -1 with errno set. */
int connectTo(const char *path);

#endif
