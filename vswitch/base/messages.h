/*
 * messages.h - the server's side of the RPC format (wire.h), and a command's two messages.
 */
#ifndef VSWITCH_MESSAGES_H
#define VSWITCH_MESSAGES_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "vswitch/base/operations.h"

/* A source for wire.h: the bytes that are not taken yet. It does not own them. */
struct MessageSource {
    std::string_view left;

    const char *take(size_t size); /* null: fewer are left */
};

/* Takes the arguments of a call, or of a reply. False: they are not the ones that `tags` describes, or more follows. */
bool takeArguments(MessageSource from, const std::string &tags, Arguments *arguments);

/* A whole reply, its length in front: the code, and the arguments that are returned. */
std::string replyMessage(int32_t code, const Arguments &arguments);

/* A whole request that carries a command to the virtual switch. */
std::string commandRequest(std::string command);

/* Takes the code and the text of the reply to a command. `reply` is without its length. False: it is no such reply. */
bool readCommandReply(std::string_view reply, int32_t *code, std::string *answer);

#endif
