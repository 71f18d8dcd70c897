/*
 * hostile_switch.cpp - a client library without a server. Every operation reads all bytes of its arguments, and returns
 * a code and values of the fuzzer's input, also texts without a zero and lists with a count that is too high.
 */
#include "tests/fuzz/hostile_switch.h"

#include "openclt.h"
#include "proc_libs.h"

static FuzzInput *replies;
static bool startUpIsHostile, registers;
static unsigned calls;

void replyFrom(FuzzInput *input, bool hostileStartUp, bool canRegister)
{
    replies = input;
    startUpIsHostile = hostileStartUp;
    registers = canRegister;
    calls = 0;
}

unsigned callsSinceStart()
{
    return calls;
}

/* The sanitizer reports a descriptor whose size is larger than its memory. */
static void readAll(const void *bytes, size_t size)
{
    volatile char sink = 0;
    for (size_t i = 0; i < size; i++)
        sink = (char)(sink ^ ((const char *)bytes)[i]);
}

/* Mostly a small number, sometimes any. */
template <class T> static T takeAnyNumber()
{
    uint8_t first = takeNumber<uint8_t>(replies);
    return first < 0xF0 ? (T)first : takeNumber<T>(replies);
}

static void answerArgument(uint32_t)
{
}

template <class T> static void answerArgument(T *value)
{
    readAll(value, sizeof *value);
    *value = takeAnyNumber<T>();
}

static void answerArgument(OpenApiVersion *version)
{
    takeInto(replies, version, sizeof *version);
}

static void answerArgument(OpenBufferDesc *text)
{
    readAll(text->bytes, text->size);
    uint8_t style = takeNumber<uint8_t>(replies);
    uint32_t length = std::min<uint32_t>(style & 0x3F, text->size);
    if (style & 0x80) { /* full, without a zero */
        memset(text->bytes, takeNumber<uint8_t>(replies), text->size);
    } else if (style) { /* a text, with or without an end */
        takeInto(replies, text->bytes, length);
        if (!(style & 0x40) && length < text->size)
            text->bytes[length] = 0;
    }
}

static void answerArgument(const VlanIdList &list)
{
    readAll(&list, sizeof list);
}

static void answerArgument(VlanIdList *list)
{
    readAll(list, sizeof *list);
    list->count = takeAnyNumber<uint32_t>();
    uint16_t id = takeNumber<uint16_t>(replies);
    for (uint16_t &entry : list->ids)
        entry = id++;
}

static int takeCode()
{
    uint8_t first = takeNumber<uint8_t>(replies);
    if (first < 0x80)
        return OPEN_OK;
    return first < 0xC0 ? -(first & 0x3F) : takeNumber<int32_t>(replies);
}

static bool isStartUp(const char *name)
{
    for (const char *other : {"rpcclt_openapiConnectivityCheck", "rpcclt_openapiNetworkOSVersionGet",
                              "rpcclt_openapiApiVersionGet"})
        if (strcmp(name, other) == 0)
            return true;
    return false;
}

template <class... T> static int answer(const char *name, OpenClient *client, T &&...arguments)
{
    if (client->opaque[0] != 1)
        __builtin_trap(); /* not the registered client */
    if (isStartUp(name)) {
        if (!startUpIsHostile)
            return OPEN_OK;
    } else {
        calls++;
    }
    int code = takeCode();
    (answerArgument(arguments), ...);
    return code;
}

extern "C" {

/* These replace the functions of the sandbox, which need a client library. */
int __wrap_openapiClientRegister(const char *, OpenClient *client)
{
    client->opaque[0] = 1;
    return registers ? OPEN_OK : OPEN_FAILED;
}

int __wrap_openapiClientTearDown(OpenClient *client)
{
    client->opaque[0] = 0;
    return OPEN_OK;
}

void l7proc_crashlog_register(void)
{
    /* the fuzzer records crashes */
}

#define OPEN_OPERATION(name, ...)                                             \
    int name(OpenClient *client OPEN_EACH(OPEN_DECLARE_, __VA_ARGS__))         \
    {                                                                         \
        return answer(#name, client OPEN_EACH(OPEN_FORWARD_, __VA_ARGS__));    \
    }
#include "openclt_operations.def"
#undef OPEN_OPERATION

} /* extern "C" */
