/*
 * watch.h - descriptors that the server's loop polls besides its clients: plugs, a timer, the trace.
 */
#ifndef VSWITCH_WATCH_H
#define VSWITCH_WATCH_H

#include <poll.h>

#include <functional>
#include <vector>

/*
 * Calls `ready` with the events that poll() returns for the descriptor: one of `events` (POLLIN, POLLOUT), POLLERR or
 * POLLHUP. `ready` must not block nor take longer than a few milliseconds: clients wait for it. It may be called with
 * nothing to do. Watching a descriptor again replaces its events and its function.
 */
void watch(int descriptor, short events, std::function<void(short)> ready);

/* Call it before the descriptor is closed. `ready` may call it, too. */
void unwatch(int descriptor);

/* For the loop: appends the watched descriptors; calls the functions of those that poll() has found ready. */
void appendWatched(std::vector<pollfd> *polled);
void callWatched(const pollfd *polled, size_t count);

#endif
