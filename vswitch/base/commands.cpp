/*
 * commands.cpp - the tables of commands, and what a line of words makes of them.
 */
#include "vswitch/base/commands.h"

#include <charconv>

#include "vswitch/base/numbers.h"
#include "vswitch/server/faults.h"
#include "vswitch/switch/model.h"

struct Group {
    const char *heading;
    std::span<const Command> commands;
};

static CommandOutcome reset(const Words &, std::string *)
{
    clearFaults();
    resetModel();
    return COMMAND_DONE;
}

static CommandOutcome pass(const Words &words, std::string *answer)
{
    long long seconds = 0;
    if (!readNumber(words[0], 1, 10000000, &seconds))
        return refuse(answer, "\"pass\" takes a number of seconds from 1 to 10000000, not \"" + words[0] + "\"");
    passTime((uint64_t)seconds);
    return COMMAND_DONE;
}

static CommandOutcome listOperations(const Words &words, std::string *answer)
{
    std::string part = words.empty() ? "" : words[0];
    *answer = part == "--json" ? operationsJson() : operationsText(part);
    return answer->empty() ? refuse(answer, "there is no operation with \"" + part + "\" in its name") : COMMAND_DONE;
}

static const Command switchCommands[] = {
    {"reset", "", "back to the state at start, without faults", reset},
    {"pass", "SECONDS", "let so much time pass at once: what ages, ages", pass},
    {"operations", "[PART | --json]", "the operations (with PART in their names) and what their numbers mean",
     listOperations, true},
};

static std::vector<Group> &groups()
{
    static std::vector<Group> all = {{"faults:", faultCommands()}, {"the switch:", switchCommands}};
    return all;
}

void registerCommands(const char *heading, std::span<const Command> commands)
{
    groups().push_back({heading, commands});
}

const Command *findCommand(const std::string &name)
{
    for (const Group &group : groups())
        for (const Command &command : group.commands)
            if (name == command.name)
                return &command;
    return nullptr;
}

std::string commandHelp()
{
    const size_t column = 34; /* where what they do is said */
    std::string text, heading;
    for (const Group &group : groups()) {
        if (heading != group.heading)
            text.append("\n  ").append(group.heading).append("\n");
        heading = group.heading;
        for (const Command &command : group.commands) {
            std::string line = std::string("    ") + command.name + (*command.usage ? " " : "") + command.usage;
            line += std::string(line.size() + 2 > column ? 2 : column - line.size(), ' ') + command.help;
            for (size_t end; (end = line.find('\n')) != std::string::npos; line.erase(0, end + 1))
                text.append(line, 0, end).append("\n      ");
            text.append(line).append("\n");
        }
    }
    return text;
}

bool splitWords(const std::string &line, Words *words)
{
    words->clear();
    bool within = false; /* a word, which may be an empty one between quotes */
    char quote = 0;
    for (size_t i = 0; i < line.size(); i++) {
        char c = line[i];
        if (!quote && (c == ' ' || c == '\t' || c == '\n')) {
            within = false;
            continue;
        }
        if (!within)
            words->emplace_back();
        within = true;
        if (quote ? c == quote : c == '\'' || c == '"') {
            quote = quote ? '\0' : c;
            continue;
        }
        if (c == '\\' && quote != '\'' && i + 1 < line.size() && (!quote || line[i + 1] == '"' || line[i + 1] == '\\'))
            c = line[++i];
        words->back() += c;
    }
    return !quote;
}

std::string joinWords(const Words &words)
{
    std::string line;
    for (const std::string &word : words) {
        line += line.empty() ? "'" : " '";
        for (char c : word)
            line += c == '\'' ? "'\\''" : std::string(1, c);
        line += "'";
    }
    return line;
}

/* How many words a usage asks for. */
static void countWords(const std::string &usage, size_t *fewest, size_t *most)
{
    bool optional = false;
    Words words;
    splitWords(usage, &words);
    *fewest = *most = 0;
    for (const std::string &word : words) {
        optional = optional || word[0] == '[';
        if (!optional)
            ++*fewest;
        optional = optional && !word.ends_with(']');
        *most += !optional; /* "[A | B]" is one */
    }
    if (usage.ends_with("...") || usage.ends_with("...]"))
        *most = SIZE_MAX;
}

CommandOutcome runCommand(const std::string &line, std::string *answer)
{
    Words words;
    if (!splitWords(line, &words))
        return refuse(answer, "a quote in the command does not end");
    const Command *command = words.empty() ? nullptr : findCommand(words[0]);
    if (!command)
        return refuse(answer, "there is no command \"" + (words.empty() ? "" : words[0]) + "\"; --help lists them");
    words.erase(words.begin());
    size_t fewest, most;
    countWords(command->usage, &fewest, &most);
    if (words.size() < fewest || words.size() > most)
        return refuse(answer, std::string("\"") + command->name + "\" takes " +
                                  (most ? std::string("the words ") + command->usage : "no words") + ", not " +
                                  std::to_string(words.size()));
    bringUpToNow();
    CommandOutcome outcome = command->run(words, answer);
    stateChanged();
    bringUpToNow();
    return outcome;
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
