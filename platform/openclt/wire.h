/*
 * wire.h - the bytes between the OpEN client stand-in and the virtual switch, written down for both ends.
 *
 * A frame is a 32-bit length and as many bytes. A request holds the protocol's version, the operation's name (one
 * length byte, then the characters) and its arguments; a reply holds the 32-bit result code and the arguments that are
 * returned. An argument is its tag and its value; both ends compare tags, so a client and a server that were built from
 * different operation lists fail cleanly. Numbers are in host order: both ends run on one machine.
 */
#ifndef OPENCLT_WIRE_H
#define OPENCLT_WIRE_H

#include <stddef.h>
#include <stdint.h>

#include "openclt.h"

enum : uint8_t { WIRE_VERSION = 1 };

enum WireTag : char {
    WIRE_IN = 'n',       /* uint32_t, only sent */
    WIRE_OUT = 'N',      /* uint32_t, sent and returned, like all that follow but WIRE_LIST */
    WIRE_OUT16 = 'H',    /* uint16_t */
    WIRE_OUT64 = 'Q',    /* uint64_t */
    WIRE_TEXT = 'T',     /* 32-bit size offered, 32-bit length without trailing zero bytes, that many bytes */
    WIRE_LIST = 'l',     /* 32-bit length of the VlanIdList without trailing zero bytes, that many bytes; only sent */
    WIRE_LISTREF = 'L',  /* as WIRE_LIST, and returned */
    WIRE_VERSION4 = 'V', /* OpenApiVersion, as it is in memory */
};

template <class T> struct WireTagOf;
template <> struct WireTagOf<uint32_t> { static constexpr WireTag tag = WIRE_IN; };
template <> struct WireTagOf<uint32_t *> { static constexpr WireTag tag = WIRE_OUT; };
template <> struct WireTagOf<uint16_t *> { static constexpr WireTag tag = WIRE_OUT16; };
template <> struct WireTagOf<uint64_t *> { static constexpr WireTag tag = WIRE_OUT64; };
template <> struct WireTagOf<OpenBufferDesc *> { static constexpr WireTag tag = WIRE_TEXT; };
template <> struct WireTagOf<VlanIdList> { static constexpr WireTag tag = WIRE_LIST; };
template <> struct WireTagOf<VlanIdList *> { static constexpr WireTag tag = WIRE_LISTREF; };
template <> struct WireTagOf<OpenApiVersion *> { static constexpr WireTag tag = WIRE_VERSION4; };

/* Limits that keep a broken peer from making the other end reserve absurd amounts of memory. */
enum : uint32_t { WIRE_TEXT_MAX = 1u << 20, WIRE_FRAME_MAX = 4u << 20 };

/* The length of `bytes` without the zero bytes at its end. */
inline uint32_t wireUsed(const void *bytes, uint32_t size)
{
    const char *text = (const char *)bytes;
    while (size >= 8) {
        uint64_t word;
        __builtin_memcpy(&word, text + size - 8, 8);
        if (word)
            break;
        size -= 8;
    }
    while (size && !text[size - 1])
        size--;
    return size;
}

/* Where the two ends meet unless OPENCLT_SOCKET names another path. */
#define WIRE_DEFAULT_SOCKET "/tmp/vswitch.sock"

/* A request under this name is no operation: its text is a command to the virtual switch, the reply's is the answer. */
#define WIRE_CONTROL "vswitch.control"

#endif
