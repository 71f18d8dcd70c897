/*
 * frames.cpp - puts the parts together: the plugs call the forwarding for each frame, and what sends by itself for each tick.
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
