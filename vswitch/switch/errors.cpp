/*
 * errors.cpp - the command `errors`: adds to the counters that nothing simulated reaches.
 */
#include <algorithm>
#include <iterator>

#include "vswitch/base/commands.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/state.h"

/* Frames that arrive too long, or wait too long to leave. */
static void tooLong(PortCounters &counters, uint64_t frames)
{
    counters.inFrames += frames;
    counters.inDiscards += frames;
    counters.tooLong += frames;
}

static void delayed(PortCounters &counters, uint64_t frames)
{
    counters.outDiscards += frames;
}

static const struct Kind {
    const char *name;
    void (*addTo)(PortCounters &counters, uint64_t frames); /* null: PDUs, which `counter` counts */
    MrpCounter counter;
    uint32_t protocols; /* that have the counter: a bit each */
} kinds[] = {
    {"too-long", tooLong, {}, 0},
    {"delayed", delayed, {}, 0},
    {"bad-header", nullptr, MRP_BAD_HEADER, 1 << MVRP | 1 << MMRP},
    {"bad-format", nullptr, MRP_BAD_FORMAT, 1 << MVRP | 1 << MMRP},
    {"not-sent", nullptr, MRP_SEND_FAILED, 1 << MVRP | 1 << MMRP},
    {"not-registered", nullptr, MRP_REGISTRATION_FAILED, 1 << GMRP | 1 << GVRP | 1 << MVRP},
};

/* Counts the PDUs for each protocol that runs on the port. False: none does. */
static bool countPdus(const Kind &kind, uint32_t port, uint64_t number)
{
    bool counted = false;
    for (RegistrationProtocol protocol : {GMRP, GVRP, MVRP, MMRP})
        if (kind.protocols >> protocol & 1 && registrationRuns(protocol, port)) {
            countRegistration(protocol, port, kind.counter, number);
            counted = true;
        }
    return counted;
}

static CommandOutcome errors(const Args &args, std::string *answer)
{
    uint32_t port;
    long long number;
    auto kind = std::find_if(std::begin(kinds), std::end(kinds), [&](const Kind &one) { return args[1] == one.name; });
    if (!readPort(args[0], deviceOptions().ports, &port, answer))
        return COMMAND_REFUSED;
    if (kind == std::end(kinds))
        return refuse(answer, "there are no errors of the kind \"" + args[1] + "\"");
    if (!readNumber(args[2], 1, UINT32_MAX, &number))
        return refuse(answer, "NUMBER is 1 to 4294967295, not \"" + args[2] + "\"");
    if (!portIsUp(port))
        return refuse(answer, "port " + args[0] + " is " + portStatusText(port) + ": it has no traffic");
    if (kind->addTo)
        kind->addTo(countersOf(port), (uint64_t)number);
    else if (!countPdus(*kind, port, (uint64_t)number))
        return refuse(answer, "no protocol that counts this runs on port " + args[0]);
    return COMMAND_DONE;
}

void registerErrors()
{
    static const Command commands[] = {
        {.group = EVENT_COMMANDS, .name = "errors", .usage = "PORT KIND NUMBER", .fewest = 3, .most = 3,
         .help = "the port counts errors: frames too-long or delayed, or registration PDUs bad-header,\n"
                 "bad-format, not-sent or not-registered", .run = errors},
    };
    registerCommands(commands);
}
