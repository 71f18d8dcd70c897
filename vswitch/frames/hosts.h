/*
 * hosts.h - the two kinds of plugs, a socket and a TAP interface: reads the frames of the host, and sends frames to it.
 * For plugs.cpp; the others use plugs.h.
 */
#ifndef VSWITCH_HOSTS_H
#define VSWITCH_HOSTS_H

#include "vswitch/frames/plugs.h"

struct Plug {
    uint32_t port;
    std::string name;   /* of an interface */
    std::string path;   /* of a socket; empty: an interface */
    int listener = -1;  /* of a socket */
    int host = -1;      /* the connected socket, or the interface; -1: there is none, or the interface has gone */
    bool isUp = false;  /* the interface is up, or a host is connected to the socket */
    bool hasCarrier = true;
    std::string input;  /* of a socket: an incomplete frame */
    std::string output; /* of a socket: not sent yet */
};

/* Sets the function that handles the frames of hosts. */
void onHostFrame(FrameHook hook);

/* Stores whether the host is there, and does what follows from it. */
void setHostUp(Plug *plug, bool up);

/* Ends the connection. The plug can stay up: while the switch has shut the port, its cable is still there. */
void closeHost(Plug *plug);

/* Has the host of a socket disconnected, with or without frames that are still to be read? */
bool hasHungUp(const Plug &plug);

/* Handles what the host has sent: as much as it may send in one turn. */
void receiveTurn(Plug *plug);

/* Handles all that the host has sent by now; of an interface at most as many frames as its queue holds. */
void receiveWaiting(Plug *plug);

/* Sends a frame, or puts it into a socket's queue. False: the host is too slow, or not there. */
bool sendToHost(Plug *plug, const OutgoingFrame &frame, std::string_view tag);

/* Sends as much of a socket's queue as the host takes now. */
void flushHost(Plug *plug);

#endif
