/*
 * fuzz_input.h - reads the input of a fuzzer from its front. Behind its end, numbers are zero and texts are empty. And
 * how a fuzzer reports what is wrong.
 */
#ifndef TESTS_FUZZ_FUZZ_INPUT_H
#define TESTS_FUZZ_FUZZ_INPUT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

inline void check(bool holds, const char *what = "", const std::string &output = "")
{
    if (holds)
        return;
    fprintf(stderr, "%s\n%s\n", what, output.c_str());
    abort();
}

struct FuzzInput {
    const uint8_t *bytes;
    size_t size;
};

inline void takeInto(FuzzInput *input, void *to, size_t size)
{
    size_t taken = std::min(size, input->size);
    if (taken)
        memcpy(to, input->bytes, taken);
    if (taken < size)
        memset((char *)to + taken, 0, size - taken);
    input->bytes += taken;
    input->size -= taken;
}

template <class T> T takeNumber(FuzzInput *input)
{
    T number;
    takeInto(input, &number, sizeof number);
    return number;
}

inline std::string takeText(FuzzInput *input, size_t size)
{
    std::string text(std::min(size, input->size), 0);
    takeInto(input, text.data(), text.size());
    return text;
}

/* Up to the next newline, which is dropped. */
inline std::string takeLine(FuzzInput *input)
{
    const void *end = input->size ? memchr(input->bytes, '\n', input->size) : nullptr;
    std::string line = takeText(input, end ? (size_t)((const uint8_t *)end - input->bytes) : input->size);
    takeText(input, 1);
    return line;
}

#endif
