/*
 * worker.h - a process that serves one request after another.
 */
#ifndef MAIN_WORKER_H
#define MAIN_WORKER_H

#include <stdint.h>

#include "httpd/route_tree.h"

/* The parent ends a worker by SIGVTALRM when its request takes longer. */
enum { REQUEST_SECONDS = 30 };

/*
 * Serves the requests that come in through `listening`, until SIGTERM, at most 10,000. *busySince is the second of
 * CLOCK_MONOTONIC in which the current request came, 0 while there is none. After SIGTERM the process ends by itself
 * when the request takes too long.
 */
[[noreturn]] void workerRun(int listening, RouteTree *tree, volatile int32_t *busySince);

/* CLOCK_MONOTONIC, in seconds. */
int32_t monotonicSeconds();

#endif
