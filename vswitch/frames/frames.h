/*
 * frames.h - Ethernet frames through the switch, from the plugged ports and to them.
 */
#ifndef VSWITCH_FRAMES_H
#define VSWITCH_FRAMES_H

/* The commands on frames, and what happens when a frame comes and when 100 ms have passed. Once. */
void registerFrames();

/* Forgets what frames have left behind: how much of each storm passed, what was sent when, what neighbours were told. */
void resetFrames();

#endif
