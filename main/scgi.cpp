/*
 * scgi.cpp - receives SCGI requests. A client has ten seconds, and is not trusted.
 */
#include "main/scgi.h"

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "common/memory.h"
#include "log/log.h"

enum { RECEIVE_MILLIS = 10'000 };
enum : size_t { LENGTH_DIGITS = 6, KEPT_MAX = 0x10000, DROPPED_MAX = 4 * (size_t)SCGI_BODY_MAX };

static_assert(SCGI_VARIABLES_MAX < 1'000'000); /* has at most LENGTH_DIGITS digits */

enum : size_t { RECEIVED_MAX = LENGTH_DIGITS + (size_t)SCGI_VARIABLES_MAX + 2 + SCGI_BODY_MAX };

/* The current request. It has pages of its own, and only those that a request touches take memory. */
static char *received;
static size_t receivedSize; /* in bytes */

static bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/* Reads a decimal number of at most `most`; an empty text is 0. False: the text is no such number. */
static bool readNumber(const char *text, size_t most, size_t *number)
{
    for (*number = 0; *text; text++) {
        if (!isDigit(*text))
            return false;
        *number = *number * 10 + (size_t)(*text - '0');
        if (*number > most)
            return false;
    }
    return true;
}

/* False: the head has this variable already. */
static bool store(ScgiHead *head, const char *name, const char *value)
{
    for (int i = 0; i < REQUEST_VARIABLES; i++)
        if (strcmp(name, requestVariableNames[i]) == 0) {
            bool isNew = !head->variables[i];
            head->variables[i] = value;
            return isNew;
        }
    return true;
}

/* Reads the variables in [at, end); the byte before `end` is zero. Returns what is wrong; null: nothing. */
static const char *readVariables(ScgiHead *head, const char *at, const char *end)
{
    while (at < end) {
        const char *name = at;
        const char *value = name + strlen(name) + 1;
        if (!*name)
            return "a variable has no name";
        if (value >= end)
            return "a variable has no value";
        if (!store(head, name, value))
            return "a variable is there twice";
        at = value + strlen(value) + 1;
    }
    const char *length = head->variables[CONTENT_LENGTH];
    if (!length)
        return "there is no CONTENT_LENGTH";
    if (!readNumber(length, SCGI_BODY_MAX, &head->bodySize))
        return "CONTENT_LENGTH is not a number, or too large";
    return nullptr;
}

static ScgiHead wrongHead(const char *wrong)
{
    ScgiHead head = {};
    head.wrong = wrong;
    return head;
}

ScgiHead scgiReadHead(const char *bytes, size_t size)
{
    size_t digits = 0, length = 0;
    for (; digits < size && digits < LENGTH_DIGITS && isDigit(bytes[digits]); digits++)
        length = length * 10 + (size_t)(bytes[digits] - '0');
    if (digits == size)
        return {};
    if (digits == 0 || bytes[digits] != ':' || length > SCGI_VARIABLES_MAX)
        return wrongHead("it does not begin with a length and a colon");

    const char *variables = bytes + digits + 1;
    const char *end = variables + length;
    size_t whole = digits + 1 + length + 1;
    if (size < whole)
        return {};
    if (*end != ',')
        return wrongHead("there is no comma behind the variables");
    if (length > 0 && end[-1])
        return wrongHead("the last variable has no end");

    ScgiHead head = {};
    head.wrong = readVariables(&head, variables, end);
    head.size = head.wrong ? 0 : whole;
    return head;
}

static int64_t millisNow()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * (int64_t)1000 + now.tv_nsec / 1'000'000;
}

/* As recv, but waits only until `deadline`. Returns 0 at the end, -1 on failure and when it is late. */
static ssize_t receiveSome(int connection, char *to, size_t room, int64_t deadline)
{
    for (;;) {
        ssize_t got = recv(connection, to, room, MSG_DONTWAIT);
        if (got >= 0 || (errno != EAGAIN && errno != EINTR))
            return got;
        struct pollfd waiting = {.fd = connection, .events = POLLIN, .revents = 0};
        int64_t left = deadline - millisNow();
        if (left <= 0 || (poll(&waiting, 1, (int)left) < 0 && errno != EINTR))
            return -1;
    }
}

/* The first bytes are often not there yet: to wait in the call that reads them costs less. */
static ssize_t receiveFirst(int connection)
{
    const struct timeval limit = {.tv_sec = RECEIVE_MILLIS / 1000, .tv_usec = 0};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ssize_t got;
    while ((got = recv(connection, received, RECEIVED_MAX, 0)) < 0 && errno == EINTR)
        ; /* only the signal that ends the process: once */
    return got;
}

static ScgiOutcome lost(size_t size)
{
    if (size > 0)
        LOG_AS("scgiReceive", LEVEL_ERROR, "A request was dropped: only %zu bytes of it came in time\n", size);
    return SCGI_LOST;
}

static bool reservePages()
{
    if (!received) {
        void *pages = mmap(nullptr, RECEIVED_MAX, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        received = pages == MAP_FAILED ? nullptr : (char *)pages;
    }
    return received;
}

ScgiOutcome scgiReceive(int connection, Request *request, const char **wrong)
{
    int64_t deadline = millisNow() + RECEIVE_MILLIS;
    if (!reservePages())
        exitWithoutMemory("receive a request");
    ScgiHead head = {};
    size_t &size = receivedSize;
    ssize_t got = 1;
    size = 0;
    auto receiveMore = [&] { /* false: nothing more comes */
        got = size == 0 ? receiveFirst(connection)
                        : receiveSome(connection, received + size, RECEIVED_MAX - size, deadline);
        size += got > 0 ? (size_t)got : 0;
        return got > 0;
    };
    while (head.size == 0 && receiveMore()) {
        head = scgiReadHead(received, size);
        if ((*wrong = head.wrong))
            return SCGI_WRONG;
    }
    while (got > 0 && size < head.size + head.bodySize)
        receiveMore();
    if (got < 0 || size == 0)
        return lost(size);
    if ((*wrong = head.size == 0 ? "it ends before its variables do" : nullptr))
        return SCGI_WRONG;

    memcpy(request->variables, head.variables, sizeof request->variables);
    request->body = received + head.size;
    request->bodySize = size - head.size < head.bodySize ? size - head.size : head.bodySize;
    return SCGI_REQUEST;
}

void scgiEnd(int connection, int millis)
{
    int64_t deadline = millisNow() + millis;
    size_t dropped = 0;
    if (millis > 0)
        shutdown(connection, SHUT_WR); /* the client sees the end of the answer */
    for (ssize_t got = 1; got > 0 && dropped < DROPPED_MAX; dropped += got > 0 ? (size_t)got : 0)
        got = receiveSome(connection, received, KEPT_MAX, deadline);
    close(connection);
    if (receivedSize > KEPT_MAX)
        madvise(received, RECEIVED_MAX, MADV_DONTNEED); /* the memory goes back to the system */
}
