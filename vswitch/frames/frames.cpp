/*
 * frames.cpp - connects the parts: plugs call forwarding for each frame, and probes and mrp on each tick.
 */
#include "vswitch/frames/frames.h"

#include "vswitch/frames/forwarding.h"
#include "vswitch/frames/mrp.h"
#include "vswitch/frames/plugs.h"
#include "vswitch/frames/probes.h"

static void sendDueFrames()
{
    sendDueProbes();
    sendDueRegistrations();
}

void registerFrames()
{
    registerPlugs(receiveFrame, sendDueFrames);
}

void resetFrames()
{
    resetForwarding();
    resetProbes();
    resetMrp();
}
