/*
 * mrp.h - GVRP and MVRP with plugged neighbours: registers their VLANs, and declares the ports' VLANs to them.
 */
#ifndef VSWITCH_MRP_H
#define VSWITCH_MRP_H

#include <stdint.h>

#include <string_view>

/*
 * Handles a frame to the protocols' group address, given from its type or length on. False: its protocol does not run
 * on the port, so the frame is forwarded like one to any group.
 */
bool handleRegistration(uint32_t port, std::string_view frame);

/* Sends the PDUs that are due, and ends the registrations whose leave timer has run out. */
void sendDueRegistrations();

void resetMrp();

#endif
