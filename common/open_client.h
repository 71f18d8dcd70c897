/*
 * open_client.h - the way to the switch: the one OpEN client of this process, and the storage of texts it exchanges.
 */
#ifndef COMMON_OPEN_CLIENT_H
#define COMMON_OPEN_CLIENT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "openclt.h"

/* Every operation gets the address of this one handle. */
extern OpenClient openClient;

/*
 * Installs the crash recorder, registers `client` under "<baseName>_<pid>" and waits for the OpEN server: at most seven
 * checks, three seconds apart. A null base name counts as "common.c". Returns 0, or -1 when there is no client or no
 * server.
 */
int initHandler(const char *baseName, OpenClient *client);

/*
 * Storage for a text of an operation, all zero: N bytes that are offered to OpEN, and one more that no operation can
 * reach, so that the text always ends.
 */
template <uint32_t N> struct OpenText {
    static constexpr uint32_t size = N;
    char bytes[N + 1] = {};
    OpenBufferDesc desc = {};
};

/* The same for a size that is known only at run time. Freed by longTextFree; an empty one need not be. */
struct LongText {
    uint32_t size = 0;
    char *bytes = nullptr;
    OpenBufferDesc desc = {};
};

/* Gives an empty text so many bytes to offer. False without memory, or when no descriptor can state the size. */
bool longTextReserve(LongText &text, uint64_t size);

void longTextFree(LongText &text);

/*
 * A text as an operation takes it, valid as long as the text. The words are the three sizes that can be stated of it;
 * which of them an operation gets is part of each endpoint.
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

/* A long text that was never given any bytes is empty. */
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
