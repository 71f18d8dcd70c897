/*
 * probes.h - the detection frames of loop protection: sent to the ports, and found again when they come back.
 */
#ifndef VSWITCH_PROBES_H
#define VSWITCH_PROBES_H

#include "vswitch/frames/frame.h"

/* Sends the detection frames that are due. */
void sendDueProbes();

/* Takes a detection frame of this switch that came back. False for any other frame. */
bool takeProbe(const Frame &frame);

void resetProbes();

#endif
