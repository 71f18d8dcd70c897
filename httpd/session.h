/*
 * session.h - checks that the client is logged in and that its role may use the endpoint.
 */
#ifndef HTTPD_SESSION_H
#define HTTPD_SESSION_H

#include "httpd/route_tree.h"

/*
 * Checks the session file of `token` (may be null) against what `entry` needs. If `refresh` is null, also sets the
 * session's time stamp to now. Deletes a session that was idle for more than 2 hours. Returns 0: serve the request;
 * -1: refuse it.
 */
int checkSessionX(const char *token, const char *refresh, const RouteEntry *entry);

#endif
