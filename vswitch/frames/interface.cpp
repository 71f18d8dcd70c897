/*
 * interface.cpp - opens TAP interfaces, and asks for their state.
 */
#include "vswitch/frames/interface.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

int openInterface(const std::string &name, std::string *wrong)
{
    ifreq request = {};
    if (name.empty() || name.size() >= sizeof request.ifr_name) {
        *wrong = "an interface has a name of up to 15 characters, not \"" + name + "\"";
        return -1;
    }
    int descriptor = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        *wrong = std::string("cannot create interfaces: /dev/net/tun: ") + strerror(errno);
        return -1;
    }
    memcpy(request.ifr_name, name.c_str(), name.size());
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (ioctl(descriptor, TUNSETIFF, &request) == 0)
        return descriptor;
    *wrong = "cannot create the interface " + name + ": " + strerror(errno) +
             (errno == EPERM ? " (only root may)" : errno == EBUSY ? " (another process uses it)" : "");
    close(descriptor);
    return -1;
}

bool interfaceIsThere(const std::string &name)
{
    return if_nametoindex(name.c_str()) != 0;
}

bool interfaceIsUp(int descriptor)
{
    pollfd writable = {descriptor, POLLOUT, 0}; /* not while the interface is down */
    return poll(&writable, 1, 0) == 1 && (writable.revents & POLLOUT);
}

void setCarrier(int descriptor, bool connected)
{
    int carrier = connected;
    ioctl(descriptor, TUNSETCARRIER, &carrier);
}
