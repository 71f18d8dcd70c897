/*
 * faults.cpp - the commands a running virtual switch takes.
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

/* Reads all of `text` as a number; `end` stops at the first character that is not part of it. */
static bool readNumber(const std::string &text, long long *number)
{
    char *end;
    *number = strtoll(text.c_str(), &end, 10);
    return !text.empty() && !*end;
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
    bool isNumber = readNumber(value, &number);
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

static bool addFault(std::istringstream &words, std::string *answer)
{
    std::string name, word;
    words >> name;
    const Operation *operation = findOperation(name);
    if (!operation && name != "*") {
        *answer = "there is no operation \"" + name + "\" (\"operations\" lists them, \"*\" is all of them)\n";
        return false;
    }
    Fault fault;
    while (words >> word) {
        size_t equals = word.find('=');
        if (word == "hangup") {
            fault.hangUp = true;
        } else if (word == "rubbish") {
            fault.rubbish = true;
        } else if (equals == std::string::npos ||
                   !readFaultWord(operation, word.substr(0, equals), word.substr(equals + 1), &fault)) {
            *answer = "\"" + word + "\" is none of code=N, times=N, delay=MS, hangup, rubbish, or NAME=VALUE for a "
                                    "value that the operation returns\n";
            return false;
        }
    }
    faults[name] = fault;
    return true;
}

static void listOperations(std::string *answer)
{
    for (const Operation &operation : operations()) {
        *answer += operation.name;
        for (size_t i = 0; i < operation.parameters.size(); i++)
            *answer += std::string(" ") + operation.parameters[i] + ":" + operation.tags[i];
        *answer += operation.run ? "\n" : " (the model lacks it)\n";
    }
}

bool runCommand(const std::string &command, std::string *answer)
{
    std::istringstream words(command);
    std::string verb, name;
    words >> verb;
    if (verb == "fault")
        return addFault(words, answer);
    if (verb == "clear") {
        if (!(words >> name)) {
            faults.clear();
        } else if (!faults.erase(name) && !findOperation(name)) {
            *answer = "there is no operation \"" + name + "\"\n";
            return false;
        }
        return true;
    }
    if (verb == "reset" && !(words >> name)) {
        faults.clear();
        resetModel();
        return true;
    }
    if (verb == "pass") {
        long long seconds = 0;
        if (!(words >> name) || !readNumber(name, &seconds) || seconds < 1 || seconds > 10000000) {
            *answer = "\"pass\" takes a number of seconds from 1 to 10000000\n";
            return false;
        }
        passTime((uint64_t)seconds);
        return true;
    }
    if (verb == "operations" && !(words >> name)) {
        listOperations(answer);
        return true;
    }
    *answer = "there is no command \"" + command + "\": fault, clear, reset, pass or operations\n";
    return false;
}
