/*
 * plugs.h - what is plugged into the virtual switch's ports: TAP interfaces of this machine, and sockets of hosts (tests,
 * virtual machines). Everything that a host sends is untrusted.
 *
 * While nothing is plugged in, links, stations and counters are simulated. Once something is, a port is what is
 * plugged into it, and one with nothing in it is down.
 */
#ifndef VSWITCH_PLUGS_H
#define VSWITCH_PLUGS_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "vswitch/frames/frame.h"

/*
 * Plugs "PORT=tap:NAME" (the interface is made if there is none) or "PORT=unix:PATH" (listens there; one host at a time,
 * each frame behind its length as 32 bits, big endian). False with a line that says what is wrong.
 */
bool plugPort(const std::string &plug, std::string *wrong);

/* Lets go of everything: hosts, interfaces, captures. */
void unplugPorts();

/* Is a host plugged into the management port: connected, or its interface up? */
bool managementHasHost();

/* The plugged port after `port`, UINT32_MAX behind the last one. Start with UINT32_MAX. */
uint32_t nextPlugged(uint32_t port);

/* A frame on its way out: the addresses, the tag's 16 bits if it has one, and what follows. */
struct OutgoingFrame {
    std::string_view addresses; /* 12 bytes */
    bool tagged;
    uint16_t tag;
    std::string_view rest; /* from the EtherType on */
};

/* Queues the frame for the port's host. What the host does not take in time is discarded and counted. */
void sendFrame(uint32_t port, const OutgoingFrame &frame);

/* Deals with a frame from a host; when it is discarded and `why` is not null, stores the reason there. */
using FrameHook = void (*)(uint32_t port, std::string_view frame, std::string *why);

/* Sends what is due by itself; called every 100 ms. */
using TickHook = void (*)();

/* The commands settle and capture, and what the plugs call. Once, before anything is plugged in. */
void registerPlugs(FrameHook frameHook, TickHook tickHook);

#endif
