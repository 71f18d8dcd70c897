/*
 * program_test.h - a request to the program, and what holds whatever breaks: the program ends by itself and in time,
 * without a crash; serves no client without a session; and answers correctly, with a failure, or without a body.
 */
#ifndef TESTS_PROGRAM_PROGRAM_TEST_H
#define TESTS_PROGRAM_PROGRAM_TEST_H

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>

#include "tests/support/driver.h"

#define OP "rpcclt_openapi"
#define LOG_FILE "zt731.log"
#define LEVEL_FILE "devmgr_log_level"

using Clock = std::chrono::steady_clock;
using ::testing::HasSubstr;
using namespace std::chrono_literals;

/* A plain reader, and how it answers. */
inline const std::string priority = "bridge/dot1d-stp-priority";
inline const std::string priorityData = success(R"("bridge":{"priority":32768})");
inline const std::string priorityAnswer = header + priorityData;
inline const std::string refused = "Status:403\r\n\r\n";

/* What the log says of the endpoint "nothing". */
inline const std::string notFound = "] method not found:/api/v2/switching/nothing\nswitching\nnothing\n";

enum Kind { ABSENT, FILE_OF, DIRECTORY, PIPE, LINK_TO, SECOND_NAME_OF };

/* Replaces what is at the path. */
inline void put(const std::string &path, Kind kind, const std::string &content = "")
{
    std::filesystem::remove_all(path);
    if (kind == FILE_OF) {
        writeFile(path, content);
    } else if (kind != ABSENT) {
        EXPECT_EQ(kind == DIRECTORY ? mkdir(path.c_str(), 0700)
                  : kind == PIPE    ? mkfifo(path.c_str(), 0600)
                  : kind == LINK_TO ? symlink(content.c_str(), path.c_str())
                                    : link(content.c_str(), path.c_str()), 0);
    }
}

inline bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

class ProgramTest : public SwitchTest {
protected:
    /* The environment of a GET, and `more` variables. */
    Environment get(const std::string &target, Environment more = {})
    {
        more.merge(request("GET", target));
        return more;
    }

    /* The output of a process that must have ended by itself. */
    static std::string outputOf(const Outcome &outcome, int exitStatus = 0)
    {
        EXPECT_EQ(outcome.signal, 0);
        EXPECT_EQ(outcome.exitStatus, exitStatus);
        static const std::regex refusal("==\\d+==WARNING: AddressSanitizer failed to allocate .*\n"); /* as asked */
        EXPECT_EQ(std::regex_replace(outcome.errors, refusal, ""), "");
        return outcome.output;
    }

    /* The output of the program, which must end in time. */
    std::string outputOf(const Environment &environment, const std::string &body = "", int exitStatus = 0)
    {
        Clock::time_point start = Clock::now();
        Outcome outcome = run(environment, body);
        EXPECT_LT(Clock::now() - start, 8s);
        return outputOf(outcome, isResident() ? 0 : exitStatus);
    }

    /* The output of a shell script in which "$@" is the program. `command` starts the shell. */
    static std::string outputAfter(const std::string &script, Environment environment,
                                   std::vector<std::string> command = {})
    {
        /* the sandbox is not for the shell, which can be of another processor */
        command.insert(command.end(), {"sh", "-c", script, "sh", "env", "LD_PRELOAD=" + environment["LD_PRELOAD"]});
        environment.erase("LD_PRELOAD");
        for (const std::string &argument : programCommand())
            command.push_back(argument);
        return outputOf(runProcess(command, environment));
    }

    /* Logs one ERROR entry, `notFound`. Returns the output. */
    std::string logOnce(Environment more = {}) { return outputOf(get("nothing", std::move(more))); }

    /* Gives the file to another user. False without root: the test leaves this case out. */
    static bool giveAway(const std::string &path) { return chown(path.c_str(), 65534, (gid_t)-1) == 0; }

    std::string session() const { return readFile(tmp("session/token")); }

    /* The session file is as it was, or has the stamp of the program. */
    void expectSessionIsWhole() const
    {
        EXPECT_TRUE(std::regex_match(session(), std::regex(R"(admin\n(0\n|\d+\ntoken))"))) << session();
    }
};

#endif
