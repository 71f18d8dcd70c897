/*
 * model_vlan.h - what other families need of the VLAN table, and what the files of the VLAN family need of each other.
 */
#ifndef VSWITCH_MODEL_VLAN_H
#define VSWITCH_MODEL_VLAN_H

#include <stdint.h>

#include <set>
#include <vector>

#include "openclt.h"

/* The VLANs there are, ascending. */
std::vector<uint16_t> existingVlans();

/* Was the VLAN registered by a neighbour, not configured? False as well when there is no such VLAN. */
bool vlanIsDynamic(uint32_t vlan);

/* The ids of a list that came from a client. */
std::set<uint16_t> idsOf(const VlanIdList &list);

/* Returns `value` as what was asked of the port; OPEN_BAD_ARGUMENT when there is no such port. */
int onPort(uint32_t port, uint32_t value, uint32_t *result);

/* How a port has its VLANs: in one, untagged; in all it allows, tagged but for one; or as set for each VLAN. */
enum SwitchportMode : uint32_t { MODE_ACCESS = 1, MODE_TRUNK = 2, MODE_GENERAL = 3 };

SwitchportMode switchportMode(uint32_t port);

/* The VLANs the port allows when it is a trunk, ascending. */
std::vector<uint16_t> trunkAllowedVlans(uint32_t port);

/* The VLAN of the port's untagged frames. */
uint32_t portPvid(uint32_t port);

/* The private VLAN association of a port: a host has one secondary VLAN, a promiscuous port any number of them. */
struct PrivatePort {
    bool host;
    uint32_t primary;
    std::set<uint16_t> secondaries;
};

/* Null when the port has none. */
const PrivatePort *privatePort(uint32_t port);

/* Is it a primary or secondary VLAN? */
bool isPrivateVlan(uint32_t vlan);

/* The VLAN is gone: so is what was kept of it here. */
void forgetPrivateVlan(uint32_t vlan);
void forgetVlanOfGroups(uint32_t vlan);

#endif
