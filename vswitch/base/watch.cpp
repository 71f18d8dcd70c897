/*
 * watch.cpp - the watched descriptors, each with its function.
 */
#include "vswitch/base/watch.h"

#include <map>

struct Watched {
    short events;
    std::function<void(short)> ready;
};

static std::map<int, Watched> all;

void watch(int descriptor, short events, std::function<void(short)> ready)
{
    all[descriptor] = {events, std::move(ready)};
}

void unwatch(int descriptor)
{
    all.erase(descriptor);
}

void appendWatched(std::vector<pollfd> *polled)
{
    for (const auto &[descriptor, watched] : all)
        polled->push_back({descriptor, watched.events, 0});
}

void callWatched(const pollfd *polled, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        auto found = all.find(polled[i].fd); /* an earlier `ready` may have unwatched it */
        if (!polled[i].revents || found == all.end())
            continue;
        std::function<void(short)> ready = found->second.ready; /* a copy: it may unwatch its descriptor */
        ready(polled[i].revents);
    }
}
