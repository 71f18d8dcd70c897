/*
 * frame.h - an Ethernet frame on its way through the switch, and its numbers, which are big endian.
 */
#ifndef VSWITCH_FRAME_H
#define VSWITCH_FRAME_H

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <string>
#include <string_view>

enum : uint32_t { MANAGEMENT_PORT = 0 }; /* behind it is what manages the switch: its web server */

enum : size_t {
    ETHERNET_HEADER = 14, /* two addresses and a type */
    VLAN_TAG = 4,
    SHORTEST_REST = 48,   /* of a frame with a tag, behind its addresses */
    FRAME_MAX = 1514      /* what a port takes, without the check sequence; 4 bytes more with a tag */
};

struct Frame {
    uint32_t port; /* where it came in */
    std::string_view bytes;
    uint64_t destination, source;
    bool tagged;           /* with a VLAN; a frame with a priority alone counts as untagged */
    uint16_t priority;     /* as it stands in a tag: the topmost four bits */
    uint32_t vlan;         /* of its tag, then the one it was put into */
    uint32_t type;         /* EtherType or length, behind the tag */
    std::string_view rest; /* from the type on */
};

/* The number of `size` bytes there; bytes behind the end do not count. */
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
