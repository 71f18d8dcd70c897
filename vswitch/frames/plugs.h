/*
 * plugs.h - hosts in the virtual switch's ports: TAP interfaces of this machine, and sockets (for tests and virtual
 * machines). Everything that a host sends is untrusted. A plug can be in a LAG, too: it is one port with one link.
 *
 * While nothing is plugged in, links, stations and counters are simulated. With the first plug, all traffic is real,
 * and a port with nothing in it is down.
 */
#ifndef VSWITCH_PLUGS_H
#define VSWITCH_PLUGS_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "vswitch/frames/frame.h"

/* Reads where a plug can be: 0 (management), a port or a LAG. False: *wrong says what `text` is not. */
bool readPlugged(const std::string &text, uint32_t *port, std::string *wrong);

/*
 * Plugs "PORT=tap:NAME" (creates the interface if it is missing) or "PORT=unix:PATH" (listens there for one host;
 * each frame follows its length: 32 bits, big endian). False: *wrong says why.
 */
bool plugPort(const std::string &plug, std::string *wrong);

/* Disconnects the port's host, and removes its socket, or the interface if plugPort() created it. False: no plug. */
bool unplugPort(uint32_t port);

/* Unplugs all ports, and stops the captures. Traffic is simulated again. */
void unplugPorts();

/* Is a host plugged into the management port: connected, or its interface up? */
bool managementHasHost();

/* The plugged port after `port`; UINT32_MAX: there is none. Start with UINT32_MAX. */
uint32_t nextPlugged(uint32_t port);

/* A frame to send: addresses, the 16 bits of the tag if it is tagged, and the rest. */
struct OutgoingFrame {
    std::string_view addresses; /* 12 bytes */
    bool tagged;
    uint16_t tag;
    std::string_view rest; /* from the EtherType on */
};

/* Sends a frame to the port's host. False: the host is too slow; the frame is discarded and counted. */
bool sendFrame(uint32_t port, const OutgoingFrame &frame);

/* Handles a frame from a host. If it is not forwarded, stores the reason in *why unless null. */
using FrameHook = void (*)(uint32_t port, std::string_view frame, std::string *why);

/* Sends the frames that are due; called every 100 ms. */
using TickHook = void (*)();

/* Sets the hooks. Call it before plugPort(). */
void onFrames(FrameHook frameHook, TickHook tickHook);

/*
 * Handles what hosts have done by now: those that have connected or disconnected, the frames that they have sent (up to
 * 1024 of an interface), and links. Sends what is due.
 */
void settleHosts();

#endif
