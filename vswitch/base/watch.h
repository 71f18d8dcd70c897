/*
 * watch.h - descriptors that the server's loop looks at besides its clients: ports of the switch, timers (timerfd).
 */
#ifndef VSWITCH_WATCH_H
#define VSWITCH_WATCH_H

#include <poll.h>

#include <functional>
#include <vector>

/*
 * Until unwatch(), `ready` is called with what poll() says of the descriptor when it has one of `events` (POLLIN,
 * POLLOUT), has failed or was hung up on; now and then without need, too. It must not wait, nor take longer than a few
 * milliseconds: clients are served between two calls. Watching a descriptor again replaces events and function.
 */
void watch(int descriptor, short events, std::function<void(short)> ready);

/* Before the descriptor is closed. A function may unwatch its own. */
void unwatch(int descriptor);

/* For the loop: appends what is watched; and calls, once poll() has looked at what was appended. */
void appendWatched(std::vector<pollfd> *polled);
void callWatched(const pollfd *polled, size_t count);

#endif
