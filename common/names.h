/*
 * names.h - numeric codes, and the names by which clients know them.
 */
#ifndef COMMON_NAMES_H
#define COMMON_NAMES_H

#include <stdint.h>

struct NamedCode {
    uint32_t code;
    const char *name;
};

/* The names of one set of codes. */
struct NameTable {
    const NamedCode *rows;
    uint32_t count;
};

template <uint32_t N> constexpr NameTable nameTable(const NamedCode (&rows)[N])
{
    return {rows, N};
}

/* Returns the first name of `code`; `fallback` when the code has no name. */
const char *nameOf(const NameTable &names, uint32_t code, const char *fallback);

/* Returns the code of exactly `name`; `fallback` for another name or null. */
uint32_t codeOf(const NameTable &names, const char *name, uint32_t fallback);

#endif
