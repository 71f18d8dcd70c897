/*
 * state.h - what is the present state of a port, a VLAN, an address?
 *
 * Families and frames ask these functions, and keep no copy of the answer. So a port that goes down, a VLAN that ends
 * or a station that moves shows everywhere at once. A family keeps what was set, exactly as it was set; these functions
 * compute what is in force.
 *
 * "port" is an interface number: the ports are 1 to their number, the link aggregation groups (LAGs) follow. VLANs are
 * 1 to 4094. About something that does not exist, the answer is false, 0 or null.
 */
#ifndef VSWITCH_STATE_H
#define VSWITCH_STATE_H

#include <stdint.h>

#include <bitset>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vswitch/base/numbers.h"
#include "vswitch/switch/device.h"

using PortSet = std::set<uint32_t>;
using VlanSet = std::set<uint16_t>;

/* A bit for each VLAN: for sets that grow large. */
using VlanBits = std::bitset<4096>;

/* The first VLAN in the set after `vlan`; 4096: there is none. */
inline uint32_t vlanAfter(const VlanBits &vlans, uint32_t vlan)
{
    return (uint32_t)vlans._Find_next(vlan); /* of libstdc++: a search, not a loop over all bits */
}

/* Ports (ports.cpp) */

/*
 * What the port does. PORT_UP: it forwards. PORT_LEARNING: it learns stations, but forwards nothing. PORT_BLOCKED: the
 * spanning tree blocks it, listens on it or says that it is broken. The others are down.
 */
enum PortStatus { PORT_UP, PORT_LEARNING, PORT_BLOCKED, PORT_NO_LINK, PORT_LOOP_SHUT, PORT_STORM_SHUT };

PortStatus portStatus(uint32_t port);
inline bool portIsUp(uint32_t port)
{
    return portStatus(port) == PORT_UP;
}
inline bool portLearns(uint32_t port)
{
    return portStatus(port) <= PORT_LEARNING;
}

/* Has the port a link, and is it not shut? It may be that the spanning tree does not let it forward. */
inline bool portIsOpen(uint32_t port)
{
    return portStatus(port) <= PORT_BLOCKED;
}

/* "up", "down: no link", "shut down by loop protection", ... */
const char *portStatusText(uint32_t port);

/* The state of the port in the spanning tree. */
StpPortState portTreeState(uint32_t port);

/* Is something connected to the port? A port that is shut down still has its link. */
bool portHasLink(uint32_t port);

/* Loop protection (PORT_LOOP_SHUT) or storm control (PORT_STORM_SHUT) shuts the port down, or reopens it. */
void setPortShut(uint32_t port, PortStatus why, bool shut);

/* Stores whether a host is plugged in and up. While traffic is not simulated, this is the link. */
void setPortHost(uint32_t port, bool present);

/* Is the port connected to a switch that speaks the registration protocols? */
bool portHasNeighbour(uint32_t port);

/* Connects a simulated one. */
void setPortNeighbour(uint32_t port);

/* Frames of the port since start. Simulated traffic counts while the port is up; real frames and storms add to it. */
struct PortCounters {
    uint64_t inFrames = 0, outFrames = 0;
    uint64_t inDiscards = 0;  /* received and not forwarded, for any reason */
    uint64_t tooLong = 0;     /* of these: longer than the port accepts */
    uint64_t outDiscards = 0; /* not sent: the host was too slow */
};
const PortCounters &portCounters(uint32_t port); /* all 0 where there is no port */
PortCounters &countersOf(uint32_t port);         /* to add to; the port must exist */

/* How often the port started to forward; how often any port started or stopped, and when one last did. */
uint32_t forwardTransitions(uint32_t port);
uint32_t topologyChanges();
uint64_t lastTopologyChange(); /* uptime in seconds */

/* VLANs (vlan.cpp) */

static const uint32_t HIGHEST_VLAN = 4094;

