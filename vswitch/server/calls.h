/*
 * calls.h - one request of a client: decode it, answer it or make it fail, trace it, encode the reply.
 */
#ifndef VSWITCH_CALLS_H
#define VSWITCH_CALLS_H

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <string_view>

/* What the server does with a request. */
struct Reply {
    enum { SEND, HANG_UP, AGAIN } action = SEND; /* AGAIN: there is no reply yet; answer the request again later */
    std::string message;  /* to SEND, its length in front */
    uint32_t delayMs = 0; /* wait so long before the action */
};

/* Makes the trace leave out the three calls that the program makes at its start. */
void leaveOutStart();

/*
 * Answers a request, given without its length, of the process `client`. For an invalid request the action is HANG_UP,
 * and a message goes to standard error.
 */
Reply answerRequest(std::string_view request, pid_t client);

#endif
