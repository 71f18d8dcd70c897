/*
 * scgi_fuzzer.cpp - any bytes from a client of the resident program. The head is read as by a slow and simple reader.
 */
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>

#include "log/log.h"
#include "main/scgi.h"
#include "tests/fuzz/fuzz_input.h"

/* The head's variables, and its size; 0: it is wrong, or not whole. */
static size_t simpleHead(const std::string &bytes, std::map<std::string, std::string> *variables)
{
    size_t colon = bytes.find(':'), at = colon + 1;
    if (colon == 0 || colon > 6 || bytes.find_first_not_of("0123456789") != colon)
        return 0;
    size_t length = std::stoul(bytes), end = at + length;
    if (length > SCGI_VARIABLES_MAX || end >= bytes.size() || bytes[end] != ',' || (length && bytes[end - 1]))
        return 0;
    for (const std::string all = bytes.substr(0, end); at < end;) {
        std::string name = all.c_str() + at, value;
        at += name.size() + 1;
        if (name.empty() || at >= end)
            return 0;
        value = all.c_str() + at;
        at += value.size() + 1;
        bool known = false;
        for (const char *one : requestVariableNames)
            known = known || name == one;
        if (known && !variables->emplace(name, value).second)
            return 0;
    }
    if (!variables->count("CONTENT_LENGTH"))
        return 0;
    const std::string &size = (*variables)["CONTENT_LENGTH"];
    bool isNumber = size.find_first_not_of("0123456789") == std::string::npos;
    std::string digits = size.substr(std::min(size.find_first_not_of('0'), size.size()));
    return isNumber && digits.size() < 8 && std::stoul("0" + digits) <= SCGI_BODY_MAX ? end + 1 : 0;
}

static void checkVariables(const char *const *found, std::map<std::string, std::string> &expected)
{
    for (int i = 0; i < REQUEST_VARIABLES; i++) {
        auto one = expected.find(requestVariableNames[i]);
        check(found[i] ? one != expected.end() && one->second == found[i] : one == expected.end());
    }
}

static void receive(const std::string &bytes, const ScgiHead &head)
{
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    check(write(ends[0], bytes.data(), bytes.size()) == (ssize_t)bytes.size());
    shutdown(ends[0], SHUT_WR);
    Request request;
    const char *wrong = nullptr;
    ScgiOutcome outcome = scgiReceive(ends[1], &request, &wrong);
    check(outcome == (head.size ? SCGI_REQUEST : bytes.empty() ? SCGI_LOST : SCGI_WRONG));
    check((outcome == SCGI_WRONG) == (wrong != nullptr));
    if (outcome == SCGI_REQUEST) {
        std::string body = bytes.substr(head.size, head.bodySize);
        check(std::string(request.body, request.bodySize) == body);
        requestChoose(&request);
        char read[16];
        check(requestReadBody(read, sizeof read) == std::min(body.size(), sizeof read));
        requestChoose(nullptr);
    }
    scgiEnd(ends[1], 0);
    close(ends[0]);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::unique_ptr<char[]> exact(new char[size]); /* without a byte behind it */
    if (size)
        memcpy(exact.get(), data, size);
    std::string bytes(exact.get(), size);
    std::map<std::string, std::string> expected;
    size_t whole = simpleHead(bytes, &expected);
    ScgiHead head = scgiReadHead(exact.get(), size);
    check(head.size == whole && !(head.wrong && whole));
    if (whole) {
        checkVariables(head.variables, expected);
        ScgiHead half = scgiReadHead(exact.get(), whole - 1);
        check(half.size == 0 && !half.wrong);
    }
    if (size < 65536)
        receive(bytes, head);
    return 0;
}
