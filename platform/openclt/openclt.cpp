/*
 * openclt.cpp - stand-in for libopenclt.so, the OpEN RPC client library, on machines that are not a switch.
 *
 * Each operation sends its arguments in one request over a Unix-domain socket and waits for the reply. It returns
 * OPEN_FAILED, in bounded time, when there is no server, or when the server dies, is late or sends garbage.
 *
 * Environment: OPENCLT_SOCKET, the path of the server's socket; OPENCLT_TIMEOUT_MS, how many milliseconds a server may
 * be silent (default 10000, at most 600000).
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

/* A message: a sink (put) and a source (take) of wire.h. Small messages fit into `local`; `broken` is never reset. */
struct Message {
    char *bytes = local;
    size_t size = 0, capacity = sizeof local, at = 0; /* `at`: where the next take begins */
    bool broken = false;
    char local[16 * 1024];

    Message() {} /* leaves `local` uninitialised */
    void put(const void *from, size_t count);
    const char *take(size_t count);
};

static void release(Message *message)
{
    if (message->bytes != message->local)
        free(message->bytes);
}

static bool reserve(Message *message, size_t capacity)
{
    if (capacity <= message->capacity)
        return true;
    size_t grown = capacity < 2 * message->capacity ? 2 * message->capacity : capacity;
    char *bytes = (char *)malloc(grown);
    if (!bytes)
        return false;
    memcpy(bytes, message->bytes, message->size);
    release(message);
    message->bytes = bytes;
    message->capacity = grown;
    return true;
}

void Message::put(const void *from, size_t count)
{
    broken = broken || !reserve(this, size + count);
    if (broken)
        return;
    if (count) /* a text without a size can be null */
        memcpy(bytes + size, from, count);
    size += count;
}

const char *Message::take(size_t count)
{
    broken = broken || size - at < count;
    if (broken)
        return nullptr;
    at += count;
    return bytes + at - count;
}

template <class T> static bool canBeSent(const T &) { return true; }

static bool canBeSent(const OpenBufferDesc &text) { return text.size <= WIRE_TEXT_MAX && (text.bytes || !text.size); }

template <class T> static void putArgument(Message *message, const T &value)
{
    wirePutArgument(*message, WireTagOf<T>::tag, value);
}

template <class T> static void putArgument(Message *message, T *const &value)
{
    if (value && canBeSent(*value))
        wirePutArgument(*message, WireTagOf<T *>::tag, *value);
    else
        message->broken = true;
}

/* An argument that is only sent. */
template <class T> static void takeArgument(Message *, const T &) {}

template <class T> static void takeArgument(Message *message, T *const &value)
{
    if (!message->broken && !(wireTakeTag(*message, WireTagOf<T *>::tag) && wireTake(*message, value)))
        message->broken = true;
}

/* The content of a client handle. */
struct Client {
    int connection; /* a descriptor; -1: not connected */
    char name[100]; /* of the registration */
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

/* Receives a reply. One that the server sends bit by bit gets at most twice the time of a silent server. */
static bool receiveReply(int connection, Message *reply)
{
    int64_t deadline = millisNow() + operationMillis();
    uint32_t wanted = sizeof(uint32_t);
    reply->size = 0;
    for (bool haveLength = false; reply->size < wanted;) {
        if (!reserve(reply, wanted))
            return false;
        size_t room = haveLength ? wanted - reply->size : reply->capacity - reply->size;
        ssize_t got = recv(connection, reply->bytes + reply->size, room, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        reply->size += (size_t)got;
        if (!haveLength && reply->size >= sizeof(uint32_t)) {
            uint32_t length;
            memcpy(&length, reply->bytes, sizeof length);
            if (length > WIRE_MESSAGE_MAX)
                return false;
            wanted = (uint32_t)sizeof length + length;
            haveLength = true;
        }
        if (reply->size < wanted && millisNow() > deadline)
            return false;
    }
    reply->at = sizeof(uint32_t);
    return reply->size == wanted;
}

/* Sends the request and receives the reply in its place. Returns the reply's result code. */
static int exchange(Client *client, Message *message)
{
    uint32_t length = (uint32_t)(message->size - sizeof length);
    int32_t code = OPEN_FAILED;
    message->broken = message->broken || !client || !connectToServer(client);
    if (message->broken)
        return OPEN_FAILED;
    memcpy(message->bytes, &length, sizeof length);
    if (!sendAll(client->connection, message->bytes, message->size) || !receiveReply(client->connection, message) ||
        !wireTake(*message, &code))
        message->broken = true;
    return code;
}

/* A reply with other arguments than the operation's is a failure, and ends the connection. */
static int endCall(Client *client, Message *message, int code)
{
    if (message->broken || message->at != message->size) {
        if (client)
            disconnect(client);
        code = OPEN_FAILED;
    }
    release(message);
    return code;
}

template <class... Arguments> static int call(const char *name, OpenClient *handle, const Arguments &...arguments)
{
    Client *client = handle ? clientIn(handle) : nullptr;
    Message message;
    wirePut(message, (uint32_t)0); /* the length: exchange fills it in */
    wirePutHead(message, name);
    (putArgument(&message, arguments), ...);
    int code = exchange(client, &message);
    if (code == OPEN_OK || message.at != message.size) /* a refusal may come without the returned arguments */
        (takeArgument(&message, arguments), ...);
    return endCall(client, &message, code);
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
