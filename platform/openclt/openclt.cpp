/*
 * openclt.cpp - stand-in for libopenclt.so, the OpEN RPC client library, on machines that are not a switch.
 *
 * Each operation packs its arguments into one request, sends it over a Unix-domain socket and unpacks the reply. What
 * goes wrong on the way (no server, a server that dies, is late or answers rubbish) is OPEN_FAILED, after a bounded
 * time.
 *
 * Environment: OPENCLT_SOCKET, the server's socket; OPENCLT_TIMEOUT_MS, how long a server may be silent (10000; at
 * most 600000).
 */
#include "openclt.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "wire.h"

/* A frame being written, or read from `at` on. Small frames live in `local`; `broken` sticks. */
struct Frame {
    char *bytes;
    size_t size, capacity, at;
    bool broken;
    char local[16 * 1024];
};

static void frameOpen(Frame *frame)
{
    frame->bytes = frame->local;
    frame->size = frame->at = 0;
    frame->capacity = sizeof frame->local;
    frame->broken = false;
}

static void frameClose(Frame *frame)
{
    if (frame->bytes != frame->local)
        free(frame->bytes);
}

static bool frameReserve(Frame *frame, size_t capacity)
{
    if (capacity <= frame->capacity)
        return true;
    size_t grown = capacity < 2 * frame->capacity ? 2 * frame->capacity : capacity;
    char *bytes = (char *)malloc(grown);
    if (!bytes)
        return false;
    memcpy(bytes, frame->bytes, frame->size);
    frameClose(frame);
    frame->bytes = bytes;
    frame->capacity = grown;
    return true;
}

static void putBytes(Frame *frame, const void *bytes, size_t size)
{
    if (frame->broken || !frameReserve(frame, frame->size + size)) {
        frame->broken = true;
        return;
    }
    memcpy(frame->bytes + frame->size, bytes, size);
    frame->size += size;
}

template <class T> static void putTagged(Frame *frame, WireTag tag, const T *value)
{
    if (!value) {
        frame->broken = true;
        return;
    }
    putBytes(frame, &tag, 1);
    putBytes(frame, value, sizeof *value);
}

static void put(Frame *frame, const uint32_t &value) { putTagged(frame, WIRE_IN, &value); }
static void put(Frame *frame, uint32_t *const &value) { putTagged(frame, WIRE_OUT, value); }
static void put(Frame *frame, uint16_t *const &value) { putTagged(frame, WIRE_OUT16, value); }
static void put(Frame *frame, uint64_t *const &value) { putTagged(frame, WIRE_OUT64, value); }
static void put(Frame *frame, OpenApiVersion *const &value) { putTagged(frame, WIRE_VERSION4, value); }

static void put(Frame *frame, OpenBufferDesc *const &text)
{
    if (!text || text->size > WIRE_TEXT_MAX || (text->size && !text->bytes)) {
        frame->broken = true;
        return;
    }
    uint32_t used = wireUsed(text->bytes, text->size);
    putTagged(frame, WIRE_TEXT, &text->size);
    putBytes(frame, &used, sizeof used);
    putBytes(frame, text->bytes, used);
}

static void putList(Frame *frame, WireTag tag, const VlanIdList *list)
{
    uint32_t used = wireUsed(list, sizeof *list);
    putTagged(frame, tag, &used);
    putBytes(frame, list, used);
}

static void put(Frame *frame, const VlanIdList &list) { putList(frame, WIRE_LIST, &list); }

static void put(Frame *frame, VlanIdList *const &list)
{
    if (list)
        putList(frame, WIRE_LISTREF, list);
    else
        frame->broken = true;
}

static const char *takeBytes(Frame *frame, size_t size)
{
    if (frame->broken || frame->size - frame->at < size) {
        frame->broken = true;
        return nullptr;
    }
    const char *bytes = frame->bytes + frame->at;
    frame->at += size;
    return bytes;
}

