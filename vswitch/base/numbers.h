/*
 * numbers.h - what the numbers mean that pass through OpEN: the enumerations of numbers.def, and their words.
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

/* A kind of number or text. */
struct Meaning {
    const char *type, *about;
    std::vector<Number> numbers; /* none for a quantity */
};

/* What the parameter of the operation means; null for a count, or a text that says itself. */
const Meaning *meaningOf(const Operation &operation, size_t parameter);

/* Ends the process with a message when the list names an operation or a parameter that does not exist. */
void checkNumbers();

/* Whether the number is an IPv4 address, four bytes in network order; and such a number as text and back. */
bool isIpv4Address(const Operation &operation, size_t parameter);
std::string ipv4Text(uint32_t address);
bool parseIpv4(const std::string &text, uint32_t *address);

/* The operations whose names hold `part` (letters' case does not matter), with what their parameters mean. */
std::string operationsText(const std::string &part);

/*
 * The same of all operations as JSON: {"operations": [{"name", "modelled", "parameters": [{"name", "direction", "type",
 * "meaning"}]}], "meanings": {"...": {"about", "numbers": [{"value", "word", "about"}]}}}. "direction" is "in" (only sent)
 * or "inout" (sent and returned), "type" uint32, uint16, uint64, text, list or version; "meaning" is a key of "meanings"
 * and can be missing.
 */
std::string operationsJson();

#endif
