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

/* The numbers that setters accept. */
struct Range {
    uint32_t lowest, highest;
    constexpr bool contains(uint64_t number) const { return number >= lowest && number <= highest; }
};

#define RANGE(type, constant, lowest, highest, about) inline constexpr Range constant = {lowest, highest};
#include "vswitch/base/numbers.def"

struct Number {
    uint32_t value;
    const char *name, *about;
};

/* What a parameter stands for: an enumeration, a range or a quantity of numbers.def. */
struct Meaning {
    const char *type;
    std::string about;           /* with the range */
    std::vector<Number> numbers; /* of an enumeration, ascending; else empty */
    bool limited;                /* an enumeration or a range, not a quantity */
    Range range;
};

/* What the parameter of the operation means. Null: numbers.def has no entry for it, as for a plain count. */
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
 * "meaning"}]}], "meanings": {"...": {"about", "lowest", "highest", "numbers": [{"value", "word", "about"}]}}}.
 * "lowest" and "highest" are the range that setters accept; an enumeration or a quantity without a range has neither.
 * "word" is the name of the value, "direction" is "in" (only sent) or "inout" (sent and returned), "type" is uint32,
 * uint16, uint64, text, list or version. "meaning" is a key of "meanings", and can be missing.
 */
std::string operationsJson();

#endif
