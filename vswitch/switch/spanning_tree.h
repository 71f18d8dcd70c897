/*
 * spanning_tree.h - the root bridge, and the states of the ports. ports.cpp derives the port's status from them.
 */
#ifndef VSWITCH_SPANNING_TREE_H
#define VSWITCH_SPANNING_TREE_H

#include <stdint.h>

#include "vswitch/base/numbers.h"
#include "vswitch/switch/device.h"

inline constexpr uint32_t BRIDGE_PRIORITY = 32768, DEFAULT_PATH_COST = 20000;

struct RootBridge {
    uint32_t priority;
    uint64_t mac;
    uint32_t cost; /* of the path to it; 0 for the switch */
};

struct SpanningTree {
    RootBridge root;
    uint32_t rootPort; /* 0: the switch is the root */
};
SpanningTree spanningTree();

/* Is the root behind the port? The root port is the best of these, the others block. */
bool leadsToRoot(uint32_t port);

/* The state of a port that has a link and is not shut. */
StpPortState treeState(uint32_t port);
uint32_t pathCost(uint32_t port);

/* Registers the function that says whether a port has a link and is not shut: only such a port receives BPDUs. */
void onTreeQuestion(bool (*portIsOpen)(uint32_t port));

#endif
