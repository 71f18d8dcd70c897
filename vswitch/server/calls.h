/*
 * calls.h - one request of a client: decoded, served (or made to fail), traced, encoded.
 */
#ifndef VSWITCH_CALLS_H
#define VSWITCH_CALLS_H

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <string_view>

/* What becomes of a request. */
struct Reply {
    enum { SEND, HANG_UP, AGAIN } action = SEND; /* AGAIN: nothing yet, the request is to be answered once more */
    std::string frame;    /* what is sent: the length and as many bytes */
    uint32_t delayMs = 0; /* and how much later */
};

/* Says something on standard error, unless nobody reads there: a client must not stop the switch by its rubbish. */
void complain(const std::string &message);

/* Lets the trace leave out the calls that the program makes at its start, before the request's own. */
void leaveOutStart();

/*
 * Serves the bytes of one request (without its length) that the process `client` sent. A request that makes no sense is
 * hung up on, with a message on standard error.
 */
Reply answerRequest(std::string_view request, pid_t client);

/* The frame of a request to the virtual switch itself, and the answer in the reply to it; false when that is no reply. */
std::string controlRequest(const std::string &command);
bool controlAnswer(std::string_view reply, int *code, std::string *answer);

#endif
