/*
 * calls.h - one request of a client: decoded, served (or made to fail), traced, encoded.
 */
#ifndef VSWITCH_CALLS_H
#define VSWITCH_CALLS_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <string_view>

/* What becomes of a request. */
struct Reply {
    enum { SEND, HANG_UP, AGAIN } action = SEND; /* AGAIN: nothing yet; the request is to be answered again in a moment */
    std::string frame;    /* what is sent: the length and as many bytes */
    uint32_t delayMs = 0; /* and how much later */
};

/* Says something on standard error, unless nobody reads there: a client must not stop the switch by its rubbish. */
void complain(const std::string &message);

/* Where the trace goes, a line an operation; null for nowhere. */
void traceTo(FILE *file);

/*
 * Serves the bytes of one request (without its length). A request that makes no sense is hung up on, with a message on
 * standard error.
 */
Reply answerRequest(std::string_view request);

/* The frame of a request to the virtual switch itself, and the answer in the reply to it; false when that is no reply. */
std::string controlRequest(const std::string &command);
bool controlAnswer(std::string_view reply, int *code, std::string *answer);

#endif
