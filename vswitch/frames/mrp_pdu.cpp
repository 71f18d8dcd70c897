/*
 * mrp_pdu.cpp - reads and writes the PDUs of MRP and GARP (IEEE 802.1Q and 802.1D).
 */
#include "vswitch/frames/mrp_pdu.h"

#include <algorithm>

#include "vswitch/frames/frame.h"
#include "vswitch/frames/plugs.h"

enum : uint32_t { HEADER_LEAVE_ALL = 0x2000, HEADER_VALUES = 0x1FFF };
enum MrpEvent : uint32_t { MRP_NEW, MRP_JOIN_IN, MRP_IN, MRP_JOIN_EMPTY, MRP_EMPTY, MRP_LEAVE };
enum GarpEvent : uint32_t { GARP_LEAVE_ALL, GARP_JOIN_EMPTY, GARP_JOIN_IN, GARP_LEAVE_EMPTY, GARP_LEAVE_IN };

static const std::string_view llcHeader("\x42\x42\x03\x00\x01", 5); /* the SAPs of spanning tree, protocol 1 */

static size_t sizeOf(const AttributeSizes &sizes, uint32_t type)
{
    return type == 1 ? sizes.first : type == 2 ? sizes.second : 0;
}

/* Takes a big-endian number off the front; bytes beyond the end are left out. */
static uint64_t takeNumber(std::string_view *from, size_t size)
{
    uint64_t number = numberAt(*from, 0, size);
    from->remove_prefix(std::min(size, from->size()));
    return number;
}

/* Reading */

/* Handles a vector, with three events in a byte. */
static void readVector(std::string_view events, uint64_t values, size_t size, uint64_t first,
                       const EventHandler &handle)
{
    static const uint32_t place[] = {36, 6, 1};
    for (uint64_t i = 0; i < values; i++) {
        uint32_t event = (unsigned char)events[i / 3] / place[i % 3] % 6;
        if (event == MRP_NEW || event == MRP_JOIN_IN || event == MRP_JOIN_EMPTY)
            handle(ATTRIBUTE_JOINS, size, first + i);
        else if (event == MRP_LEAVE)
            handle(ATTRIBUTE_LEAVES, size, first + i);
    }
}

/* Reads a list of vectors; skips them if they are `unknown`. False: it is malformed. The end mark may be missing. */
static bool readVectors(std::string_view *pdu, size_t size, bool unknown, const EventHandler &handle)
{
    while (pdu->size() >= 2) {
        uint64_t header = takeNumber(pdu, 2), values = header & HEADER_VALUES;
        size_t length = (values + 2) / 3;
        if (!header)
            return true; /* the end mark */
        if (pdu->size() < size + length)
            return false;
        uint64_t first = takeNumber(pdu, size);
        if (!unknown && (header & HEADER_LEAVE_ALL))
            handle(ALL_LEAVE, size, 0);
        if (!unknown)
            readVector(*pdu, values, size, first, handle);
        pdu->remove_prefix(length);
    }
    return true;
}

/* A PDU of a newer version is read like one of this version: what is unknown in it has no effect. */
MrpCounter readMrpPdu(std::string_view pdu, const AttributeSizes &sizes, const EventHandler &handle)
{
    if (pdu.empty())
        return MRP_BAD_HEADER;
    takeNumber(&pdu, 1); /* the version */
    while (pdu.size() >= 2) {
        uint32_t type = (uint32_t)takeNumber(&pdu, 1), known = (uint32_t)sizeOf(sizes, type);
        size_t size = takeNumber(&pdu, 1);
        if (!type)
            break; /* the end mark */
        if ((known && size != known) || !readVectors(&pdu, size, !known, handle))
            return MRP_BAD_FORMAT;
    }
    return MRP_RECEIVED;
}

/* Handles the attributes of one type, up to their end mark. */
static void readGarpAttributes(std::string_view *pdu, size_t size, const EventHandler &handle)
{
    while (!pdu->empty() && (unsigned char)(*pdu)[0] >= 2) {
        std::string_view attribute = pdu->substr(0, (unsigned char)(*pdu)[0]);
        pdu->remove_prefix(attribute.size());
        takeNumber(&attribute, 1);
        uint64_t event = takeNumber(&attribute, 1);
        if (event == GARP_LEAVE_ALL && size)
            handle(ALL_LEAVE, size, 0);
        if (!size || attribute.size() != size || event == GARP_LEAVE_ALL)
            continue;
        if (event == GARP_JOIN_EMPTY || event == GARP_JOIN_IN)
            handle(ATTRIBUTE_JOINS, size, numberAt(attribute, 0, size));
        else if (event == GARP_LEAVE_EMPTY || event == GARP_LEAVE_IN)
            handle(ATTRIBUTE_LEAVES, size, numberAt(attribute, 0, size));
    }
    takeNumber(pdu, 1);
}

