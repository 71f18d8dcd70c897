/*
 * model.h - the virtual switch as a whole: what it is made of, its time, and what its families share. What its ports,
 * VLANs and addresses are is in state.h.
 */
#ifndef VSWITCH_MODEL_H
#define VSWITCH_MODEL_H

#include <stdint.h>

#include <set>
#include <string>

#include "openclt.h"
#include "vswitch/base/operations.h"

struct ModelOptions {
    uint32_t ports = 28;
    uint32_t stations = 8;       /* learned addresses at start */
    uint32_t silentStations = 2; /* so many of them were heard once and never again */
    uint32_t stationVlans = 1;   /* spread over the VLANs 1 to this one, which exist from the start */
};

/* Makes every operation of the model answer. Once, before anything else. */
void createModel(const ModelOptions &chosen);

/* Everything back to how the switch left the factory. */
void resetModel();

const ModelOptions &modelOptions();

/* Serves the call of an operation: brings the model up to now, runs it, and lets happen what follows from it. */
int runOperation(const Operation &operation, Arguments &arguments);

/*
 * Lets happen what time has brought since the last call, and what follows from what was changed. runOperation does it;
 * whoever changes or asks anything from outside an operation (a command, a frame) does it before, and after a change.
 */
void bringUpToNow();

/* Something was set or happened: what follows from it is done by the next bringUpToNow(). */
void stateChanged();

/* Is traffic made up: stations, neighbours, packets to the switch itself? */
bool trafficIsMadeUp();

/* Since the switch was started. `pass` moves it. */
uint64_t uptimeSeconds();
uint64_t uptimeMillis();

/* Lets so many seconds pass at once. */
void passTime(uint64_t seconds);

/* The switch's own address. */
uint64_t bridgeMac();

/* "00:11:22:33:44:55", "00:11:22" */
std::string macText(uint64_t mac);
std::string ouiText(uint32_t oui);

/* Read six octets, or three, in hexadecimal digits with ":" or "-" between them; false for anything else. */
bool parseMac(const std::string &text, uint64_t *mac);
bool parseOui(const std::string &text, uint32_t *oui);

/* A group address: multicast or broadcast. */
inline bool isGroup(uint64_t mac)
{
    return mac >> 40 & 1;
}

/* Answers of operations: a value; and one that is asked of an interface, or of a port with a socket. */
int tell(uint32_t value, uint32_t *result);
int onInterface(uint32_t port, uint32_t value, uint32_t *result);
int onPort(uint32_t port, uint32_t value, uint32_t *result);

/* OPEN_FAILED when there is no next one (0). */
int tellNext(uint32_t next, uint32_t *result);

/* The ids of a list that came from a client. */
std::set<uint16_t> idsOf(const VlanIdList &list);

/* Each family: serves its operations, once; goes back to its initial state; forgets a VLAN that ends. */
void servePorts();
void resetPorts();
void serveBridge();
void serveFdb();
void resetFdb();
void serveStations();
void resetStations();
void serveVlans();
void resetVlans();
void serveSwitchports();
void resetSwitchports();
void forgetVlanOfSwitchports(uint32_t vlan);
void servePrivateVlans();
void resetPrivateVlans();
void forgetVlanOfPrivateVlans(uint32_t vlan);
void serveClassification();
void resetClassification();
void forgetVlanOfClassification(uint32_t vlan);
void serveFilters();
void resetFilters();
void forgetVlanOfFilters(uint32_t vlan);
void serveStormControl();
void resetStormControl();
void serveProtectedPorts();
void resetProtectedPorts();
void serveLoopProtection();
void resetLoopProtection();
void serveRegistration();
void resetRegistration();
void serveVoice();
void resetVoice();
void forgetVlanOfVoice(uint32_t vlan);
void serveAccessLists();
void resetAccessLists();

/* Families in which something happens by itself: brought up to `now`, in seconds since start, in this order. */
void passLoopProtection(uint64_t now);
void passStormControl();
void passPorts(uint64_t now);
void passStations(uint64_t now);
void settleStations(uint64_t now); /* what follows from a change */
void passRegistration(uint64_t now);
void passVlans();
void passAccessLists(uint64_t now);

#endif
