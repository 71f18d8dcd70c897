/*
 * mrp_pdu.h - the PDUs of the registration protocols: MRP's (MVRP, MMRP) and GARP's (GVRP, GMRP), and their timers.
 */
#ifndef VSWITCH_MRP_PDU_H
#define VSWITCH_MRP_PDU_H

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vswitch/switch/state.h"

/* The types of frames; GARP's are LLC frames, and have a length instead. */
enum : uint32_t { TYPE_MVRP = 0x88F5, TYPE_MMRP = 0x88F6 };

/* The bytes of an attribute's value by its type, 1 or 2. 0: there is no such type. */
using AttributeSizes = std::pair<size_t, size_t>;

enum RegistrationEvent { ATTRIBUTE_JOINS, ATTRIBUTE_LEAVES, ALL_LEAVE };

/* Handles an event of an attribute whose values have `size` bytes. ALL_LEAVE has no value. */
using EventHandler = std::function<void(RegistrationEvent event, size_t size, uint64_t value)>;

/* Reads a PDU behind its EtherType. Returns the counter to which it adds one. */
MrpCounter readMrpPdu(std::string_view pdu, const AttributeSizes &sizes, const EventHandler &handle);

/* Reads the LLC frame of a PDU from its length on. False: it is none. */
bool readGarpPdu(std::string_view frame, const AttributeSizes &sizes, const EventHandler &handle);

/* Attributes to send. All values have one size, and ascend. */
struct Declarations {
    uint32_t type;
    size_t size;
    uint64_t gap; /* MRP: the most values that one vector spans without naming them */
    bool all;     /* with LeaveAll */
    std::vector<std::pair<uint64_t, bool>> values; /* and whether the port joins, or leaves */
};

/* The PDU from its EtherType or length on. */
std::string mrpPdu(uint32_t etherType, const std::vector<Declarations> &messages);
std::string garpPdu(const std::vector<Declarations> &messages);

/* Sends a PDU to a group address from the port, with a tag unless `tag` is 0, and counts it. */
void sendRegistrationPdu(RegistrationProtocol protocol, uint32_t port, uint64_t group, uint32_t tag,
                         const std::string &pdu);

/* The port's timers, in milliseconds. */
uint64_t leaveMillis(uint32_t port);
uint64_t leaveAllMillis(RegistrationProtocol protocol, uint32_t port);

#endif
