/*
 * frame.h - an Ethernet frame in the switch, and the big-endian numbers in it.
 */
#ifndef VSWITCH_FRAME_H
#define VSWITCH_FRAME_H

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <string>
#include <string_view>

enum : uint32_t { MANAGEMENT_PORT = 0 }; /* the switch's web server is behind it */

enum : size_t {
    ETHERNET_HEADER = 14, /* two addresses and a type */
    VLAN_TAG = 4,
    SHORTEST_REST = 48,   /* of the shortest frame (60 bytes), without its addresses */
    FRAME_MAX = 1514      /* the longest frame, without FCS and tag */
};

struct Frame {
    uint32_t port; /* where it came in */
    std::string_view bytes;
    uint64_t destination, source;
    bool tagged;           /* has a tag with a VLAN; a priority tag does not count */
    uint16_t priority;     /* the topmost four bits of a tag: PCP and DEI */
    uint32_t vlan;         /* of the tag, then the VLAN that it is classified into */
    uint32_t type;         /* EtherType or length, after the tag */
    std::string_view rest; /* from the type on */
};

/* The big-endian number of `size` bytes at an offset; bytes beyond the end are left out. */
inline uint64_t numberAt(std::string_view bytes, size_t at, size_t size)
{
    uint64_t number = 0;
    for (char byte : bytes.substr(std::min(at, bytes.size()), size))
        number = number << 8 | (unsigned char)byte;
    return number;
}

inline void putNumber(std::string *to, uint64_t number, size_t size)
{
    while (size-- > 0)
        to->push_back((char)(number >> 8 * size));
}

#endif
