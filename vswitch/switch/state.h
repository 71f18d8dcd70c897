/*
 * state.h - what a port, a VLAN and an address are at this moment.
 *
 * The one place where families ask for it, and frames too: a port that goes down, a VLAN that ends, a station that
 * moves show everywhere, because nobody keeps a copy. Families keep what was set, as it was set; what is in force is
 * computed here when somebody asks.
 *
 * "port" is an interface number: 1 to the number of ports, and behind them the link aggregation groups (LAGs). VLANs are
 * 1 to 4094. A function that is asked of what does not exist answers false, 0 or null.
 */
#ifndef VSWITCH_STATE_H
#define VSWITCH_STATE_H

#include <stdint.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vswitch/base/numbers.h"
#include "vswitch/switch/device.h"

using PortSet = std::set<uint32_t>;
using VlanSet = std::set<uint16_t>;

/* Ports (ports.cpp) */

/* Why a port carries no frames. */
enum PortStatus { PORT_UP, PORT_NO_LINK, PORT_LOOP_SHUT, PORT_STORM_SHUT };

PortStatus portStatus(uint32_t port);
inline bool portIsUp(uint32_t port)
{
    return portStatus(port) == PORT_UP;
}

/* "up", "down: no link", "shut down by loop protection", ... */
const char *portStatusText(uint32_t port);

/* Is something on the other end? (A shut port has a link that it does not use.) */
bool portHasLink(uint32_t port);

/* Loop protection or storm control shuts the port, or opens it again. */
void setPortShut(uint32_t port, PortStatus why, bool shut);

/* A host was plugged into the port and is up, or is so no more. Decides the link while traffic is not simulated. */
void setPortHost(uint32_t port, bool present);

/* Is the station on the other end a switch that speaks the registration protocols? */
bool portHasNeighbour(uint32_t port);

/* What passed the port since start. Simulated traffic flows while the port is up; what carries more adds to it. */
struct PortCounters {
    uint64_t inFrames = 0, outFrames = 0;
    uint64_t inDiscards = 0;  /* received and not forwarded, whatever the reason */
    uint64_t tooLong = 0;     /* of these: longer than the port takes */
    uint64_t outDiscards = 0; /* not sent, as the host does not keep up */
};
const PortCounters &portCounters(uint32_t port); /* all 0 where there is no port */
PortCounters &countersOf(uint32_t port);         /* to add to; the port must exist */

/* How often the port began to forward, and what the bridge counts of all ports. */
uint32_t forwardTransitions(uint32_t port);
uint32_t topologyChanges();
uint64_t lastTopologyChange(); /* uptime in seconds */

/* VLANs (vlan.cpp) */

static const uint32_t HIGHEST_VLAN = 4094;

/* Configured, or registered by a neighbour. */
bool vlanExists(uint32_t vlan);
bool vlanIsConfigured(uint32_t vlan);

/* There only because a neighbour registered it. */
bool vlanIsDynamic(uint32_t vlan);

/* Those there are, ascending. */
std::vector<uint16_t> existingVlans();

/* Have neighbours registered the VLAN on the port? */
bool vlanRegistered(uint32_t port, uint32_t vlan);

/* The VLANs that are registered on the port from now on (registration.cpp works them out). */
void setRegisteredVlans(uint32_t port, const VlanSet &vlans);

/* Calls `ended` from now on when a VLAN is deleted: each family removes what it keeps by VLAN. */
void onVlanEnd(void (*ended)(uint32_t vlan));

/* Ports in VLANs, as they were set (switchport.cpp) */

/* How the port has its VLANs. */
SwitchportMode switchportMode(uint32_t port);

/* The priority of frames that come without a tag. */
uint32_t untaggedPriority(uint32_t port);

/* Ports in VLANs, as in force (membership.cpp) */

/* The VLAN of the port's untagged frames, before they are classified by their source or protocol. */
uint32_t portPvid(uint32_t port);

/* Is the port in the VLAN? Whether it is up does not matter, except where a neighbour registered it. */
bool portInVlan(uint32_t port, uint32_t vlan);

/* May a neighbour on the port register the VLAN? */
bool portMayRegister(uint32_t port, uint32_t vlan);

/* Is the port in the VLAN only because a neighbour registered it there? */
bool isAdded(uint32_t port, uint32_t vlan);

/* Does the VLAN leave the port with a tag? (Of ports in the VLAN.) */
bool portTags(uint32_t port, uint32_t vlan);

/* Which frames the port takes. Priority-tagged ones (VLAN 0) count as untagged. */
AcceptedFrames acceptedFrames(uint32_t port);

/* Are frames of VLANs that the port is not in dropped as they come? */
bool filtersIngress(uint32_t port);

/* Private VLANs (private_vlan.cpp) */

PrivateVlanType privateVlanType(uint32_t vlan);

/* The primary VLAN that a secondary one is associated with, 0 for none; and all that are associated with a primary one. */
uint32_t primaryVlan(uint32_t vlan);
std::vector<uint16_t> secondaryVlans(uint32_t primary);

