/*
 * messages.h - the bytes of calls and replies (wire.h), decoded and encoded. All that comes from a client is untrusted.
 */
#ifndef VSWITCH_MESSAGES_H
#define VSWITCH_MESSAGES_H

#include <stdint.h>

#include <string>
#include <string_view>

#include "vswitch/base/operations.h"

/* Takes `size` bytes off the front of `from`. An empty view when there are not as many. */
std::string_view takeBytes(std::string_view *from, size_t size);

/* Is an argument of that kind returned, or only sent? */
bool isReturned(WireTag tag);

/* Decodes the arguments of a call. False when they are not those that `tags` says. */
bool takeArguments(std::string_view from, const std::string &tags, Arguments *arguments);

/* A whole reply, its length in front: the code, and the arguments that are returned. */
std::string replyMessage(int32_t code, const Arguments &arguments);

/* A whole request for a command of the virtual switch; and the code and the text of the reply, false for no such reply. */
std::string commandRequest(const std::string &command);
bool readCommandReply(std::string_view reply, int *code, std::string *answer);

#endif
