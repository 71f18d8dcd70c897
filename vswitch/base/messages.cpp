/*
 * messages.cpp - takes arguments out of untrusted messages, and puts messages together.
 */
#include "vswitch/base/messages.h"

struct MessageSink {
    std::string bytes;

    void put(const void *from, size_t size) { bytes.append((const char *)from, size); }
};

const char *MessageSource::take(size_t size)
{
    if (left.size() < size)
        return nullptr;
    const char *taken = left.data();
    left.remove_prefix(size);
    return taken;
}

/* Calls `use` with the value that the argument's tag stands for. False: the tag is unknown, or `use` returned false. */
template <class ArgumentType, class Use> static bool withValue(ArgumentType &argument, Use use)
{
    switch (argument.tag) {
    case WIRE_IN:
    case WIRE_OUT:
        return use(argument.number);
    case WIRE_OUT16:
        return use(argument.number16);
    case WIRE_OUT64:
        return use(argument.number64);
    case WIRE_VERSION4:
        return use(argument.version);
    case WIRE_TEXT:
        return use(argument.text);
    case WIRE_LIST:
    case WIRE_LISTREF:
        return use(*argument.list);
    }
    return false;
}

/* Gives the argument a buffer of the size that comes next in `from`. */
static bool makeBuffer(MessageSource from, Argument *argument)
{
    uint32_t size;
    if (!wireTake(from, &size) || size > WIRE_TEXT_MAX)
        return false;
    argument->bytes.resize(size);
    argument->text = {size, argument->bytes.data()};
    return true;
}

static bool takeArgument(MessageSource *from, WireTag tag, Argument *argument)
{
    if (!wireTakeTag(*from, tag))
        return false;
    argument->tag = tag;
    argument->number64 = 0;
    if (tag == WIRE_TEXT && !makeBuffer(*from, argument))
        return false;
    if (tag == WIRE_LIST || tag == WIRE_LISTREF)
        argument->list = std::make_unique<VlanIdList>();
    return withValue(*argument, [=](auto &value) { return wireTake(*from, &value); });
}

bool takeArguments(MessageSource from, const std::string &tags, Arguments *arguments)
{
    arguments->resize(tags.size());
    for (size_t i = 0; i < tags.size(); i++)
        if (!takeArgument(&from, (WireTag)tags[i], &(*arguments)[i]))
            return false;
    return from.left.empty();
}

static std::string messageOf(const MessageSink &content)
{
    MessageSink message;
    wirePut(message, (uint32_t)content.bytes.size());
    return message.bytes + content.bytes;
}

std::string replyMessage(int32_t code, const Arguments &arguments)
{
    MessageSink content;
    wirePut(content, code);
    for (const Argument &argument : arguments)
        withValue(argument, [&](const auto &value) {
            if (wireIsReturned(argument.tag))
                wirePutArgument(content, argument.tag, value);
            return true;
        });
    return messageOf(content);
}

std::string commandRequest(std::string command)
{
    MessageSink content;
    OpenBufferDesc text = {(uint32_t)command.size() + 1, command.data()};
    wirePutHead(content, WIRE_CONTROL);
    wirePutArgument(content, WIRE_TEXT, text);
    return messageOf(content);
}

bool readCommandReply(std::string_view reply, int32_t *code, std::string *answer)
{
    MessageSource source = {reply};
    Arguments arguments;
    if (!wireTake(source, code) || !takeArguments(source, {WIRE_TEXT}, &arguments))
        return false;
    *answer = arguments[0].bytes;
    return true;
}
