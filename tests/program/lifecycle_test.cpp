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
    std::string dynamic = runProcess({"readelf", "-d", programCommand().back()}).output, needed;
    if (dynamic.find("asan") != std::string::npos)
        GTEST_SKIP() << "a sanitizer build brings its own";
    const std::regex library(R"(Shared library: \[(.*)\])");
    for (std::sregex_iterator at(dynamic.begin(), dynamic.end(), library), end; at != end; ++at)
        needed += (*at)[1].str() + " ";
    /* for aarch64, the stack guard is in the loader */
    EXPECT_EQ(needed.substr(0, needed.find("ld-linux-aarch64")), "libopenclt.so libproc_libs.so libcjson.so.1 libc.so.6 ");
    EXPECT_THAT(dynamic, Not(AnyOf(HasSubstr("BIND_NOW"), HasSubstr("Flags: NOW"))));
    for (const char *name : {"/libopenclt.so", "/libproc_libs.so"})
        EXPECT_THAT(runProcess({"readelf", "-d", platformLibraries() + name}).output, Not(HasSubstr("libstdc++")));

    /* a library of that name earlier on the search path is the one that is loaded */
    put(directory + "/lib", DIRECTORY);
    put(directory + "/lib/libopenclt.so", FILE_OF, "not a library");
    Outcome outcome = run(get(priority, {{"LD_LIBRARY_PATH", directory + "/lib"}}));
    EXPECT_EQ(outcome.exitStatus, 127);
    EXPECT_THAT(outcome.errors, HasSubstr(directory + "/lib/libopenclt.so"));
}
