/*
 * model_vlan.h - what other families need of the VLAN table.
 */
#ifndef VSWITCH_MODEL_VLAN_H
#define VSWITCH_MODEL_VLAN_H

#include <stdint.h>

#include <vector>

/* The VLANs there are, ascending. */
std::vector<uint16_t> existingVlans();

#endif
