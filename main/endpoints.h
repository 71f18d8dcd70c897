/*
 * endpoints.h - every endpoint of the program.
 */
#ifndef MAIN_ENDPOINTS_H
#define MAIN_ENDPOINTS_H

#include "httpd/route_tree.h"

/* Registers all families. Their order matters where two of them share a directory: the later registration answers. */
void registerEndpoints(RouteTree *tree);

#endif
