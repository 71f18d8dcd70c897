/*
 * switchport.h - what was set of each port's part in the VLANs, for membership.cpp, which says what is in force.
 */
#ifndef VSWITCH_SWITCHPORT_H
#define VSWITCH_SWITCHPORT_H

#include <stdint.h>

#include <map>

#include "vswitch/switch/state.h"

struct Switchport {
    SwitchportMode mode = MODE_GENERAL;
    uint32_t untaggedVlan[4] = {0, 1, 1, 1}; /* by mode: the access VLAN, the native VLAN, the PVID */
    bool allowsAll = true;                   /* as a trunk; otherwise: */
    VlanSet allowed;
    std::map<uint32_t, uint32_t> participation, tagging; /* by VLAN, where they were set */
};

/* As at start where nothing was set. */
const Switchport &switchport(uint32_t port);

/* The participation that was set for the port in the VLAN, or that at start. */
uint32_t participationSet(uint32_t port, uint32_t vlan);

/* As a trunk, does the port have the VLAN? As a general port, is it kept out of it? */
bool isAllowed(uint32_t port, uint32_t vlan);
bool isForbidden(uint32_t port, uint32_t vlan);

/* Which frames the port takes, and whether it filters ingress, in general mode. */
AcceptedFrames acceptedFramesSet(uint32_t port);
bool ingressFilteringSet(uint32_t port);

#endif
