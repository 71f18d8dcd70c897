/*
 * faults.cpp - which calls meet a fault, what it does to them, and the commands for it.
 */
#include "faults.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <sstream>

#include "model.h"

static std::map<std::string, Fault> faults; /* by operation; "*" stands for every one */
static Fault current;                       /* the fault of the call being served, also when it was its last time */

const Fault *takeFault(const std::string &operation)
{
    auto found = faults.find(operation);
    if (found == faults.end())
        found = faults.find("*");
    if (found == faults.end())
        return nullptr;
    current = found->second;
    if (found->second.times > 0 && --found->second.times == 0)
        faults.erase(found);
    return &current;
}

/* "10,20,30", or "5:10,20" to state another count than there are ids. */
static void readList(const std::string &text, VlanIdList *list)
{
    *list = {};
    size_t colon = text.find(':');
    std::istringstream ids(colon == std::string::npos ? text : text.substr(colon + 1));
    for (std::string id; std::getline(ids, id, ',') && list->count < VLAN_ID_LIST_MAX;)
        list->ids[list->count++] = (uint16_t)strtoul(id.c_str(), nullptr, 10);
    if (colon != std::string::npos)
        list->count = (uint32_t)strtoul(text.c_str(), nullptr, 10);
}

static void overrideOutput(Argument *argument, const std::string &value)
{
    switch (argument->tag) {
    case WIRE_OUT:
        argument->number = (uint32_t)strtoull(value.c_str(), nullptr, 10);
        return;
    case WIRE_OUT16:
        argument->number16 = (uint16_t)strtoull(value.c_str(), nullptr, 10);
        return;
    case WIRE_OUT64:
        argument->number64 = strtoull(value.c_str(), nullptr, 10);
        return;
    case WIRE_TEXT: /* as much as fits, without a zero at the end if it fills the buffer */
        std::fill(argument->bytes.begin(), argument->bytes.end(), 0);
        std::copy_n(value.begin(), std::min(value.size(), argument->bytes.size()), argument->bytes.begin());
        return;
    case WIRE_LISTREF:
        readList(value, argument->list.get());
        return;
    default:
        return;
    }
}

void overrideOutputs(const Fault &fault, const Operation &operation, Arguments *arguments)
{
    for (size_t i = 0; i < arguments->size(); i++) {
        auto found = fault.outputs.find(operation.parameters[i]);
        if (found != fault.outputs.end())
            overrideOutput(&(*arguments)[i], found->second);
    }
}

/* One "key=value" of a fault; an operation's parameter is a key too. */
static bool readFaultWord(const Operation *operation, const std::string &key, const std::string &value, Fault *fault)
{
    long long number = 0;
    bool isNumber = readNumber(value, INT64_MIN, INT64_MAX, &number);
    if (operation)
        for (size_t i = 0; i < operation->parameters.size(); i++)
            if (key == operation->parameters[i] && strchr("NHQTL", operation->tags[i])) {
                fault->outputs[key] = value;
                return isNumber || strchr("TL", operation->tags[i]);
            }
    if (key == "code" && isNumber && number == (int)number) {
        fault->hasCode = true;
        fault->code = (int)number;
    } else if (key == "times" && isNumber && number > 0) {
        fault->times = (long)number;
    } else if (key == "delay" && isNumber && number >= 0 && number <= 600000) {
        fault->delayMs = (uint32_t)number;
    } else {
        return false;
    }
    return true;
}

static CommandOutcome addFault(const Words &words, std::string *answer)
{
    const std::string &name = words[0];
    const Operation *operation = findOperation(name);
    if (!operation && name != "*")
        return refuse(answer, "there is no operation \"" + name + "\" (\"operations\" lists them, \"*\" is all of them)");
    Fault fault;
    for (size_t i = 1; i < words.size(); i++) {
        const std::string &word = words[i];
        size_t equals = word.find('=');
        if (word == "hangup")
            fault.hangUp = true;
        else if (word == "rubbish")
            fault.rubbish = true;
        else if (equals == std::string::npos ||
                 !readFaultWord(operation, word.substr(0, equals), word.substr(equals + 1), &fault))
            return refuse(answer, "\"" + word + "\" is none of code=N, times=N, delay=MS, hangup, rubbish, or NAME=VALUE "
                                               "for a value that the operation returns");
    }
    faults[name] = fault;
    return COMMAND_DONE;
}

void clearFaults()
{
    faults.clear();
}

static CommandOutcome clear(const Words &words, std::string *answer)
{
    if (words.empty())
        clearFaults();
    else if (!faults.erase(words[0]) && !findOperation(words[0]))
        return refuse(answer, "there is no operation \"" + words[0] + "\"");
    return COMMAND_DONE;
}

static const Command commands[] = {
    {"fault", "OPERATION [WORD...]",
     "make calls of OPERATION ('*': of all) fail:\n"
     "code=N                       answer this code; the switch is not asked and nothing changes\n"
     "NAME=VALUE                   return this value (code=0 NAME=VALUE: without asking the switch)\n"
     "delay=MS  hangup  rubbish    answer late; hang up; answer what is no answer\n"
     "times=N                      for so many calls (until cleared)",
     addFault},
    {"clear", "[OPERATION]", "end faults", clear},
};

std::span<const Command> faultCommands()
{
    return commands;
}
