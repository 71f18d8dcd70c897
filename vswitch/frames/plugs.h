/*
 * ports.h - what is plugged into the virtual switch's ports: TAP interfaces of this machine, and sockets of hosts (tests,
 * virtual machines). Everything that a host sends is untrusted.
 *
 * While nothing is plugged in, the switch makes up its links, stations and counters. Once something is, a port is what is
 * plugged into it, and one with nothing in it is down.
 */
#ifndef VSWITCH_PORTS_H
#define VSWITCH_PORTS_H

#include <stdint.h>

#include <string>
#include <string_view>

/*
 * Plugs "PORT=tap:NAME" (the interface is made if there is none) or "PORT=unix:PATH" (listens there; one host at a time,
 * each frame behind its length as 32 bits, big endian). After createModel. False with a line that says what is wrong.
 */
bool plugPort(const std::string &plug, std::string *wrong);

/* Lets go of everything: hosts, interfaces, captures. */
void unplugPorts();

bool portsArePlugged();

/* Is a host there: connected, or its interface up? Whether the switch wants it is another matter. */
bool portHasHost(uint32_t port);

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

/* The commands settle and capture. Once. */
void servePlugs();

#endif
