/*
 * request.cpp - the current request: one in memory, or else that of the CGI environment.
 */
#include "common/request.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

const char *const requestVariableNames[REQUEST_VARIABLES] = {"REQUEST_URI",    "REQUEST_METHOD", "QUERY_STRING",
                                                             "CONTENT_LENGTH", "HTTP_SESSION",   "HTTP_REFRESH"};

static Request *current; /* null: the CGI environment and standard input */

void requestChoose(Request *request)
{
    current = request;
}

const char *requestVariable(RequestVariable variable)
{
    return current ? current->variables[variable] : getenv(requestVariableNames[variable]);
}

size_t requestReadBody(char *to, size_t size)
{
    if (!current)
        return fread(to, 1, size, stdin);
    if (size > current->bodySize)
        size = current->bodySize;
    memcpy(to, current->body, size);
    current->body += size;
    current->bodySize -= size;
    return size;
}
