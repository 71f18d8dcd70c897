/*
 * calls.cpp - decodes, answers and traces calls. Everything in a request is untrusted.
 */
#include "vswitch/server/calls.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "vswitch/base/messages.h"
#include "vswitch/base/numbers.h"
#include "vswitch/base/operations.h"
#include "vswitch/base/trace.h"
#include "vswitch/base/values.h"
#include "vswitch/server/control.h"
#include "vswitch/server/faults.h"
#include "vswitch/switch/families.h"

static bool startLeftOut;

void leaveOutStart()
{
    startLeftOut = true;
}

/*
 * A text as the trace shows it: in quotes, without the zeros at its end, with \xNN for bytes that do not print. It is
 * cut after SHOWN_MAX bytes, more than a request of the program can hold; "..." follows then.
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

/* The value of an argument: 5, [18]"00:11:22:33:44:55" (size of the buffer), 3(10 20 30) (count of the list). */
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
        if (!onlyReturned || wireIsReturned(arguments[i].tag))
            text += std::string(" ") + operation.parameters[i] + "=" + valueText(operation, i, arguments[i]);
    return text;
}

/* Writes "[process] OPERATION SENT -> code RETURNED". What is returned is shown after OPEN_OK only. */
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
    printError(message);
    Reply reply;
    reply.action = Reply::HANG_UP;
    return reply;
}

static Reply answerOperation(const Operation &operation, MessageSource rest, pid_t client)
{
    Arguments arguments;
    if (!takeArguments(rest, operation.tags, &arguments))
        return refuse("a call of %s does not have the arguments (%s): client and server are of different builds",
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
    reply.message = fault && fault->garbage ? std::string("\x05\0\0\0\0\0\0\0!", 9) : replyMessage(code, arguments);
    return reply;
}

static Reply answerCommand(MessageSource rest)
{
    Arguments arguments;
    if (!takeArguments(rest, {WIRE_TEXT}, &arguments))
        return refuse("a command is not one text: client and server are of different builds");
    std::string answer;
    CommandOutcome outcome = runCommand(textOf(&arguments[0].text), &answer);
    arguments[0].bytes = answer;
    arguments[0].text = {(uint32_t)answer.size(), arguments[0].bytes.data()};
    Reply reply;
    if (outcome == COMMAND_AGAIN)
        reply.action = Reply::AGAIN;
    else
        reply.message = replyMessage(outcome == COMMAND_DONE ? OPEN_OK : OPEN_BAD_ARGUMENT, arguments);
    return reply;
}

Reply answerRequest(std::string_view request, pid_t client)
{
    MessageSource source = {request};
    WireHead head;
    if (!wireTake(source, &head))
        return refuse("a request ends within its head");
    if (head.version != WIRE_VERSION)
        return refuse("a request has protocol version %d; this build speaks %d", head.version, WIRE_VERSION);
    const char *bytes = source.take(head.nameLength);
    if (!bytes)
        return refuse("a request ends within the operation's name");
    std::string name(bytes, head.nameLength);
    if (name == WIRE_CONTROL)
        return answerCommand(source);
    if (const Operation *operation = findOperation(name))
        return answerOperation(*operation, source, client);

    Reply reply;
    printError("there is no operation " + quoted(name) + ": client and server are of different builds");
    reply.message = replyMessage(OPEN_NO_SUCH_OPERATION, {});
    return reply;
}
