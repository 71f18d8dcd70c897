/*
 * interface.h - TAP interfaces of this machine. They can be moved to another network namespace while they are open.
 */
#ifndef VSWITCH_INTERFACE_H
#define VSWITCH_INTERFACE_H

#include <string>

/*
 * Opens the interface; creates it if it is missing: then it lasts until it is closed. Each read or write of the
 * descriptor is one frame, and does not block. -1: *wrong says why.
 */
int openInterface(const std::string &name, std::string *wrong);

/* Is there an interface of that name, in this process's network namespace? */
bool interfaceIsThere(const std::string &name);

/* Is the interface up, in whatever network namespace? */
bool interfaceIsUp(int descriptor);

/* Shows the host that a cable is connected, or not. */
void setCarrier(int descriptor, bool connected);

#endif
