/*
 * probes.h - the detection frames of loop protection: a frame that comes back shows a loop.
 */
#ifndef VSWITCH_PROBES_H
#define VSWITCH_PROBES_H

#include "vswitch/frames/frame.h"

/* Sends the detection frames that are due. */
void sendDueProbes();

/* Handles a detection frame of this switch that came back. False: it is another frame. */
bool handleProbe(const Frame &frame);

void resetProbes();

#endif
