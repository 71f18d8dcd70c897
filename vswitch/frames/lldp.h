/*
 * lldp.h - announces to phones, on ports with a voice VLAN, how they must send: the network policy of LLDP-MED.
 */
#ifndef VSWITCH_LLDP_H
#define VSWITCH_LLDP_H

/* Sends the frames that are due: three, once a second, after a port came up or its policy changed; then every 30 s. */
void sendDuePolicies();

void resetLldp();

#endif
