/*
 * lifecycle_test.cpp - the process: its registration, its standard streams, its crash record, its libraries.
 */
#include <signal.h>

#include "tests/program/program_test.h"

using StartUp = ProgramTest;
using StreamFault = ProgramTest;
using CrashRecord = ProgramTest;
using Libraries = ProgramTest;

TEST_F(StartUp, endsWithoutARegistration)
{
    EXPECT_EQ(outputOf(get(priority, {{"SANDBOX_REGISTER_FAILS", "1"}}), "", 255), "");
    EXPECT_THAT(log(), HasSubstr("] \nFailed to initialize RPC to OpEN. Exiting (result = -1)\n"));
}

TEST_F(StreamFault, isClosedOrFull)
{
    const struct { const char *what, *script; std::string output; } rows[] = {
        {"output closed", "exec \"$@\" >&-", ""},
        {"output full", "exec \"$@\" >/dev/full", ""},
        {"output read-only", "exec \"$@\" 1</dev/null", ""},
        {"input closed", "exec \"$@\" <&-", priorityAnswer},
        {"errors closed", "exec \"$@\" 2>&-", priorityAnswer},
        {"all closed", "exec \"$@\" <&- >&- 2>&-", ""},
    };
    for (const auto &row : rows)
        for (const std::string level : {"6", "7"}) {
            SCOPED_TRACE(row.what);
            put(tmp(LOG_FILE), FILE_OF);
            writeFile(tmp(LEVEL_FILE), level);
            EXPECT_EQ(outputAfter(row.script, get(priority)), row.output);
            EXPECT_EQ(readFile(tmp(LEVEL_FILE)), level + std::string(3, 0)); /* no answer in it */
            EXPECT_THAT(log(), Not(HasSubstr("32768")));
            expectSessionIsWhole();
        }

    /* a body that cannot be read is an empty one */
    EXPECT_EQ(outputAfter("exec \"$@\" <&-", request("PUT", "bridge/db-dot1d-tp-aging-time", "{}")),
              header + failureLine(10003));
}

TEST_F(StreamFault, outputHasNoReader)
{
    Process process = startProcess(programCommand(), get(priority), "");
    close(process.output);
    process.output = -1;
    outputOf(finishProcess(process)); /* no SIGPIPE */
}

TEST_F(StreamFault, bodyEndsEarly)
{
    for (const char *length : {"17", "1000", "300000000", "100000000000000", "-1", "x", ""}) {
        SCOPED_TRACE(length);
        Environment environment = request("PUT", "bridge/db-dot1d-tp-aging-time");
        environment["CONTENT_LENGTH"] = length;
        EXPECT_EQ(outputOf(environment, R"({"agingTime":300)"), header + failureLine(10003));
    }
    /* a form body that cannot be had is no empty one, and no answer */
    Environment environment = request("PUT", "macal/rule-is-service-port");
    environment["CONTENT_LENGTH"] = "100000000000000";
    EXPECT_EQ(outputOf(environment, "macalName=mgmt", 1), "");
    EXPECT_EQ(takeTrace(), "");
}

TEST_F(CrashRecord, isWrittenForAFatalSignal)
{
    for (int signal : {SIGSEGV, SIGABRT}) {
        command("fault " OP "Dot1dStpPriorityGet delay=5000");
        takeTrace();
        Process process = startProcess(programCommand(), get(priority), "");
        awaitCall(OP "Dot1dStpPriorityGet");
        std::string name = readFile("/proc/" + std::to_string(process.pid) + "/comm"); /* the emulator's, with one */
        name = name.substr(0, name.find('\n'));
        kill(process.pid, signal);
        EXPECT_EQ(finishProcess(process).signal, signal);
        std::string record = readFile(tmp("crashlog.txt"));
        const std::string what = " UTC process " + name + " (" + std::to_string(process.pid) + ") died of signal ";
        EXPECT_THAT(record, AllOf(HasSubstr(what + std::to_string(signal)), HasSubstr(OP "Dot1dStpPriorityGet\n"),
                                  HasSubstr("switching_v2.cgi+0x")));
    }
    /* A FIFO without a reader does not hold a process that crashes. The answer is out before the tear-down. */
    put(tmp("fifo"), PIPE);
    command("clear");
    Outcome outcome = run(get(priority, {{"CRASHLOG_FILE", tmp("fifo")}, {"SANDBOX_TEAR_DOWN_CRASHES", "1"}}));
    EXPECT_EQ(outcome.signal, SIGABRT); /* not SIGALRM */
    EXPECT_EQ(outcome.output, priorityAnswer);
}

/* The run-time libraries; those of the switch can take the place of the stand-ins. */
TEST_F(Libraries, areTheFourOfTheSwitch)
{
    std::string dynamic = runProcess({"readelf", "-d", programCommand().back()}).output;
    if (dynamic.find("asan") != std::string::npos)
        GTEST_SKIP() << "a sanitizer build brings its own";
    std::string needed;
    const std::string mark = "Shared library: [";
    for (size_t at = 0; (at = dynamic.find(mark, at)) != std::string::npos; at++)
        needed += dynamic.substr(at + mark.size(), dynamic.find(']', at) - at - mark.size()) + " ";
    const std::string loader = "ld-linux-aarch64.so.1 "; /* where the stack guard is in the loader */
    if (needed.ends_with(loader))
        needed.resize(needed.size() - loader.size());
    EXPECT_EQ(needed, "libopenclt.so libproc_libs.so libcjson.so.1 libc.so.6 ");
    EXPECT_THAT(dynamic, Not(AnyOf(HasSubstr("BIND_NOW"), HasSubstr("Flags: NOW"))));
    for (const char *library : {"libopenclt.so", "libproc_libs.so"}) {
        std::string path = platformLibraries() + "/" + library;
        EXPECT_EQ(runProcess({"readelf", "-d", path}).output.find("libstdc++"), std::string::npos) << library;
    }

    /* an empty library of that name earlier on the search path is the one that is loaded */
    std::filesystem::create_directories(directory + "/lib");
    writeFile(directory + "/lib/libopenclt.so", "not a library");
    Outcome outcome = run(get(priority, {{"LD_LIBRARY_PATH", directory + "/lib"}}));
    EXPECT_EQ(outcome.exitStatus, 127);
    EXPECT_THAT(outcome.errors, HasSubstr(directory + "/lib/libopenclt.so"));
}
