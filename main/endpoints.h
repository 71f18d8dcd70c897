/*
 * endpoints.h - every endpoint of the program.
 */
#ifndef MAIN_ENDPOINTS_H
#define MAIN_ENDPOINTS_H

#include "httpd/route_tree.h"

/* Registers all families. Where two share a directory the order matters: the entry registered later answers. */
void registerEndpoints(RouteTree *tree);

#endif
