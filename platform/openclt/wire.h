/*
 * wire.h - the RPC format between the OpEN client library and the virtual switch. Both ends include this file.
 *
 * A message is its length (32 bits) and that many bytes of content:
 *   request   version (1 byte), length of the operation's name (1 byte), the name, every argument
 *   reply     result code (32 bits), every argument that is returned
 *   argument  tag (1 byte), value
 * Both ends check the tags, so a client and a server of different builds fail cleanly. Numbers are in host byte order:
 * both ends run on one machine.
 *
 * The functions below write to a sink, which has put(bytes, size), and read from a source, whose take(size) returns the
 * next `size` bytes and moves behind them, or returns null when there are fewer. Each end brings its own.
 */
#ifndef OPENCLT_WIRE_H
#define OPENCLT_WIRE_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "openclt.h"

enum : uint8_t { WIRE_VERSION = 1 };

enum WireTag : char {
    WIRE_IN = 'n',       /* uint32_t; only sent */
    WIRE_OUT = 'N',      /* uint32_t; sent and returned, like all that follow except WIRE_LIST */
    WIRE_OUT16 = 'H',    /* uint16_t */
    WIRE_OUT64 = 'Q',    /* uint64_t */
    WIRE_TEXT = 'T',     /* the buffer's size (32 bits), then the buffer, trimmed */
    WIRE_LIST = 'l',     /* VlanIdList, trimmed; only sent */
    WIRE_LISTREF = 'L',  /* VlanIdList, trimmed */
    WIRE_VERSION4 = 'V', /* OpenApiVersion, as in memory */
};

constexpr bool wireIsReturned(WireTag tag)
{
    return tag != WIRE_IN && tag != WIRE_LIST;
}

/* The tag of an operation's parameter, by its type. */
template <class T> struct WireTagOf;
template <> struct WireTagOf<uint32_t> { static constexpr WireTag tag = WIRE_IN; };
template <> struct WireTagOf<uint32_t *> { static constexpr WireTag tag = WIRE_OUT; };
template <> struct WireTagOf<uint16_t *> { static constexpr WireTag tag = WIRE_OUT16; };
template <> struct WireTagOf<uint64_t *> { static constexpr WireTag tag = WIRE_OUT64; };
template <> struct WireTagOf<OpenBufferDesc *> { static constexpr WireTag tag = WIRE_TEXT; };
template <> struct WireTagOf<VlanIdList> { static constexpr WireTag tag = WIRE_LIST; };
template <> struct WireTagOf<VlanIdList *> { static constexpr WireTag tag = WIRE_LISTREF; };
template <> struct WireTagOf<OpenApiVersion *> { static constexpr WireTag tag = WIRE_VERSION4; };

/* Limits in bytes, so that a broken peer cannot make the other end allocate without bound. */
enum : uint32_t { WIRE_TEXT_MAX = 1u << 20, WIRE_MESSAGE_MAX = 4u << 20 };

/* The socket's path, unless OPENCLT_SOCKET names another. */
#define WIRE_DEFAULT_SOCKET "/tmp/vswitch.sock"

/* Not an operation: a request of this name has a command to the virtual switch as its text, the reply its answer. */
#define WIRE_CONTROL "vswitch.control"

/* The length of `bytes` without the zero bytes at the end. */
inline uint32_t wireUsed(const void *bytes, uint32_t size)
{
    const char *text = (const char *)bytes;
    while (size >= 8) {
        uint64_t last;
        memcpy(&last, text + size - 8, 8);
        if (last)
            break;
        size -= 8;
    }
    while (size && !text[size - 1])
        size--;
    return size;
}

template <class Sink, class T> void wirePut(Sink &to, const T &value)
{
    to.put(&value, sizeof value);
}

/* False: the source has fewer bytes; *value is unchanged. */
template <class Source, class T> bool wireTake(Source &from, T *value)
{
    const char *bytes = from.take(sizeof *value);
    if (bytes)
        memcpy(value, bytes, sizeof *value);
    return bytes;
}

/* Trimmed bytes: their length without the zeros at the end (32 bits), then that many bytes. */
template <class Sink> void wirePutTrimmed(Sink &to, const void *bytes, uint32_t size)
{
    uint32_t used = wireUsed(bytes, size);
    wirePut(to, used);
    to.put(bytes, used);
}

/* Fills all `size` bytes. False: the source has fewer bytes, or more than fit; `bytes` are unchanged. */
template <class Source> bool wireTakeTrimmed(Source &from, void *bytes, uint32_t size)
{
    uint32_t used;
    if (!wireTake(from, &used) || used > size)
        return false;
    const char *taken = from.take(used);
    if (!taken)
        return false;
    if (size) { /* `bytes` can be null without a size */
        memcpy(bytes, taken, used);
        memset((char *)bytes + used, 0, size - used);
    }
    return true;
}

/* Texts and lists. Takes a text only into a buffer of the size that was sent. */

template <class Sink> void wirePut(Sink &to, const OpenBufferDesc &text)
{
    wirePut(to, text.size);
    wirePutTrimmed(to, text.bytes, text.size);
}

template <class Sink> void wirePut(Sink &to, const VlanIdList &list)
{
    wirePutTrimmed(to, &list, sizeof list);
}

template <class Source> bool wireTake(Source &from, OpenBufferDesc *text)
{
    uint32_t size;
    return wireTake(from, &size) && size == text->size && wireTakeTrimmed(from, text->bytes, size);
}

template <class Source> bool wireTake(Source &from, VlanIdList *list)
{
    return wireTakeTrimmed(from, list, sizeof *list);
}

template <class Sink, class T> void wirePutArgument(Sink &to, WireTag tag, const T &value)
{
    wirePut(to, tag);
    wirePut(to, value);
}

template <class Source> bool wireTakeTag(Source &from, WireTag tag)
{
    WireTag taken;
    return wireTake(from, &taken) && taken == tag;
}

/* The head of a request's content; the name follows. */
struct WireHead {
    uint8_t version, nameLength;
};

/* `name` has at most 255 characters. */
template <class Sink> void wirePutHead(Sink &to, const char *name)
{
    WireHead head = {WIRE_VERSION, (uint8_t)strlen(name)};
    wirePut(to, head);
    to.put(name, head.nameLength);
}

#endif
