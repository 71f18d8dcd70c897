/*
 * calls.cpp - decodes and answers calls. All that comes from a client is untrusted.
 */
#include "vswitch/server/calls.h"

#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "vswitch/base/numbers.h"
#include "vswitch/base/operations.h"
#include "vswitch/base/trace.h"
#include "vswitch/server/faults.h"
#include "vswitch/switch/model.h"

static bool startLeftOut;

void complain(const std::string &message)
{
    pollfd errors = {2, POLLOUT, 0};
    if (poll(&errors, 1, 0) == 1 && errors.revents == POLLOUT)
        fprintf(stderr, "vswitch: %s\n", message.c_str());
}

void leaveOutStart()
{
    startLeftOut = true;
}

/* Takes `size` bytes off the front of `from`; an empty view when there are not as many. */
static std::string_view take(std::string_view *from, size_t size)
{
    if (from->size() < size)
        return {};
    std::string_view taken = from->substr(0, size);
    from->remove_prefix(size);
    return taken;
}

template <class T> static bool takeValue(std::string_view *from, T *value)
{
    std::string_view bytes = take(from, sizeof *value);
    if (bytes.empty())
        return false;
    memcpy(value, bytes.data(), sizeof *value);
    return true;
}

/* Fills `size` bytes at `to` with the trimmed bytes that come next. */
static bool takeTrimmed(std::string_view *from, char *to, uint32_t size)
{
    uint32_t used;
    if (!takeValue(from, &used) || used > size || from->size() < used)
        return false;
    std::string_view bytes = take(from, used);
    memset(to, 0, size);
    std::copy(bytes.begin(), bytes.end(), to);
    return true;
}

static bool takeArgument(std::string_view *from, WireTag tag, Argument *argument)
{
    std::string_view sentTag = take(from, 1);
    if (sentTag.empty() || sentTag[0] != tag)
        return false;
    argument->tag = tag;
    argument->number64 = 0;
    switch (tag) {
    case WIRE_IN:
    case WIRE_OUT:
        return takeValue(from, &argument->number);
    case WIRE_OUT16:
        return takeValue(from, &argument->number16);
    case WIRE_OUT64:
        return takeValue(from, &argument->number64);
    case WIRE_VERSION4:
        return takeValue(from, &argument->version);
    case WIRE_TEXT: {
        uint32_t size;
        if (!takeValue(from, &size) || size > WIRE_TEXT_MAX)
            return false;
        argument->bytes.resize(size);
        argument->text = {size, argument->bytes.data()};
        return takeTrimmed(from, argument->bytes.data(), size);
    }
    case WIRE_LIST:
    case WIRE_LISTREF:
        argument->list = std::make_unique<VlanIdList>();
        return takeTrimmed(from, (char *)argument->list.get(), sizeof(VlanIdList));
    }
    return false;
}

/* The arguments of a call; false when they are not those of the operation. */
static bool takeArguments(std::string_view from, const std::string &tags, Arguments *arguments)
{
    arguments->resize(tags.size());
    for (size_t i = 0; i < tags.size(); i++)
        if (!takeArgument(&from, (WireTag)tags[i], &(*arguments)[i]))
            return false;
    return from.empty();
}

template <class T> static void putValue(std::string *to, const T &value)
{
    to->append((const char *)&value, sizeof value);
}

static void putTrimmed(std::string *to, const void *bytes, uint32_t size)
{
    uint32_t used = wireUsed(bytes, size);
    putValue(to, used);
    to->append((const char *)bytes, used);
}

static bool isReturned(WireTag tag)
{
    return tag != WIRE_IN && tag != WIRE_LIST;
}

static void putArgument(std::string *to, const Argument &argument)
{
    if (isReturned(argument.tag))
        to->push_back(argument.tag);
    switch (argument.tag) {
    case WIRE_OUT:
        return putValue(to, argument.number);
    case WIRE_OUT16:
        return putValue(to, argument.number16);
    case WIRE_OUT64:
        return putValue(to, argument.number64);
    case WIRE_VERSION4:
        return putValue(to, argument.version);
    case WIRE_TEXT:
        putValue(to, argument.text.size);
        return putTrimmed(to, argument.bytes.data(), argument.text.size);
    case WIRE_LISTREF:
        return putTrimmed(to, argument.list.get(), sizeof(VlanIdList));
    case WIRE_IN:
    case WIRE_LIST:
        return;
    }
}

static std::string frameOf(const std::string &content)
{
    std::string frame;
    putValue(&frame, (uint32_t)content.size());
    return frame + content;
}

static std::string replyFrame(int32_t code, const Arguments &arguments)
{
    std::string content;
    putValue(&content, code);
    for (const Argument &argument : arguments)
        putArgument(&content, argument);
    return frameOf(content);
}

/*
 * A text as the trace shows it: between quotes, bytes that do not print as \xNN, without the zeros at its end. Of more
 * than a request of the program can hold only the beginning is shown, and "..." behind it.
 */
static std::string quoted(const std::string &bytes)
{
    static const char hex[] = "0123456789ABCDEF";
    static const uint32_t SHOWN_MAX = 64 * 1024;
    uint32_t used = wireUsed(bytes.data(), (uint32_t)bytes.size());
    std::string text = "\"";
    for (uint32_t i = 0; i < used && i < SHOWN_MAX; i++) {
        unsigned char c = (unsigned char)bytes[i];
        bool prints = c >= ' ' && c <= '~';
        if (!prints)
            text.append("\\x").append(1, hex[c >> 4]).append(1, hex[c & 15]);
        else if (c == '"' || c == '\\')
            text.append("\\").append(1, (char)c);
        else
            text += (char)c;
    }
    return text + (used > SHOWN_MAX ? "\"..." : "\"");
}

