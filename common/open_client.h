/*
 * open_client.h - this process's connection to the switch, and the buffers for texts that operations take and return.
 */
#ifndef COMMON_OPEN_CLIENT_H
#define COMMON_OPEN_CLIENT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "openclt.h"

/* The client handle. Every operation gets its address. */
extern OpenClient openClient;

/*
 * Installs the crash recorder, registers `client` under "<baseName>_<pid>" ("common.c_<pid>" when `baseName` is null)
 * and waits for the OpEN server: at most 7 checks, 3 seconds apart. Returns 0; -1 when the registration fails or no
 * server answers.
 */
int initHandler(const char *baseName, OpenClient *client);

/*
 * A zeroed buffer for a text: N bytes that an operation may fill, and one more that it cannot reach, so that the text
 * always has a terminator.
 */
template <uint32_t N> struct OpenText {
    static constexpr uint32_t size = N;
    char bytes[N + 1] = {};
    OpenBufferDesc desc = {};
};

/* The same with a size known only at run time. Free it with longTextFree, unless nothing was reserved. */
struct LongText {
    uint32_t size = 0;
    char *bytes = nullptr;
    OpenBufferDesc desc = {};
};

/* Allocates `size` zeroed bytes for an empty text. False: out of memory, or more than a descriptor can state. */
bool longTextReserve(LongText &text, uint64_t size);

void longTextFree(LongText &text);

/*
 * The descriptor that an operation takes for a text; it lives as long as the text. Its size is the buffer's, the text's
 * length, or that length with the terminator: each endpoint has its established choice.
 */
template <class Text> OpenBufferDesc *sized(Text &text, size_t size)
{
    text.desc = {(uint32_t)size, text.bytes};
    return &text.desc;
}

template <class Text> OpenBufferDesc *bufferSized(Text &text)
{
    return sized(text, text.size);
}

/* Null (a long text without a reserve) counts as empty. */
inline size_t textLength(const char *bytes)
{
    return bytes ? strlen(bytes) : 0;
}

template <class Text> OpenBufferDesc *lengthSized(Text &text)
{
    return sized(text, textLength(text.bytes));
}

template <class Text> OpenBufferDesc *terminatedSized(Text &text)
{
    return sized(text, textLength(text.bytes) + 1);
}

#endif