/* Is the VLAN configured, or registered by a neighbour? */
bool vlanExists(uint32_t vlan);

/* Is it configured? Only of such a VLAN can something be set: a VLAN that a neighbour registered ends by itself. */
bool vlanIsConfigured(uint32_t vlan);

/* Does it exist only because a neighbour registered it? */
bool vlanIsDynamic(uint32_t vlan);

/* Ascending. */
std::vector<uint16_t> existingVlans();
const VlanBits &configuredVlans();

/* Have neighbours registered the VLAN on the port? Which VLANs? */
bool vlanRegistered(uint32_t port, uint32_t vlan);
const VlanBits &registeredVlans(uint32_t port);

/* Replaces the VLANs that neighbours have registered on the port (registration.cpp computes them). */
void setRegisteredVlans(uint32_t port, const VlanBits &vlans);

/* Registers a function that runs when a VLAN is deleted or goes by itself: the family removes what it keeps of it. */
void onVlanEnd(void (*ended)(uint32_t vlan));

/* Ports in VLANs, as they were set (switchport.cpp) */

SwitchportMode switchportMode(uint32_t port);

/* The priority of frames that arrive without a tag. */
uint32_t untaggedPriority(uint32_t port);

/* Ports in VLANs, as in force (membership.cpp) */

/* The VLAN of untagged frames that no classification by source or protocol places elsewhere. */
uint32_t portPvid(uint32_t port);

/* Is the port in the VLAN? The port may be down, unless it is there only by a neighbour's registration. */
bool portInVlan(uint32_t port, uint32_t vlan);

/* The VLANs that a neighbour on the port may register. */
VlanBits registrableVlans(uint32_t port);

/* Is the port in the VLAN only because a neighbour registered it there? */
bool isAdded(uint32_t port, uint32_t vlan);

/* Does the port send frames of the VLAN with a tag? Asked only for ports in the VLAN. */
bool portTags(uint32_t port, uint32_t vlan);

/* Which frames the port accepts. Priority-tagged frames (VLAN 0) count as untagged. */
AcceptedFrames acceptedFrames(uint32_t port);

/* Does the port discard received frames of VLANs that it is not in? */
bool filtersIngress(uint32_t port);

/* Private VLANs (private_vlan.cpp) */

PrivateVlanType privateVlanType(uint32_t vlan);

/* The primary VLAN of a secondary VLAN, 0 for none; and the secondary VLANs of a primary VLAN. */
uint32_t primaryVlan(uint32_t vlan);
std::vector<uint16_t> secondaryVlans(uint32_t primary);

/* A host has one secondary VLAN, a promiscuous port one or more. */
enum PrivateRole { HOST, PROMISCUOUS };
struct PrivatePort {
    PrivateRole role;
    uint32_t primary;
    VlanSet secondaries;
};

/* The association of a port, null when it has none. */
const PrivatePort *privatePort(uint32_t port);

/* Does the mode or the association decide the port's VLANs? Otherwise what was set for each VLAN decides. */
bool modeDecides(uint32_t port);

/* Is the port excluded from the VLAN? Exclusions are not in force where the mode decides. */
bool isForbidden(uint32_t port, uint32_t vlan);

/* Protected ports (protected_ports.cpp): the group of a port, 0 for none. Ports of one group exchange no frames. */
uint32_t protectedGroup(uint32_t port);

/* Classification of untagged frames (classification.cpp): the VLAN, 0 when no rule matches. */
uint32_t vlanOfSource(uint64_t mac); /* by address, then by OUI */
uint32_t vlanOfProtocol(uint32_t port, uint32_t etherType);

/* Admission (admission.cpp): one answer for real frames, simulated stations and storms */

/* A frame that arrives on a port. Source 0: not of a certain station. */
struct Arrival {
    uint32_t port;
    uint32_t tag = 0; /* the VLAN of its tag; 0: without a tag, or with a priority alone */
    uint64_t source = 0;
    uint32_t etherType = 0;
};

