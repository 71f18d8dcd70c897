/*
 * open_client.h - the way to the switch: the one OpEN client of this process, and the storage of texts it exchanges.
 */
#ifndef COMMON_OPEN_CLIENT_H
#define COMMON_OPEN_CLIENT_H

#include <stdint.h>
#include <string.h>

#include "openclt.h"

/* Every operation gets the address of this one handle. */
extern OpenClient openClient;

/*
 * Registers `client` under "<baseName>_<pid>" and waits for the OpEN server: at most seven checks, three seconds apart.
 * A null base name counts as "common.c". Returns 0, or -1 when there is no client or no server.
 */
int initHandler(const char *baseName, OpenClient *client);

/*
 * Storage for a text of an operation, all zero: N bytes that are offered to OpEN, and one more that no operation can
 * reach, so that the text always ends.
 */
template <uint32_t N> struct OpenText {
    static constexpr uint32_t size = N;
    char bytes[N + 1] = {};
};

/* The three sizes a descriptor can state. Which of them an operation gets is part of each endpoint. */
template <uint32_t N> OpenBufferDesc bufferSized(OpenText<N> &text)
{
    return {N, text.bytes};
}

template <uint32_t N> OpenBufferDesc lengthSized(OpenText<N> &text)
{
    return {(uint32_t)strlen(text.bytes), text.bytes};
}

template <uint32_t N> OpenBufferDesc terminatedSized(OpenText<N> &text)
{
    return {(uint32_t)strlen(text.bytes) + 1, text.bytes};
}

#endif
