/*
 * frames.h - starts and resets the floor of Ethernet frames.
 */
#ifndef VSWITCH_FRAMES_H
#define VSWITCH_FRAMES_H

/* Registers the commands on frames, and the functions that plugs call for each frame and every 100 ms. Call it once. */
void registerFrames();

/* Resets the state that frames leave behind in storm control, probes and mrp. */
void resetFrames();

#endif
