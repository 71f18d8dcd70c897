/*
 * forwarding.h - forwards or discards the frames that hosts send.
 */
#ifndef VSWITCH_FORWARDING_H
#define VSWITCH_FORWARDING_H

#include <stdint.h>

#include <string>
#include <string_view>

/*
 * Handles an untrusted frame from a port. If it is discarded or ends at the switch, stores the reason in *why unless
 * null.
 */
void receiveFrame(uint32_t port, std::string_view frame, std::string *why);

/* Empties the state of storm control. */
void resetForwarding();

#endif
