/*
 * clock.h - the virtual switch's time: it runs by itself, can be advanced, and can be stopped.
 */
#ifndef VSWITCH_CLOCK_H
#define VSWITCH_CLOCK_H

#include <stdint.h>

/* Since the last reset. */
uint64_t uptimeSeconds();
uint64_t uptimeMillis();

/* Uptime is 0, and the clock runs. */
void resetClock();

/* The commands that advance and stop the clock. Once. */
void registerClock();

#endif
