/*
 * switchport.h - what was set for a port and its VLANs. membership.cpp computes what is in force.
 */
#ifndef VSWITCH_SWITCHPORT_H
#define VSWITCH_SWITCHPORT_H

#include <stdint.h>

#include <map>

#include "vswitch/switch/state.h"

struct Switchport {
    SwitchportMode mode = MODE_GENERAL;
    uint32_t untaggedVlan[4] = {0, 1, 1, 1}; /* by mode: the access VLAN, the native VLAN, the PVID */
    bool allowsAll = true;                   /* as a trunk */
    VlanSet allowed;                         /* as a trunk, unless allowsAll */
    std::map<uint32_t, uint32_t> participation, tagging; /* by VLAN; those that were set */
};

/* What was set, or the initial values. */
const Switchport &switchport(uint32_t port);

/* The participation that was set for the port in the VLAN, or the initial one. */
uint32_t participationSet(uint32_t port, uint32_t vlan);

/* Does a trunk allow the VLAN? */
bool isAllowed(uint32_t port, uint32_t vlan);

/* In force in general mode. */
AcceptedFrames acceptedFramesSet(uint32_t port);
bool ingressFilteringSet(uint32_t port);

#endif