enum Verdict { ADMITTED, PORT_IS_DOWN, TYPE_NOT_ACCEPTED, VLAN_MISSING, INGRESS_FILTERED, OTHER_PRIVATE_VLAN };

struct Admission {
    Verdict verdict;
    uint32_t vlan; /* of the frame, also if it is not admitted there; 0 if the port or its type was refused */
};

/* Does the port admit the frame, and into which VLAN? */
Admission admit(const Arrival &frame);

/* Why it was not admitted, as the trace says it: "untagged frames are not accepted". */
std::string refusalText(const Arrival &frame, const Admission &admission);

/*
 * The VLAN in which a frame of `vlan` from a port leaves another port: in a private VLAN it can be another VLAN. 0: it
 * does not leave there.
 */
uint32_t egressVlan(uint32_t from, uint32_t vlan, uint32_t to);

/* Are both ports in one protected group? */
bool areProtected(uint32_t port, uint32_t other);

/* The ports that static filters, registered groups and filtering modes leave to a frame, whatever VLANs they are in. */
struct Reach {
    enum { SOME_PORTS, SOURCE_NOT_NAMED, NOT_REGISTERED } verdict = SOME_PORTS;
    bool anywhere = true;           /* all ports, not only `ports` */
    PortSet ports;
    const PortSet *never = nullptr; /* but not these; null: none */
    bool contains(uint32_t port) const
    {
        return (anywhere || ports.contains(port)) && !(never && never->contains(port));
    }
};
Reach reachOf(uint32_t from, uint32_t vlan, uint64_t destination);

/* Why it reaches no port: "01:00:5E:00:00:01 is not registered in VLAN 1". */
std::string refusalText(const Reach &reach, uint32_t vlan, uint64_t destination);

/* Addresses (addresses.cpp, fdb.cpp) */

struct FdbEntry {
    uint32_t port; /* 0: the switch itself; static filter: its first destination */
    FdbType type;
    uint64_t seen;         /* uptime in seconds when the station was last heard */
    uint64_t learning = 0; /* a running number of all learnings: the higher one is the later one */
};

/* Can it be the address of a station: not a group, not zero, not the switch? */
bool isStation(uint64_t mac);

/* The entry of an address in a VLAN, null when there is none. Valid until the address table changes. */
const FdbEntry *fdbFind(uint32_t vlan, uint64_t mac);

/*
 * A frame of the station arrived on the port: learns the address, moves the entry or renews it. False, and nothing is
 * learned: no station's address, a static entry, a port that is down or not in the VLAN, or a full table (counted as
 * a bad add).
 */
bool fdbLearn(uint32_t vlan, uint64_t mac, uint32_t port);

/* Static filters (filters.cpp) */

struct Filter {
    PortSet sources;      /* that may receive frames to the address; empty: all */
    PortSet destinations; /* that send them; empty: as without a filter */
    PortSet filtered;     /* that never send them */
    uint32_t stream = 0;
};

/* Null when there is none, or the admin mode is off. */
const Filter *filterFor(uint32_t vlan, uint64_t mac);

/* What the VLAN does with frames to groups. */
FilteringMode filteringMode(uint32_t vlan);

/* Groups that neighbours register by GMRP and MMRP (groups.cpp) */

using GroupKey = std::pair<uint32_t, uint64_t>; /* VLAN, address */

/* In place of an address: the port wants the frames to all groups, or to those that are not registered. */
enum : uint64_t { ALL_GROUPS, UNREGISTERED_GROUPS };

/* Can it be registered: a group that bridges forward, or one of the above? */
bool groupIsRegistrable(uint64_t group);

/* The neighbour on the port joins the group. False: it cannot be registered, or there is no room for another group. */
bool declareGroup(uint32_t port, const GroupKey &group);

