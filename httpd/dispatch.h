/*
 * dispatch.h - leads one request to its handler.
 */
#ifndef HTTPD_DISPATCH_H
#define HTTPD_DISPATCH_H

#include "httpd/route_tree.h"

/*
 * Serves the current request: splits REQUEST_URI, finds the entry, checks the session, prints the header and runs the
 * handler. Prints nothing when no entry matches, and "Status:403" when it refuses the session.
 */
void httpdProcessRequest(RouteTree *tree);

#endif