/* A host has one secondary VLAN, a promiscuous port any number of them. */
enum PrivateRole { HOST, PROMISCUOUS };
struct PrivatePort {
    PrivateRole role;
    uint32_t primary;
    VlanSet secondaries;
};

/* The association of a port, null when it has none. */
const PrivatePort *privatePort(uint32_t port);

/* Protected ports (protected_ports.cpp): the group of a port, 0 for none. Ports of one group are kept apart. */
uint32_t protectedGroup(uint32_t port);

/* Classification of untagged frames (classification.cpp): the VLAN, 0 where nothing was set. */
uint32_t vlanOfSource(uint64_t mac); /* by address, then by OUI */
uint32_t vlanOfProtocol(uint32_t port, uint32_t etherType);

/* Addresses (fdb.cpp) */

struct FdbEntry {
    uint32_t port; /* 0 is the switch itself; of a static filter the first of its destinations */
    FdbType type;
    uint64_t seen; /* uptime in seconds when the station was last heard; learned entries age from then on */
};

/* An address that may be a station's: neither a group's nor zero nor the switch's own. */
bool isStation(uint64_t mac);

/* Where an address is in a VLAN, null when it is not known. Valid until the next call that changes anything. */
const FdbEntry *fdbFind(uint32_t vlan, uint64_t mac);

/*
 * The station was heard on the port: it is learned, moves or is fresh again. False when it is not learned: no station,
 * a static entry, a port that is down or not in the VLAN, or a full table (which counts as a bad add).
 */
bool fdbLearn(uint32_t vlan, uint64_t mac, uint32_t port);

/* Static filters (filters.cpp), as the admin mode lets them be in force */

struct Filter {
    PortSet sources;      /* where frames to the address may come in; none: everywhere */
    PortSet destinations; /* where they leave; none: as without a filter */
    PortSet filtered;     /* where they never leave */
    uint32_t stream = 0;
};

/* Null when there is none in force. */
const Filter *filterFor(uint32_t vlan, uint64_t mac);

/* What becomes of frames to groups that no filter names. */
FilteringMode filteringMode(uint32_t vlan);

/* Storm control (storm_control.cpp) */

/* What the port lets in of a kind: packets a second, UINT64_MAX without a limit; and what it does when there are more. */
struct StormLimit {
    uint64_t packetsPerSecond;
    StormAction action;
};
StormLimit stormLimit(uint32_t port, StormKind kind);

/* The limit was exceeded: takes the action. A port that was shut comes back when its link does, or its control ends. */
void stormExceeded(uint32_t port, StormKind kind);

/* Loop protection (loop_protection.cpp) */

/* Does the port send detection frames now? TPID and VLAN are those of the frames; VLAN 0 is no tag. */
struct LoopProbe {
    bool sends;
    uint32_t tpid, vlan, intervalSeconds;
};
LoopProbe loopProbe(uint32_t port);
void loopFrameSent(uint32_t port);
void loopFrameReceived(uint32_t port); /* may shut the port */

/* The voice VLAN of a port in force, 0 for none (voice.cpp): tagged on the port. */
uint32_t voiceVlan(uint32_t port);

/* Does a port with a voice VLAN give its own priority to all that is not in it? */
bool voiceOverridesPriority(uint32_t port);

/* An address with one of the OUIs, on a port that recognises VoIP by them: priority, and VLAN of untagged frames or 0. */
struct VoipSource {
    bool recognised;
    uint32_t priority, vlan;
};
VoipSource voipSource(uint32_t port, uint64_t mac);

/* Neighbours (registration.cpp) */

/* The neighbour on the port joins the VLAN, or leaves it. */
void neighbourDeclares(uint32_t port, uint32_t vlan, bool joins);
void neighbourHasGone(uint32_t port);
const VlanSet &declaredVlans(uint32_t port);

enum RegistrationProtocol { GMRP, GVRP, MVRP, MMRP, REGISTRATION_PROTOCOLS };

/* Is it on for the switch and the port, and the port up with a neighbour? */
bool registrationRuns(RegistrationProtocol protocol, uint32_t port);
void countRegistration(RegistrationProtocol protocol, uint32_t port, MrpCounter counter, uint64_t number = 1);

/* In hundredths of a second. */
struct GarpTimers {
    uint32_t leave, leaveAll;
};
GarpTimers garpTimers(uint32_t port);
bool mvrpIsPeriodic();

/* Management access lists (access_lists.cpp): what comes to the switch itself. */

struct ManagementPacket {
    uint32_t port, vlan;    /* where it came in; port 0 is the management port */
    uint32_t source;        /* IPv4 address, four bytes in network order */
    bool tcpOrUdp;
    uint32_t destinationPort;
    uint32_t bytes;
};

/* Does the active list let `count` such packets in? Counts them with the rule that decides. */
bool managementPermits(const ManagementPacket &packet, uint64_t count = 1);

#endif
