/*
 * server.h - the virtual switch's socket and its clients.
 */
#ifndef VSWITCH_SERVER_H
#define VSWITCH_SERVER_H

/*
 * Serves on the socket at `path` until SIGTERM or SIGINT, then removes it. Returns the exit status: 1, with a message,
 * if it cannot listen there.
 */
int serveOn(const char *path);

#endif
