/*
 * messages.cpp - the virtual switch's end of the wire.
 */
#include "vswitch/base/messages.h"

#include <string.h>

#include <algorithm>

std::string_view takeBytes(std::string_view *from, size_t size)
{
    if (from->size() < size)
        return {};
    std::string_view taken = from->substr(0, size);
    from->remove_prefix(size);
    return taken;
}

template <class T> static bool takeValue(std::string_view *from, T *value)
{
    std::string_view bytes = takeBytes(from, sizeof *value);
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
    std::string_view bytes = takeBytes(from, used);
    memset(to, 0, size);
    std::copy(bytes.begin(), bytes.end(), to);
    return true;
}

static bool takeArgument(std::string_view *from, WireTag tag, Argument *argument)
{
    std::string_view sentTag = takeBytes(from, 1);
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

bool takeArguments(std::string_view from, const std::string &tags, Arguments *arguments)
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

bool isReturned(WireTag tag)
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

static std::string messageOf(const std::string &content)
{
    std::string message;
    putValue(&message, (uint32_t)content.size());
    return message + content;
}

std::string replyMessage(int32_t code, const Arguments &arguments)
{
    std::string content;
    putValue(&content, code);
    for (const Argument &argument : arguments)
        putArgument(&content, argument);
    return messageOf(content);
}

std::string commandRequest(const std::string &command)
{
    std::string content = {(char)WIRE_VERSION, (char)strlen(WIRE_CONTROL)};
    content += WIRE_CONTROL;
    content += (char)WIRE_TEXT;
    putValue(&content, (uint32_t)command.size() + 1);
    putTrimmed(&content, command.c_str(), (uint32_t)command.size() + 1);
    return messageOf(content);
}

bool readCommandReply(std::string_view reply, int *code, std::string *answer)
{
    Arguments arguments;
    if (!takeValue(&reply, code) || !takeArguments(reply, std::string(1, WIRE_TEXT), &arguments))
        return false;
    *answer = arguments[0].bytes;
    return true;
}
