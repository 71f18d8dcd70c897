/*
 * wire_fuzzer.cpp - the bytes between the client library and the virtual switch, as a hostile peer would send them, in
 * both directions; and the virtual switch's model behind them.
 *
 * An input is a list of steps, each a byte and what belongs to it:
 *
 *   0  a request: a 16-bit length and as many bytes
 *   1  a call: the operation's 16-bit number, and what its arguments are made of
 *   2  a command: a length byte and as many characters
 *   3  the client's call of an operation (16-bit number), and the reply it gets: a 16-bit length and as many bytes
 *   4  the same, and the reply is the switch's last one with one byte changed: its 16-bit place, and what it becomes
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "platform/vswitch/calls.h"
#include "platform/vswitch/commands.h"
#include "platform/vswitch/model.h"
#include "platform/vswitch/operations.h"
#include "platform/vswitch/trace.h"
#include "tests/fuzz/fuzz_input.h"

static std::string lastReply; /* with its length */

static void check(bool holds, const char *what)
{
    if (holds)
        return;
    printf("%s\n", what);
    fflush(stdout);
    abort();
}

template <class T> static void put(std::string *to, const T &value)
{
    to->append((const char *)&value, sizeof value);
}

/* Serves a request; the reply's content, when there is one. */
static bool serve(const std::string &request, std::string_view *content)
{
    /* a buffer of exactly that size shows who reads behind it */
    std::unique_ptr<char[]> exact(new char[request.size()]);
    std::copy(request.begin(), request.end(), exact.get());
    Reply answer = answerRequest({exact.get(), request.size()}, 0);
    if (answer.action == Reply::HANG_UP)
        return false;
    uint32_t length;
    check(answer.frame.size() >= sizeof length, "A reply without a length");
    memcpy(&length, answer.frame.data(), sizeof length);
    check(length <= WIRE_FRAME_MAX, "A reply above the limit");
    lastReply = answer.frame;
    *content = std::string_view(lastReply).substr(sizeof length);
    return true;
}

/* The calling end */

template <class T> static T takeSmall(FuzzInput *input)
{
    uint8_t first = takeNumber<uint8_t>(input);
    return first < 0xF8 ? (T)first : takeNumber<T>(input);
}

/* An argument of an operation: storage for what it points to. */
template <class T> struct Held {
    explicit Held(FuzzInput *input) : value(takeSmall<T>(input)) {}
    T argument() { return value; }
    T value;
};

template <class T> struct Held<T *> {
    explicit Held(FuzzInput *input) : value(takeSmall<T>(input)) {}
    T *argument() { return &value; }
    T value;
};

template <> struct Held<OpenApiVersion *> {
    explicit Held(FuzzInput *input) : value(takeNumber<OpenApiVersion>(input)) {}
    OpenApiVersion *argument() { return &value; }
    OpenApiVersion value;
};

/* Its size is one of those that are in use, or any small one; its content is a text, or the bytes that come. */
template <> struct Held<OpenBufferDesc *> {
    explicit Held(FuzzInput *input)
    {
        static const uint32_t sizes[] = {18, 49, 64, 100, 256, 4097};
        uint8_t choice = takeNumber<uint8_t>(input);
        uint32_t size = choice < 6 ? sizes[choice] : choice;
        std::string text = takeText(input, takeNumber<uint8_t>(input));
        bytes.reset(new char[size]());
        std::copy_n(text.begin(), std::min<size_t>(text.size(), size), bytes.get());
        desc = {size, bytes.get()};
    }
    OpenBufferDesc *argument() { return &desc; }
    OpenBufferDesc desc;
    std::unique_ptr<char[]> bytes;
};

static void fillList(FuzzInput *input, VlanIdList *list)
{
    *list = {};
    list->count = takeSmall<uint32_t>(input);
    std::string ids = takeText(input, std::min<size_t>(list->count, 64) * sizeof(uint16_t));
    std::copy(ids.begin(), ids.end(), (char *)list->ids);
}

template <> struct Held<VlanIdList *> {
    explicit Held(FuzzInput *input) : list(new VlanIdList) { fillList(input, list.get()); }
    VlanIdList *argument() { return list.get(); }
    std::unique_ptr<VlanIdList> list;
};

template <> struct Held<VlanIdList> {
    explicit Held(FuzzInput *input) { fillList(input, &list); }
    const VlanIdList &argument() { return list; }
    VlanIdList list;
};

static void putTrimmed(std::string *to, const void *bytes, uint32_t size)
{
    uint32_t used = wireUsed(bytes, size);
    put(to, used);
    to->append((const char *)bytes, used);
}

static void putArgument(std::string *to, uint32_t value) { put(to, value); }
static void putArgument(std::string *to, uint32_t *value) { put(to, *value); }
static void putArgument(std::string *to, uint16_t *value) { put(to, *value); }
static void putArgument(std::string *to, uint64_t *value) { put(to, *value); }
static void putArgument(std::string *to, OpenApiVersion *value) { put(to, *value); }
static void putArgument(std::string *to, VlanIdList *list) { putTrimmed(to, list, sizeof *list); }
static void putArgument(std::string *to, const VlanIdList &list) { putTrimmed(to, &list, sizeof list); }

static void putArgument(std::string *to, OpenBufferDesc *text)
{
    put(to, text->size);
    putTrimmed(to, text->bytes, text->size);
}

