/*
 * names.cpp - looks up codes and names. The tables are short: a linear search is enough.
 */
#include "common/names.h"

#include <string.h>

const char *nameOf(const NameTable &names, uint32_t code, const char *fallback)
{
    for (uint32_t i = 0; i < names.count; i++)
        if (names.rows[i].code == code)
            return names.rows[i].name;
    return fallback;
}

uint32_t codeOf(const NameTable &names, const char *name, uint32_t fallback)
{
    for (uint32_t i = 0; name && i < names.count; i++)
        if (strcmp(names.rows[i].name, name) == 0)
            return names.rows[i].code;
    return fallback;
}
