/*
 * forwarding.h - what becomes of a frame that a host has sent.
 */
#ifndef VSWITCH_FORWARDING_H
#define VSWITCH_FORWARDING_H

#include <stdint.h>

#include <string>
#include <string_view>

/*
 * Forwards or discards a frame of any size and content that came in at a port. When it is discarded and `why` is not null,
 * stores the reason there.
 */
void receiveFrame(uint32_t port, std::string_view frame, std::string *why);

/* Forgets how much of each storm passed. */
void resetForwarding();

#endif