template <class T> static void takeTagged(Frame *frame, WireTag tag, T *value)
{
    const char *bytes = takeBytes(frame, 1 + sizeof *value);
    if (!bytes)
        return;
    if (bytes[0] != tag)
        frame->broken = true;
    else
        memcpy(value, bytes + 1, sizeof *value);
}

static void take(Frame *, const uint32_t &) {}
static void take(Frame *, const VlanIdList &) {}
static void take(Frame *frame, uint32_t *const &value) { takeTagged(frame, WIRE_OUT, value); }
static void take(Frame *frame, uint16_t *const &value) { takeTagged(frame, WIRE_OUT16, value); }
static void take(Frame *frame, uint64_t *const &value) { takeTagged(frame, WIRE_OUT64, value); }
static void take(Frame *frame, OpenApiVersion *const &value) { takeTagged(frame, WIRE_VERSION4, value); }

/* Fills `size` bytes with the `used` bytes that come next and zeros behind them. */
static void takeTrimmed(Frame *frame, uint32_t used, char *bytes, uint32_t size)
{
    const char *from = used <= size ? takeBytes(frame, used) : nullptr;
    if (!from) {
        frame->broken = true;
        return;
    }
    memcpy(bytes, from, used);
    memset(bytes + used, 0, size - used);
}

static void take(Frame *frame, OpenBufferDesc *const &text)
{
    uint32_t head[2] = {0, 0};
    takeTagged(frame, WIRE_TEXT, &head);
    if (frame->broken)
        return;
    if (head[0] == text->size && text->size)
        takeTrimmed(frame, head[1], text->bytes, text->size);
    else if (head[0] != text->size || head[1])
        frame->broken = true;
}

static void take(Frame *frame, VlanIdList *const &list)
{
    uint32_t used = 0;
    takeTagged(frame, WIRE_LISTREF, &used);
    if (!frame->broken)
        takeTrimmed(frame, used, (char *)list, sizeof *list);
}

/* What this library keeps in a handle. */
struct Client {
    int connection; /* descriptor of the connection to the server, -1 while there is none */
    char name[100]; /* the name the client registered under */
};
static_assert(sizeof(Client) <= sizeof(OpenClient));
static_assert(alignof(Client) <= alignof(OpenClient));

static Client *clientIn(OpenClient *handle)
{
    return (Client *)handle->opaque;
}

static void disconnect(Client *client)
{
    if (client->connection >= 0)
        close(client->connection);
    client->connection = -1;
}

static long operationMillis()
{
    const char *text = getenv("OPENCLT_TIMEOUT_MS");
    long millis = text ? strtol(text, nullptr, 10) : 0;
    return millis > 0 && millis <= 600000 ? millis : 10000;
}

