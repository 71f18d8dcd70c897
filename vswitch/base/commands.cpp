/*
 * commands.cpp - the registry of commands; splits and checks lines.
 */
#include "vswitch/base/commands.h"

#include <algorithm>
#include <charconv>

static std::vector<const Command *> &registry()
{
    static std::vector<const Command *> all;
    return all;
}

void registerCommands(std::span<const Command> commands)
{
    for (const Command &command : commands)
        registry().push_back(&command);
}

static const Command *findCommand(const std::string &name)
{
    for (const Command *command : registry())
        if (name == command->name || (command->formerName && name == command->formerName))
            return command;
    return nullptr;
}

std::string commandHelp()
{
    static const char *const headings[] = {"faults:", "the switch:", "what happens:", "frames:"};
    const size_t column = 34; /* where the help of a command begins */
    std::vector<const Command *> sorted = registry();
    std::stable_sort(sorted.begin(), sorted.end(), [](auto *one, auto *other) { return one->group < other->group; });
    std::string text;
    int group = -1;
    for (const Command *command : sorted) {
        if (command->group != group)
            text.append("\n  ").append(headings[command->group]).append("\n");
        group = command->group;
        std::string line = std::string("    ") + command->name + (*command->usage ? " " : "") + command->usage;
        line += std::string(line.size() + 2 > column ? 2 : column - line.size(), ' ') + command->help;
        for (size_t end; (end = line.find('\n')) != std::string::npos; line.erase(0, end + 1))
            text.append(line, 0, end).append("\n      ");
        text.append(line).append("\n");
    }
    return text;
}

bool splitArgs(const std::string &line, Args *args)
{
    args->clear();
    bool within = false; /* inside an argument, which can be empty quotes */
    char quote = 0;
    for (size_t i = 0; i < line.size(); i++) {
        char c = line[i];
        if (!quote && (c == ' ' || c == '\t' || c == '\n')) {
            within = false;
            continue;
        }
        if (!within)
            args->emplace_back();
        within = true;
        if (quote ? c == quote : c == '\'' || c == '"') {
            quote = quote ? '\0' : c;
            continue;
        }
        if (c == '\\' && quote != '\'' && i + 1 < line.size() && (!quote || line[i + 1] == '"' || line[i + 1] == '\\'))
            c = line[++i];
        args->back() += c;
    }
    return !quote;
}

std::string joinArgs(const Args &args)
{
    std::string line;
    for (const std::string &arg : args) {
        line += line.empty() ? "'" : " '";
        for (char c : arg)
            line += c == '\'' ? "'\\''" : std::string(1, c);
        line += "'";
    }
    return line;
}

const Command *readCommand(const std::string &line, Args *args, std::string *answer)
{
    if (!splitArgs(line, args)) {
        refuse(answer, "a quote in the command does not end");
        return nullptr;
    }
    std::string name = args->empty() ? "" : args->front();
    const Command *command = findCommand(name);
    if (!command) {
        refuse(answer, "there is no command \"" + name + "\"; --help lists them");
        return nullptr;
    }
    args->erase(args->begin());
    if (args->size() >= command->fewest && args->size() <= command->most)
        return command;
    std::string takes = command->most ? std::string("the arguments ") + command->usage : "no arguments";
    refuse(answer, "\"" + name + "\" takes " + takes + ", not " + std::to_string(args->size()));
    return nullptr;
}

bool readNumber(const std::string &text, long long lowest, long long highest, long long *number)
{
    long long value = 0;
    std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() || value < lowest || value > highest)
        return false;
    *number = value;
    return true;
}

CommandOutcome refuse(std::string *answer, const std::string &line)
{
    *answer = line + "\n";
    return COMMAND_REFUSED;
}
