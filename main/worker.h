/*
 * worker.h - a process that serves one request after another.
 */
#ifndef MAIN_WORKER_H
#define MAIN_WORKER_H

#include "httpd/route_tree.h"

/*
 * Serves the requests that come in through `listening`, until SIGTERM, at most 10,000. *busy is true while it serves
 * one. SIGVTALRM ends the process when a request takes longer than 30 seconds.
 */
[[noreturn]] void workerRun(int listening, RouteTree *tree, volatile bool *busy);

#endif