bool readGarpPdu(std::string_view frame, const AttributeSizes &sizes, const EventHandler &handle)
{
    std::string_view pdu = frame;
    size_t length = takeNumber(&pdu, 2);
    if (!pdu.starts_with(llcHeader))
        return false;
    pdu = pdu.substr(0, length);
    pdu.remove_prefix(std::min(pdu.size(), llcHeader.size()));
    while (uint32_t type = (uint32_t)takeNumber(&pdu, 1))
        readGarpAttributes(&pdu, sizeOf(sizes, type), handle);
    return true;
}

/* Writing */

/* A vector from value `begin` on to before `end`. Values between that are not listed are MRP_EMPTY. */
static void putVector(std::string *pdu, const Declarations &message, bool all, size_t begin, size_t end)
{
    const auto &values = message.values;
    uint64_t first = begin < end ? values[begin].first : 0, count = begin < end ? values[end - 1].first - first + 1 : 0;
    putNumber(pdu, count | (all ? (uint32_t)HEADER_LEAVE_ALL : 0), 2);
    putNumber(pdu, first, message.size);
    for (uint64_t i = 0; i < count; i += 3) {
        uint32_t packed = 0;
        for (uint64_t value = first + i; value < first + i + 3; value++) {
            bool named = begin < end && values[begin].first == value;
            uint32_t event = named ? (values[begin].second ? MRP_JOIN_IN : MRP_LEAVE) : MRP_EMPTY;
            packed = packed * 6 + (value < first + count ? event : 0);
            begin += named;
        }
        putNumber(pdu, packed, 1);
    }
}

/* The end of the vector that begins with the value at `begin`. */
static size_t vectorEnd(const Declarations &message, size_t begin)
{
    size_t end = begin + 1;
    while (end < message.values.size() && message.values[end].first - message.values[end - 1].first <= message.gap)
        end++;
    return end;
}

std::string mrpPdu(uint32_t etherType, const std::vector<Declarations> &messages)
{
    std::string pdu;
    putNumber(&pdu, etherType, 2);
    putNumber(&pdu, 0, 1); /* the version */
    for (const Declarations &message : messages) {
        putNumber(&pdu, message.type << 8 | message.size, 2);
        if (message.values.empty())
            putVector(&pdu, message, message.all, 0, 0);
        for (size_t begin = 0, end; begin < message.values.size(); begin = end) {
            end = vectorEnd(message, begin);
            putVector(&pdu, message, message.all && !begin, begin, end);
        }
        putNumber(&pdu, 0, 2); /* the end mark */
    }
    putNumber(&pdu, 0, 2);
    return pdu;
}

std::string garpPdu(const std::vector<Declarations> &messages)
{
    std::string pdu(llcHeader), whole;
    for (const Declarations &message : messages) {
        putNumber(&pdu, message.type, 1);
        if (message.all)
            putNumber(&pdu, 2 << 8 | GARP_LEAVE_ALL, 2);
        for (auto [value, joins] : message.values) {
            putNumber(&pdu, (message.size + 2) << 8 | (joins ? GARP_JOIN_IN : GARP_LEAVE_EMPTY), 2);
            putNumber(&pdu, value, message.size);
        }
        putNumber(&pdu, 0, 1); /* the end mark */
    }
    putNumber(&pdu, 0, 1);
    putNumber(&whole, pdu.size(), 2);
    return whole + pdu;
}

void sendRegistrationPdu(RegistrationProtocol protocol, uint32_t port, uint64_t group, uint32_t tag,
                         const std::string &pdu)
{
    std::string addresses, rest = pdu;
    putNumber(&addresses, group, 6);
    putNumber(&addresses, bridgeMac(), 6);
    rest.resize(std::max<size_t>(rest.size(), SHORTEST_REST));
    bool sent = sendFrame(port, {addresses, tag != 0, (uint16_t)tag, rest});
    countRegistration(protocol, port, sent ? MRP_SENT : MRP_SEND_FAILED);
}

uint64_t leaveMillis(uint32_t port)
{
    return 10ull * garpTimers(port).leave;
}

uint64_t leaveAllMillis(RegistrationProtocol protocol, uint32_t port)
{
    return protocol == GVRP || protocol == GMRP ? 10ull * garpTimers(port).leaveAll : 10000;
}
