/*
 * control.cpp - registers and resets everything, and runs commands.
 */
#include "vswitch/server/control.h"

#include "vswitch/base/clock.h"
#include "vswitch/base/numbers.h"
#include "vswitch/frames/frames.h"
#include "vswitch/server/faults.h"
#include "vswitch/switch/device.h"
#include "vswitch/switch/families.h"

static CommandOutcome reset(const Args &, std::string *)
{
    resetAll();
    return COMMAND_DONE;
}

static CommandOutcome listOperations(const Args &args, std::string *answer)
{
    std::string part = args.empty() ? "" : args[0];
    *answer = part == "--json" ? operationsJson() : operationsText(part);
    return answer->empty() ? refuse(answer, "there is no operation with \"" + part + "\" in its name") : COMMAND_DONE;
}

void registerAll()
{
    static const Command commands[] = {
        {.group = SWITCH_COMMANDS, .name = "reset", .usage = "", .fewest = 0, .most = 0,
         .help = "reset to the state at start, without faults", .run = reset},
        {.group = SWITCH_COMMANDS, .local = true, .name = "operations", .usage = "[PART | --json]", .fewest = 0,
         .most = 1,
         .help = "the operations (with PART in their names) and what their numbers mean", .run = listOperations},
    };
    registerCommands(commands);
    registerFaults();
    registerClock();
    registerFamilies();
    registerFrames();
    checkNumbers();
}

void resetAll()
{
    clearFaults();
    resetClock();
    resetFrames();
    resetFamilies();
}

CommandOutcome runCommand(const std::string &line, std::string *answer)
{
    Args args;
    const Command *command = readCommand(line, &args, answer);
    if (!command)
        return COMMAND_REFUSED;
    bringUpToNow();
    CommandOutcome outcome = command->run(args, answer);
    stateChanged();
    bringUpToNow();
    return outcome;
}
