/*
 * commands.h - what somebody can tell a running virtual switch. Help, dispatch and the count of words follow from tables.
 */
#ifndef VSWITCH_COMMANDS_H
#define VSWITCH_COMMANDS_H

#include <span>
#include <string>
#include <vector>

/* The words behind a command's name; what stood between quotes is one word. */
using Words = std::vector<std::string>;

enum CommandOutcome {
    COMMAND_DONE,
    COMMAND_REFUSED, /* with a line in *answer that says what is wrong */
    COMMAND_AGAIN    /* not yet: the client waits, others are served, and the command is run again in 5 ms */
};

struct Command {
    const char *name;
    /*
     * The words it takes, for people and for the check: "VLAN MAC PORT" are three, "[OPERATION]" is one or none, and
     * "..." at the end means any number more. It is run only with as many words as that.
     */
    const char *usage;
    const char *help; /* a line; further lines, behind "\n", are shown under it as they are */
    CommandOutcome (*run)(const Words &words, std::string *answer);
    bool alone = false; /* it needs no switch that is running */
};

/* Adds commands under a heading of the help (that of the last ones, or a new one). Rows must live as long as the process. */
void registerCommands(const char *heading, std::span<const Command> commands);

/* The commands as --help shows them: the headings in the order of their registration. */
std::string commandHelp();

/* The command of that name, null when there is none. */
const Command *findCommand(const std::string &name);

/* The words of a line: split at blanks; '...', "..." and \ keep them, as in a shell. False when a quote does not end. */
bool splitWords(const std::string &line, Words *words);

/* The line that splits into these words. */
std::string joinWords(const Words &words);

/* Runs the command of a line. *answer is what it has to say, or what is wrong: lines, each with its end. */
CommandOutcome runCommand(const std::string &line, std::string *answer);

/*
 * Reads all of a text as a number. False without touching *number when it is none, or is not in the range. For command
 * functions: what is refused is told with refuse(answer, "...").
 */
bool readNumber(const std::string &text, long long lowest, long long highest, long long *number);

/* COMMAND_REFUSED, with the line in *answer. */
CommandOutcome refuse(std::string *answer, const std::string &line);

#endif
