/*
 * numbers.h - what the numbers in arguments mean: the enumerations of numbers.def, and the names of their values.
 */
#ifndef VSWITCH_NUMBERS_H
#define VSWITCH_NUMBERS_H

#include <stdint.h>

#include <string>
#include <vector>

#include "vswitch/base/operations.h"

#define NUMBERS(type, about) enum type : uint32_t {
#define NUMBER(constant, value, name, about) constant = (value),
#define END_NUMBERS(type) };
#include "vswitch/base/numbers.def"

struct Number {
    uint32_t value;
    const char *name, *about;
};

/* What a parameter stands for: an enumeration or a quantity of numbers.def. */
struct Meaning {
    const char *type, *about;
    std::vector<Number> numbers; /* of an enumeration; empty for a quantity */
};

/* What the parameter of the operation means. Null: numbers.def does not say, such as for a plain count. */
const Meaning *meaningOf(const Operation &operation, size_t parameter);

/* Ends the process with a message if numbers.def names an operation or a parameter that does not exist. */
void checkNumbers();

/* Is the number an IPv4 address, in network order? And conversions of such a number. */
bool isIpv4Address(const Operation &operation, size_t parameter);
std::string ipv4Text(uint32_t address);
bool parseIpv4(const std::string &text, uint32_t *address);

/* The operations whose names contain `part` (upper or lower case), with what their parameters mean. */
std::string operationsText(const std::string &part);

/*
 * All operations as JSON: {"operations": [{"name", "modelled", "parameters": [{"name", "direction", "type",
 * "meaning", "range": [least, largest]}]}], "meanings": {"...": {"about", "numbers": [{"value", "word", "about"}]}}}.
 * "direction" is "in" (only sent) or "inout" (sent and returned), "type" is uint32, uint16, uint64, text, list or version.
 * "meaning" is a key of "meanings"; it and "range" can be missing. "word" is the name of the value.
 */
std::string operationsJson();

#endif
