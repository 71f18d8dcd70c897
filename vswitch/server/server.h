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

#endif
