/*
 * registrars.h - where the registration protocols run with plugged neighbours: a registrar for each protocol and port.
 */
#ifndef VSWITCH_REGISTRARS_H
#define VSWITCH_REGISTRARS_H

#include <stdint.h>

#include <array>
#include <map>
#include <utility>

#include "vswitch/base/clock.h"
#include "vswitch/frames/mrp_pdu.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/switch/state.h"

/* What registrars of VLANs and of groups have. Times are milliseconds of uptime. */
struct RegistrarTimes {
    uint64_t declaredAt = 0; /* the changeNumber() when the port last computed what it declares */
    uint64_t nextLeaveAll = 0, nextJoin = 0;
    uint32_t starts = 0; /* forwardTransitions() of the port: another number means that it was down meanwhile */
};

template <class Registrar> using Registrars = std::map<std::pair<RegistrationProtocol, uint32_t>, Registrar>;

/*
 * Removes the registrars whose protocol has ended, and adds those whose protocol has started. Returns the ports that
 * lost all they had: nothing of their neighbour may stay registered.
 */
template <class Registrar>
PortSet updateRegistrars(std::array<RegistrationProtocol, 2> protocols, Registrars<Registrar> *registrars)
{
    PortSet ended;
    for (auto at = registrars->begin(); at != registrars->end();) {
        auto [protocol, port] = at->first;
        bool stays = registrationRuns(protocol, port) && at->second.starts == forwardTransitions(port);
        if (!stays)
            ended.insert(port);
        at = stays ? std::next(at) : registrars->erase(at);
    }
    std::erase_if(ended, [=](uint32_t port) {
        return registrars->contains({protocols[0], port}) || registrars->contains({protocols[1], port});
    });
    for (uint32_t port = nextPlugged(MANAGEMENT_PORT); port != UINT32_MAX; port = nextPlugged(port))
        for (RegistrationProtocol protocol : protocols)
            if (registrationRuns(protocol, port) && !registrars->contains({protocol, port})) {
                Registrar &registrar = (*registrars)[{protocol, port}];
                registrar.nextLeaveAll = uptimeMillis() + leaveAllMillis(protocol, port);
                registrar.starts = forwardTransitions(port);
            }
    return ended;
}

#endif
