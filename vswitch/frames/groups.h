/*
 * groups.h - GMRP and MMRP with plugged neighbours: registers the groups that they join, and declares those that others
 * joined.
 */
#ifndef VSWITCH_FRAMES_GROUPS_H
#define VSWITCH_FRAMES_GROUPS_H

#include <stdint.h>

#include <string_view>

/*
 * Handles a frame of the VLAN to the protocols' group address, given from its type or length on. False: its protocol
 * does not run on the port, so the frame is forwarded like one to any group.
 */
bool handleGroupRegistration(uint32_t port, uint32_t vlan, std::string_view frame);

/* Sends the PDUs that are due, and ends the registrations whose leave timer has run out. */
void sendDueGroupRegistrations();

void resetGroupRegistrations();

#endif
