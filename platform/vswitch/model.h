/*
 * model.h - the virtual switch as its families see it: what it is made of, and what they share.
 */
#ifndef VSWITCH_MODEL_H
#define VSWITCH_MODEL_H

#include <stdint.h>

#include <string>

struct ModelOptions {
    uint32_t ports = 28;
    uint32_t stations = 8;     /* learned addresses at start */
    uint32_t stationVlans = 1; /* spread over the VLANs 1 to this one, which exist from the start */
};

/* Makes every operation of the model answer. Once, before anything else. */
void createModel(const ModelOptions &chosen);

/* Everything back to how the switch left the factory. */
void resetModel();

const ModelOptions &modelOptions();

/* Ports are numbered from 1. */
bool portExists(uint32_t port);

bool vlanExists(uint32_t vlan);

/* Ports 1 to 4 have a neighbour; the others are left open. */
bool portHasLink(uint32_t port);

/* The port after `port` (0: the first), 0 behind the last one. */
uint32_t nextPort(uint32_t port);

/* The switch's own address. */
uint64_t bridgeMac();

/* "00:11:22:33:44:55" */
std::string macText(uint64_t mac);

/* Reads six octets with ":" or "-" between them; false for anything else. */
bool parseMac(const std::string &text, uint64_t *mac);

/* Seconds since the switch was started. */
uint64_t uptimeSeconds();

/* Lets so many seconds pass at once. */
void passTime(uint64_t seconds);

/* Each family: serves its operations, once; and goes back to its initial state. */
void serveBridge();
void serveFdb();
void resetFdb();
void serveVlans();
void resetVlans();
void servePrivateVlans();
void resetPrivateVlans();
void serveVlanGroups();
void resetVlanGroups();
void serveFilters();
void resetFilters();
void servePortFiltering();
void resetPortFiltering();
void serveRegistration();
void resetRegistration();
void serveVoice();
void resetVoice();
void serveAccessLists();
void resetAccessLists();

#endif
