/*
 * commands.h - the registry of the commands of the virtual switch. --help is made from it.
 */
#ifndef VSWITCH_COMMANDS_H
#define VSWITCH_COMMANDS_H

#include <stddef.h>
#include <stdint.h>

#include <span>
#include <string>
#include <vector>

/* The arguments after a command's name, without quotes. */
using Args = std::vector<std::string>;

enum CommandOutcome {
    COMMAND_DONE,
    COMMAND_REFUSED, /* with a line in *answer that says what is wrong */
    COMMAND_AGAIN    /* not yet: the server runs it again in 5 ms, and serves other clients meanwhile */
};

/* Groups of --help, in its order. */
enum CommandGroup { FAULT_COMMANDS, SWITCH_COMMANDS, EVENT_COMMANDS, FRAME_COMMANDS };

struct Command {
    CommandGroup group;
    bool local = false; /* the client runs it, without a running switch */
    const char *name;
    const char *formerName = nullptr; /* also accepted; --help does not show it */
    const char *usage;                /* the arguments as --help shows them */
    size_t fewest, most;              /* number of arguments; ANY_NUMBER: no limit */
    const char *help;                 /* one line, or several with "\n" between them */
    CommandOutcome (*run)(const Args &args, std::string *answer);
};

inline constexpr size_t ANY_NUMBER = SIZE_MAX;

/* Adds commands. The rows must exist until the process ends. */
void registerCommands(std::span<const Command> commands);

/* The commands as --help shows them. */
std::string commandHelp();

/* Splits a line into arguments at blanks; '...', "..." and \ quote as in a shell. False when a quote does not end. */
bool splitArgs(const std::string &line, Args *args);

/* The reverse of splitArgs: quotes and joins the arguments. */
std::string joinArgs(const Args &args);

/* Finds the command of a line, and stores its arguments. Null: no such command, or the number of arguments is wrong. */
const Command *readCommand(const std::string &line, Args *args, std::string *answer);

/* Reads a decimal number. False: the text is no number, or out of range; *number is unchanged. */
bool readNumber(const std::string &text, long long lowest, long long highest, long long *number);

/* Stores a message, given without its line end. Returns COMMAND_REFUSED. */
CommandOutcome refuse(std::string *answer, const std::string &line);

#endif
