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
    std::string message;  /* what is sent: the length and as many bytes */
    uint32_t delayMs = 0; /* and how much later */
};

/* Lets the trace leave out the calls that the program makes at its start, before the request's own. */
void leaveOutStart();

/*
 * Serves the bytes of one request (without its length) that the process `client` sent. A request that makes no sense is
 * hung up on, with a message on standard error.
 */
Reply answerRequest(std::string_view request, pid_t client);

#endif
