/*
 * clock.h - the virtual switch's clock: it runs by itself; commands advance and hold it.
 */
#ifndef VSWITCH_CLOCK_H
#define VSWITCH_CLOCK_H

#include <stdint.h>

/* The time since the last reset. */
uint64_t uptimeSeconds();
uint64_t uptimeMillis();

/* Sets the uptime to 0, and lets the clock run. */
void resetClock();

/* Registers a function that sends due frames. `advance` calls it each second; of a long time, in the last hour only. */
void onSecond(void (*passed)());

/* Registers the commands `advance` and `hold`. Call it once. */
void registerClock();

#endif
