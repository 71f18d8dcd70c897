/*
 * words.h - numeric codes and the words that clients use for them.
 */
#ifndef COMMON_WORDS_H
#define COMMON_WORDS_H

#include <stdint.h>

/* A code and the word a client uses for it. */
struct Word {
    uint32_t code;
    const char *word;
};

/* The words of one set of codes. */
struct WordTable {
    const Word *rows;
    uint32_t count;
};

template <uint32_t N> constexpr WordTable wordTable(const Word (&rows)[N])
{
    return {rows, N};
}

/* The word of `code`, the first of several; `fallback` when it has none. */
const char *wordOf(const WordTable &words, uint32_t code, const char *fallback);

/* The code of exactly `word` (null allowed), `fallback` when there is no such word. */
uint32_t codeOf(const WordTable &words, const char *word, uint32_t fallback);

#endif