/* The neighbour leaves the group (false: it was not in it), or all groups. */
bool withdrawGroup(uint32_t port, const GroupKey &group);
void withdrawGroups(uint32_t port);

/* Has the neighbour on the port joined the group? Which groups has it joined, ascending? */
bool declaresGroup(uint32_t port, const GroupKey &group);
std::vector<GroupKey> declaredGroups(uint32_t port);

/* The ports on which the group is registered now: what neighbours declare, where the protocol runs in the VLAN. */
PortSet groupPorts(const GroupKey &group);

/* The groups that are registered, ascending, each with the lowest two of its ports; `second` 0: it has one. */
struct RegisteredGroup {
    GroupKey key;
    uint32_t first, second;
};
std::vector<RegisteredGroup> registeredGroups();

/* Storm control (storm_control.cpp) */

/* How many packets of a kind the port accepts, UINT64_MAX for no limit, and what it does with more. */
struct StormLimit {
    uint64_t packetsPerSecond;
    StormAction action;
};
StormLimit stormLimit(uint32_t port, StormKind kind);

/* Takes the action. A port that it shuts down reopens when its link goes down or its storm control is turned off. */
void stormExceeded(uint32_t port, StormKind kind);

/* Loop protection (loop_protection.cpp) */

/* Does the port send detection frames now, and which? VLAN 0: untagged. */
struct LoopProbe {
    bool sends;
    uint32_t tpid, vlan, intervalSeconds;
};
LoopProbe loopProbe(uint32_t number);
void loopFrameSent(uint32_t number);
void loopFrameReceived(uint32_t number); /* may shut the port */

/* The voice VLAN in force on a port, 0 for none (voice.cpp). The port sends its frames with a tag. */
uint32_t voiceVlan(uint32_t port);

/* How a phone on the port is to send, if the port's voice VLAN mode says so. VLAN 0 with a tag: a priority tag. */
struct VoicePolicy {
    bool sends = false, tagged = false;
    uint32_t vlan = 0, priority = 0, dscp = 0;
    bool operator==(const VoicePolicy &) const = default;
};
VoicePolicy voicePolicy(uint32_t port);

/* Does the port replace the priority of frames outside its voice VLAN? */
bool voiceOverridesPriority(uint32_t port);

/* Does the port recognise the address as VoIP by its OUI? If so: the priority, and the VLAN of untagged frames or 0. */
struct VoipSource {
    bool recognised;
    uint32_t priority, vlan;
};
VoipSource voipSource(uint32_t port, uint64_t mac);

/* Neighbours (registration.cpp) */

/* The neighbour on the port declares the VLAN, or withdraws it. */
void neighbourDeclares(uint32_t port, uint32_t vlan, bool joins);
void neighbourHasGone(uint32_t port); /* withdraws all */
const VlanBits &declaredVlans(uint32_t port);

enum RegistrationProtocol { GMRP, GVRP, MVRP, MMRP, REGISTRATION_PROTOCOLS };

/* Is it enabled for the switch and for the port, and is the port up with a neighbour? */
bool registrationRuns(RegistrationProtocol protocol, uint32_t port);
void countRegistration(RegistrationProtocol protocol, uint32_t port, MrpCounter counter, uint64_t number = 1);

/* In hundredths of a second. */
struct GarpTimers {
    uint32_t leave, leaveAll;
};
GarpTimers garpTimers(uint32_t port);
bool registrationIsPeriodic(RegistrationProtocol protocol);

/* Management access lists (access_lists.cpp): packets to the switch itself */

struct ManagementPacket {
    uint32_t port, vlan;    /* that received it; port 0 is the management port */
    uint32_t source;        /* IPv4 address, four bytes in network order */
    bool tcpOrUdp;
    uint32_t destinationPort;
    uint32_t bytes;
};

/* Does the active list permit these `count` packets? Counts them for the rule that decides. */
bool managementPermits(const ManagementPacket &packet, uint64_t count = 1);

#endif