static bool connectToServer(Client *client)
{
    if (client->connection >= 0)
        return true;
    const char *path = getenv("OPENCLT_SOCKET");
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    if (!path || !*path)
        path = WIRE_DEFAULT_SOCKET;
    if (strlen(path) >= sizeof address.sun_path)
        return false;
    strcpy(address.sun_path, path);

    client->connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (client->connection < 0)
        return false;
    long millis = operationMillis();
    timeval limit = {.tv_sec = millis / 1000, .tv_usec = millis % 1000 * 1000};
    setsockopt(client->connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(client->connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (connect(client->connection, (sockaddr *)&address, sizeof address) == 0)
        return true;
    disconnect(client);
    return false;
}

static int64_t millisNow()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * (int64_t)1000 + now.tv_nsec / 1000000;
}

static bool sendAll(int connection, const char *bytes, size_t size)
{
    while (size) {
        ssize_t sent = send(connection, bytes, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        bytes += sent;
        size -= (size_t)sent;
    }
    return true;
}

/* Reads the reply's frame. A server that sends it in drops gets at most twice the time of one that is silent. */
static bool receiveFrame(int connection, Frame *frame)
{
    int64_t deadline = millisNow() + operationMillis();
    uint32_t wanted = sizeof(uint32_t);
    frame->size = 0;
    for (bool haveLength = false; frame->size < wanted;) {
        if (!frameReserve(frame, wanted))
            return false;
        size_t room = haveLength ? wanted - frame->size : frame->capacity - frame->size;
        ssize_t got = recv(connection, frame->bytes + frame->size, room, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        frame->size += (size_t)got;
        if (!haveLength && frame->size >= sizeof(uint32_t)) {
            uint32_t length;
            memcpy(&length, frame->bytes, sizeof length);
            if (length > WIRE_FRAME_MAX)
                return false;
            wanted = (uint32_t)sizeof length + length;
            haveLength = true;
        }
        if (frame->size < wanted && millisNow() > deadline)
            return false;
    }
    frame->at = sizeof(uint32_t);
    return frame->size == wanted;
}

static void beginRequest(Frame *frame, const char *name)
{
    frameOpen(frame);
    uint32_t length = 0; /* filled in when the frame is complete */
    uint8_t head[2] = {WIRE_VERSION, (uint8_t)strlen(name)};
    putBytes(frame, &length, sizeof length);
    putBytes(frame, head, sizeof head);
    putBytes(frame, name, head[1]);
}

/* Sends the request in `frame` and puts the reply in its place, read up to the result code. */
static int exchange(Client *client, Frame *frame)
{
    if (!client || frame->broken || !connectToServer(client)) {
        frame->broken = true;
        return OPEN_FAILED;
    }
    uint32_t length = (uint32_t)(frame->size - sizeof length);
    memcpy(frame->bytes, &length, sizeof length);
    int32_t code = OPEN_FAILED;
    if (sendAll(client->connection, frame->bytes, frame->size) && receiveFrame(client->connection, frame)) {
        const char *bytes = takeBytes(frame, sizeof code);
        if (bytes) {
            memcpy(&code, bytes, sizeof code);
            return code;
        }
    }
    frame->broken = true;
    return OPEN_FAILED;
}

/* A reply that does not hold exactly what was asked for is a failure, and nothing more is read from that connection. */
static int endRequest(Client *client, Frame *frame, int code)
{
    if (frame->broken || frame->at != frame->size) {
        if (client)
            disconnect(client);
        code = OPEN_FAILED;
    }
    frameClose(frame);
    return code;
}

template <class... Arguments> static int call(const char *name, OpenClient *handle, const Arguments &...arguments)
{
    Client *client = handle ? clientIn(handle) : nullptr;
    Frame frame;
    beginRequest(&frame, name);
    (put(&frame, arguments), ...);
    int code = exchange(client, &frame);
    if (code == OPEN_OK || frame.at != frame.size) /* a refusal may come without the returned arguments */
        (take(&frame, arguments), ...);
    return endRequest(client, &frame, code);
}

extern "C" {

int openapiClientRegister(const char *clientName, OpenClient *handle)
{
    if (!clientName || !*clientName || !handle)
        return OPEN_BAD_ARGUMENT;
    Client *client = clientIn(handle);
    client->connection = -1;
    snprintf(client->name, sizeof client->name, "%s", clientName);
    return OPEN_OK;
}

int openapiClientTearDown(OpenClient *handle)
{
    if (!handle)
        return OPEN_BAD_ARGUMENT;
    disconnect(clientIn(handle));
    return OPEN_OK;
}

#define OPEN_OPERATION(name, ...)                                     \
    int name(OpenClient *client OPEN_EACH(OPEN_DECLARE_, __VA_ARGS__)) \
    {                                                                 \
        return call(#name, client OPEN_EACH(OPEN_FORWARD_, __VA_ARGS__)); \
    }
#include "openclt_operations.def"
#undef OPEN_OPERATION

} /* extern "C" */
