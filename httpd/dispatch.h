/*
 * dispatch.h - one CGI request, from its environment to its handler.
 */
#ifndef HTTPD_DISPATCH_H
#define HTTPD_DISPATCH_H

#include "httpd/route_tree.h"

/*
 * Serves the current request: splits REQUEST_URI, finds the entry, checks the session, writes the header and runs the
 * handler. A request that matches nothing gets no output, a refused session the line "Status:403".
 */
void httpdProcessRequest(RouteTree *tree);

#endif
