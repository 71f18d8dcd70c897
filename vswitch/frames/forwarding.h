/*
 * forwarding.h - what becomes of a frame that a host has sent: each one asks the model as it is at that moment.
 */
#ifndef VSWITCH_FORWARDING_H
#define VSWITCH_FORWARDING_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

enum : uint32_t { MANAGEMENT_PORT = 0 }; /* behind it is what manages the switch: its web server */

enum : size_t {
    ETHERNET_HEADER = 14, /* two addresses and a type */
    VLAN_TAG = 4,
    FRAME_MAX = 1514      /* what a port takes, without the check sequence; 4 bytes more with a tag */
};

/*
 * Deals with a frame of any size and content: sends it where it belongs, or nowhere. With `why` it says there why the
 * frame was discarded; it stays as it is for one that was not.
 */
void receiveFrame(uint32_t port, std::string_view frame, std::string *why);

/* Sends what is due by now: the frames of loop protection and of registration protocols. */
void sendDueFrames();

/* Forgets what it knows of the past: how much of each storm passed, when the last frame was sent. */
void resetForwarding();

#endif
