/*
 * dispatch.cpp - finds and runs the one handler of a request.
 */
#include "httpd/dispatch.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "common/request.h"
#include "httpd/session.h"
#include "log/log.h"

enum { URI_BUFFER = 1024 };

/* What does not fit is cut. */
static void copyText(char (&to)[URI_BUFFER], const char *from)
{
    size_t length = strnlen(from, sizeof to - 1);
    memcpy(to, from, length);
    to[length] = 0;
}

static void logNotFound(const char *requestUri, const char *directory, const char *name)
{
    char *shown = strdup(requestUri);
    if (shown)
        logMaskControls(shown);
    LOG_AS("httpdProcessRequest", LEVEL_ERROR, "method not found:%s\n%s\n%s\n", shown ? shown : "", directory, name);
    free(shown);
}

static bool isAdmitted(const RouteEntry *entry)
{
    return checkSessionX(requestVariable(HTTP_SESSION), requestVariable(HTTP_REFRESH), entry) != -1;
}

/* The last segment of a path without its end; "" for the root. */
static const char *lastSegment(char *path)
{
    for (size_t length = strlen(path); length > 0 && path[length - 1] == '/';)
        path[--length] = 0;
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

void httpdProcessRequest(RouteTree *tree)
{
    const char *requestUri = requestVariable(REQUEST_URI);
    if (!requestUri)
        return;

    char directory[URI_BUFFER];
    copyText(directory, requestUri);

    /* Splits at the last "/" of the whole text. So a "/" in the query makes the request match no endpoint. */
    char *slash = strrchr(directory, '/');
    if (!slash) {
        printf("Invalid request path '%s'\n", directory);
        return;
    }
    char name[URI_BUFFER];
    copyText(name, slash + 1);
    *strchrnul(name, '?') = 0;
    *slash = 0; /* an empty path is the root */

    /* For the log. It changes no lookup: no registered name has control bytes or a "?". */
    logMaskControls(directory);
    logMaskControls(name);

    RouteDir *dir = routeDirFind(tree, directory);
    RouteEntry *entry = dir ? routeEntryFind(dir, name, requestVariable(REQUEST_METHOD)) : nullptr;
    if (!entry) {
        logNotFound(requestUri, lastSegment(directory), name);
        return;
    }
    if (entry->needsSession && !isAdmitted(entry)) {
        LOG(LEVEL_ERROR, "403 Forbidden\n");
        puts("Status:403\r\n\r");
        return;
    }
    if (strncmp(requestUri, "/api/v2/", strlen("/api/v2/")) == 0)
        puts("Content-Type: application/json\r\n\r");
    entry->handler();
}
