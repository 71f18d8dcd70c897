/*
 * commands.h - the registry of commands that a running virtual switch takes. --help and the dispatch follow from it.
 */
#ifndef VSWITCH_COMMANDS_H
#define VSWITCH_COMMANDS_H

#include <stddef.h>
#include <stdint.h>

#include <span>
#include <string>
#include <vector>

/* The arguments behind a command's name; a quoted text is one argument. */
using Args = std::vector<std::string>;

enum CommandOutcome {
    COMMAND_DONE,
    COMMAND_REFUSED, /* with a line in *answer that says what is wrong */
    COMMAND_AGAIN    /* not yet: the client waits, others are served, and the command is run again in 5 ms */
};

/* Groups of --help, in its order. */
enum CommandGroup { FAULT_COMMANDS, SWITCH_COMMANDS, EVENT_COMMANDS, FRAME_COMMANDS };

struct Command {
    CommandGroup group;
    const char *name;
    const char *formerName = nullptr; /* accepted as well, and not shown */
    const char *usage;                /* its arguments as --help shows them */
    size_t fewest, most;              /* how many arguments it takes; ANY_NUMBER for no limit */
    const char *help;                 /* a line; more lines, separated by "\n", are shown below it as they are */
    CommandOutcome (*run)(const Args &args, std::string *answer);
    bool local = false; /* the client runs it itself, without a running switch */
};

inline constexpr size_t ANY_NUMBER = SIZE_MAX;

/* Adds commands. The rows must live as long as the process. */
void registerCommands(std::span<const Command> commands);

/* The commands as --help shows them. */
std::string commandHelp();

/* The command of that name or former name, null when there is none. */
const Command *findCommand(const std::string &name);

/* Splits a line into arguments at blanks; '...', "..." and \ quote as in a shell. False when a quote does not end. */
bool splitArgs(const std::string &line, Args *args);

/* The line that splits into these arguments. */
std::string joinArgs(const Args &args);

/*
 * Finds the command of a line and checks the number of its arguments, which are put into *args. Null with the reason in
 * *answer when there is no such command.
 */
const Command *readCommand(const std::string &line, Args *args, std::string *answer);

/* Reads all of a text as a number. False, and *number stays, when it is none or out of range. */
bool readNumber(const std::string &text, long long lowest, long long highest, long long *number);

/* Puts a line that says what is wrong into *answer. Always COMMAND_REFUSED. */
CommandOutcome refuse(std::string *answer, const std::string &line);

#endif