/* The value of an argument: 5, [18]"00:11:22:33:44:55" (the size offered in front), 3(10 20 30) (the list's count). */
static std::string valueText(const Operation &operation, size_t parameter, const Argument &argument)
{
    switch (argument.tag) {
    case WIRE_IN:
    case WIRE_OUT:
        return isIpv4Address(operation, parameter) ? ipv4Text(argument.number) : std::to_string(argument.number);
    case WIRE_OUT16:
        return std::to_string(argument.number16);
    case WIRE_OUT64:
        return std::to_string(argument.number64);
    case WIRE_VERSION4:
        return std::to_string(argument.version.release) + "." + std::to_string(argument.version.version);
    case WIRE_TEXT:
        return std::string("[").append(std::to_string(argument.text.size)).append("]").append(quoted(argument.bytes));
    case WIRE_LIST:
    case WIRE_LISTREF: {
        std::string text = std::to_string(argument.list->count) + "(";
        for (uint32_t i = 0; i < argument.list->count && i < VLAN_ID_LIST_MAX; i++)
            text.append(i ? " " : "").append(std::to_string(argument.list->ids[i]));
        return text + ")";
    }
    }
    return "?";
}

static std::string traceText(const Operation &operation, const Arguments &arguments, bool onlyReturned)
{
    std::string text;
    for (size_t i = 0; i < arguments.size(); i++)
        if (!onlyReturned || isReturned(arguments[i].tag))
            text += std::string(" ") + operation.parameters[i] + "=" + valueText(operation, i, arguments[i]);
    return text;
}

/* A line reads: [process] operation and what it was called with -> code, and what it returned when it succeeded. */
static void traceCall(pid_t client, const Operation &operation, const std::string &sent, int code,
                      const Arguments &arguments)
{
    std::string line = "[" + std::to_string(client) + "] " + operation.name + sent + " -> " + std::to_string(code);
    if (code == OPEN_OK)
        line += traceText(operation, arguments, true);
    traceLine(line);
}

__attribute__((format(printf, 1, 2))) static Reply refuse(const char *format, ...)
{
    char message[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    complain(message);
    Reply reply;
    reply.action = Reply::HANG_UP;
    return reply;
}

static Reply answerOperation(const Operation &operation, std::string_view rest, pid_t client)
{
    Arguments arguments;
    if (!takeArguments(rest, operation.tags, &arguments))
        return refuse("%s came with other arguments than (%s): client and server are of different builds",
                      operation.name, operation.tags.c_str());
    bool traced = tracing() && !(startLeftOut && isStartCall(operation));
    std::string sent = traced ? traceText(operation, arguments, false) : "";

    Reply reply;
    const Fault *fault = takeFault(operation, arguments);
    int code = fault && fault->hasCode ? fault->code : runOperation(operation, arguments);
    if (fault) {
        overrideOutputs(*fault, operation, &arguments);
        reply.delayMs = fault->delayMs;
        if (fault->hangUp)
            reply.action = Reply::HANG_UP;
    }
    if (traced)
        traceCall(client, operation, sent, code, arguments);
    reply.frame = fault && fault->rubbish ? std::string("\x05\0\0\0\0\0\0\0!", 9) : replyFrame(code, arguments);
    return reply;
}

static Reply answerControl(std::string_view rest)
{
    Arguments arguments;
    if (!takeArguments(rest, std::string(1, WIRE_TEXT), &arguments))
        return refuse("a command came in another form than this build's");
    std::string answer;
    CommandOutcome outcome = runCommand(textOf(&arguments[0].text), &answer);
    arguments[0].bytes = answer;
    arguments[0].text = {(uint32_t)answer.size(), arguments[0].bytes.data()};
    Reply reply;
    if (outcome == COMMAND_AGAIN)
        reply.action = Reply::AGAIN;
    else
        reply.frame = replyFrame(outcome == COMMAND_DONE ? OPEN_OK : OPEN_BAD_ARGUMENT, arguments);
    return reply;
}

Reply answerRequest(std::string_view request, pid_t client)
{
    uint8_t head[2];
    if (!takeValue(&request, &head))
        return refuse("a request without a head");
    if (head[0] != WIRE_VERSION)
        return refuse("a request of protocol version %d; this build speaks %d", head[0], WIRE_VERSION);
    if (request.size() < head[1])
        return refuse("a request that ends within its name");
    std::string name(take(&request, head[1]));
    if (name == WIRE_CONTROL)
        return answerControl(request);
    if (const Operation *operation = findOperation(name))
        return answerOperation(*operation, request, client);

    Reply reply;
    complain("no operation of the name " + quoted(name) + ": client and server are of different builds");
    reply.frame = replyFrame(OPEN_NO_SUCH_OPERATION, {});
    return reply;
}

std::string controlRequest(const std::string &command)
{
    std::string content = {(char)WIRE_VERSION, (char)strlen(WIRE_CONTROL)};
    content += WIRE_CONTROL;
    content += (char)WIRE_TEXT;
    putValue(&content, (uint32_t)command.size() + 1);
    putTrimmed(&content, command.c_str(), (uint32_t)command.size() + 1);
    return frameOf(content);
}

bool controlAnswer(std::string_view reply, int *code, std::string *answer)
{
    Arguments arguments;
    if (!takeValue(&reply, code) || !takeArguments(reply, std::string(1, WIRE_TEXT), &arguments))
        return false;
    *answer = arguments[0].bytes;
    return true;
}