/* What a fuzzer does with an operation. */
struct Calls {
    void (*putArguments)(FuzzInput *input, std::string *to);
    int (*callAsClient)(FuzzInput *input, OpenClient *client);
};

template <auto function, class Prototype> struct CallsOf;
template <auto function, class... T> struct CallsOf<function, int(OpenClient *, T...)> {
    static void putArguments(FuzzInput *input, std::string *to)
    {
        std::tuple<Held<T>...> held{Held<T>(input)...};
        auto put = [to](auto &...one) { ((to->push_back(WireTagOf<T>::tag), putArgument(to, one.argument())), ...); };
        std::apply(put, held);
    }

    static int callAsClient(FuzzInput *input, OpenClient *client)
    {
        std::tuple<Held<T>...> held{Held<T>(input)...};
        return std::apply([client](auto &...one) { return function(client, one.argument()...); }, held);
    }
};

static const Calls calls[] = {
#define OPEN_OPERATION(name, ...) \
    {CallsOf<name, decltype(name)>::putArguments, CallsOf<name, decltype(name)>::callAsClient},
#include "openclt_operations.def"
#undef OPEN_OPERATION
};

static size_t takeOperation(FuzzInput *input)
{
    return takeNumber<uint16_t>(input) % (sizeof calls / sizeof calls[0]);
}

/* Takes the value of an argument off a reply. */
static bool skipArgument(std::string_view *from, WireTag tag)
{
    size_t size = 0;
    if (from->empty() || from->front() != tag)
        return false;
    from->remove_prefix(1);
    if (tag == WIRE_TEXT || tag == WIRE_LISTREF) {
        uint32_t head[2] = {sizeof(VlanIdList), 0};
        size_t headSize = tag == WIRE_TEXT ? sizeof head : sizeof head[1];
        if (from->size() < headSize)
            return false;
        memcpy((char *)head + sizeof head - headSize, from->data(), headSize);
        if (head[1] > head[0])
            return false;
        size = headSize + head[1];
    } else {
        size = tag == WIRE_OUT16 ? 2 : tag == WIRE_OUT64 ? 8 : 4;
    }
    if (from->size() < size)
        return false;
    from->remove_prefix(size);
    return true;
}

static void stepCall(FuzzInput *input)
{
    size_t index = takeOperation(input);
    const Operation &operation = operations()[index];
    std::string request = {(char)WIRE_VERSION, (char)strlen(operation.name)};
    request += operation.name;
    calls[index].putArguments(input, &request);
    std::string_view content;
    if (!serve(request, &content))
        return;
    if (lastReply.size() == 9 && lastReply[0] == 5)
        return; /* the rubbish of a fault */
    check(content.size() >= sizeof(int32_t), "A reply without a code");
    content.remove_prefix(sizeof(int32_t));
    for (char tag : operation.tags)
        if (tag != WIRE_IN && tag != WIRE_LIST)
            check(skipArgument(&content, (WireTag)tag), "A reply without one of its arguments");
    check(content.empty(), "A reply with more than its arguments");
}

static void stepCommand(FuzzInput *input)
{
    std::string request = controlRequest(takeText(input, takeNumber<uint8_t>(input)));
    std::string_view content;
    int code = 0;
    std::string answer;
    check(serve(request.substr(sizeof(uint32_t)), &content), "A command was hung up on");
    check(controlAnswer(content, &code, &answer), "A command was not answered");
}

/* The client must survive any reply, and take only a good one for good. */
static void stepClient(FuzzInput *input, size_t index, const std::string &reply)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        abort();
    OpenClient client;
    openapiClientRegister("fuzzer", &client);
    memcpy(client.opaque, &ends[0], sizeof ends[0]); /* the library keeps its connection at the front */
    if (send(ends[1], reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && !reply.empty())
        abort();
    shutdown(ends[1], SHUT_WR);
    int code = calls[index].callAsClient(input, &client);
    check(code != OPEN_OK || reply.size() >= 8, "The client made something of nothing");
    openapiClientTearDown(&client);
    close(ends[1]);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    stderr = fopen("/dev/null", "w"); /* the switch's complaints */
    openTrace("/dev/null");
    setenv("OPENCLT_TIMEOUT_MS", "1000", 1);
    createModel({});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    FuzzInput input = {bytes, size};
    std::string answer;
    runCommand("reset", &answer);
    lastReply.clear();
    for (int steps = 0; input.size && steps < 64; steps++) {
        std::string_view content;
        switch (takeNumber<uint8_t>(&input) % 5) {
        case 0:
            serve(takeText(&input, takeNumber<uint16_t>(&input)), &content);
            break;
        case 1:
            stepCall(&input);
            break;
        case 2:
            stepCommand(&input);
            break;
        case 3: {
            size_t index = takeOperation(&input);
            std::string reply = takeText(&input, takeNumber<uint16_t>(&input));
            stepClient(&input, index, reply);
            break;
        }
        case 4: {
            size_t index = takeOperation(&input);
            std::string reply = lastReply;
            uint16_t place = takeNumber<uint16_t>(&input);
            uint8_t byte = takeNumber<uint8_t>(&input);
            if (!reply.empty())
                reply[place % reply.size()] = (char)byte;
            stepClient(&input, index, reply);
            break;
        }
        }
    }
    return 0;
}
