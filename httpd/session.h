/*
 * session.h - is the caller logged in, and may this role do that?
 */
#ifndef HTTPD_SESSION_H
#define HTTPD_SESSION_H

#include "httpd/route_tree.h"

/*
 * Checks the session file of `token` (may be null) against what `entry` needs and, unless `refresh` is given, moves its
 * time stamp to now. A session that has been idle for more than two hours is deleted.
 * Returns 0 when the request may go on, -1 when it must be refused.
 */
int checkSessionX(const char *token, const char *refresh, const RouteEntry *entry);

#endif
