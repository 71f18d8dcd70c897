/*
 * rpc.h - the messages between the client library and the virtual switch as bytes, for tests that send wrong ones, too.
 */
#ifndef TESTS_SUPPORT_RPC_H
#define TESTS_SUPPORT_RPC_H

#include <string>

#include "platform/openclt/wire.h"

inline std::string bytesOf(uint32_t value)
{
    return {(const char *)&value, sizeof value};
}

/* `content` behind its length. */
inline std::string messageOf(const std::string &content)
{
    return bytesOf((uint32_t)content.size()) + content;
}

/* A call of an operation; `arguments` are tags and values. */
inline std::string callOf(const std::string &operation, const std::string &arguments = "")
{
    return messageOf(std::string({(char)WIRE_VERSION, (char)operation.size()}) + operation + arguments);
}

inline std::string replyOf(int code, const std::string &arguments = "")
{
    return messageOf(bytesOf((uint32_t)code) + arguments);
}

/* A text argument as it is sent: the size offered, the length, and the bytes. */
inline std::string textArgument(uint32_t size, uint32_t length, const std::string &bytes)
{
    return "T" + bytesOf(size) + bytesOf(length) + bytes;
}

#endif
