/*
 * mrp.h - GVRP and MVRP with the neighbours that are plugged in: what they declare is registered, and they are told
 * what the port has.
 */
#ifndef VSWITCH_MRP_H
#define VSWITCH_MRP_H

#include <stdint.h>

#include <string_view>

/*
 * Takes a frame to the protocols' address, given from its type or length on. False when its protocol does not run on the
 * port: it is a frame to a group like others.
 */
bool takeRegistration(uint32_t port, std::string_view frame);

/* Sends what is due by now, and lets go what was not declared again. */
void sendDueRegistrations();

void resetMrp();

#endif
