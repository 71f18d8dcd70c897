/*
 * words.cpp - looks codes and words up in each other's tables, which are short.
 */
#include "common/words.h"

#include <string.h>

const char *wordOf(const WordTable &words, uint32_t code, const char *fallback)
{
    for (uint32_t i = 0; i < words.count; i++)
        if (words.rows[i].code == code)
            return words.rows[i].word;
    return fallback;
}

uint32_t codeOf(const WordTable &words, const char *word, uint32_t fallback)
{
    for (uint32_t i = 0; word && i < words.count; i++)
        if (strcmp(words.rows[i].word, word) == 0)
            return words.rows[i].code;
    return fallback;
}
