/*
 * clock.cpp - the machine's monotonic clock, which commands advance and hold.
 */
#include "vswitch/base/clock.h"

#include <time.h>

#include <algorithm>

#include "vswitch/base/commands.h"

static uint64_t startedMillis, advancedMillis;
static void (*secondHook)();
static uint64_t heldMillis; /* the machine's clock when it was held; 0: it runs */

static uint64_t machineMillis()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (uint64_t)now.tv_sec * 1000 + (uint64_t)now.tv_nsec / 1000000;
}

uint64_t uptimeMillis()
{
    return (heldMillis ? heldMillis : machineMillis()) - startedMillis + advancedMillis;
}

uint64_t uptimeSeconds()
{
    return uptimeMillis() / 1000;
}

void resetClock()
{
    startedMillis = machineMillis();
    advancedMillis = heldMillis = 0;
}

void onSecond(void (*passed)())
{
    secondHook = passed;
}

static CommandOutcome advance(const Args &args, std::string *answer)
{
    long long seconds = 0;
    if (!readNumber(args[0], 1, 10000000, &seconds))
        return refuse(answer, "\"advance\" takes a number of seconds from 1 to 10000000, not \"" + args[0] + "\"");
    uint64_t singly = std::min((uint64_t)seconds, (uint64_t)3600);
    advancedMillis += 1000 * ((uint64_t)seconds - singly);
    for (; singly; singly--) {
        advancedMillis += 1000;
        secondHook();
    }
    return COMMAND_DONE;
}

static CommandOutcome hold(const Args &, std::string *)
{
    if (!heldMillis)
        heldMillis = machineMillis();
    return COMMAND_DONE;
}

void registerClock()
{
    static const Command commands[] = {
        {.group = SWITCH_COMMANDS, .name = "advance", .formerName = "pass", .usage = "SECONDS", .fewest = 1, .most = 1,
         .help = "advance the clock: timers run, addresses age", .run = advance},
        {.group = SWITCH_COMMANDS, .name = "hold", .usage = "", .fewest = 0, .most = 0,
         .help = "stop the clock: from now on only \"advance\" moves it, until \"reset\"", .run = hold},
    };
    registerCommands(commands);
}
