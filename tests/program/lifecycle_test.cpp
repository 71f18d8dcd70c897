/*
 * lifecycle_test.cpp - start and end of the process: the wait for the server, the crash record, the libraries.
 */
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/driver.h"

using StartUp = SwitchTest;
using CrashRecord = SwitchTest;
using Libraries = SwitchTest;

TEST_F(StartUp, pausesThreeSecondsBetweenChecks)
{
    command("fault rpcclt_openapiConnectivityCheck code=-1 times=2");
    Environment environment = request("GET", "bridge/dot1d-stp-priority");
    environment["SANDBOX_SLEEP_MS"] = "1";
    EXPECT_NE(run(environment).output.find("32768"), std::string::npos);
    EXPECT_EQ(readFile(tmp("slept")), "3 3 ");
    EXPECT_NE(readFile(directory + "/trace").find("NetworkOSVersionGet version=[100]\"\" -> 0"), std::string::npos);
}

TEST_F(StartUp, endsWithoutARegistration)
{
    Environment environment = request("GET", "bridge/dot1d-stp-priority");
    environment["SANDBOX_REGISTER_FAILS"] = "1";
    Outcome outcome = run(environment);
    EXPECT_EQ(outcome.exitStatus, 255);
    EXPECT_EQ(outcome.output, "");
    EXPECT_NE(log().find("] \nFailed to initialize RPC to OpEN. Exiting (result = -1)\n"), std::string::npos) << log();
}

TEST_F(CrashRecord, isWrittenForAFatalSignal)
{
    for (int signal : {SIGSEGV, SIGABRT}) {
        command("fault rpcclt_openapiDot1dStpPriorityGet delay=5000");
        takeTrace();
        Process process = startProcess(programCommand(), request("GET", "bridge/dot1d-stp-priority"), "");
        awaitCall("rpcclt_openapiDot1dStpPriorityGet"); /* which takes 5 seconds */
        std::string name = readFile("/proc/" + std::to_string(process.pid) + "/comm"); /* the emulator's, with one */
        name = name.substr(0, name.find('\n'));
        kill(process.pid, signal);
        EXPECT_EQ(finishProcess(process).signal, signal);
        std::string record = readFile(tmp("crashlog.txt"));
        const std::string what = " UTC process " + name + " (" + std::to_string(process.pid) + ") died of signal ";
        EXPECT_NE(record.find(what + std::to_string(signal)), std::string::npos) << record;
        EXPECT_NE(record.find("rpcclt_openapiDot1dStpPriorityGet\n"), std::string::npos) << record;
        EXPECT_NE(record.find("switching_v2.cgi+0x"), std::string::npos) << record;
    }
    /* a FIFO without a reader does not hold the process that crashes */
    Environment environment = request("GET", "bridge/dot1d-stp-priority");
    environment["CRASHLOG_FILE"] = tmp("fifo");
    environment["SANDBOX_TEAR_DOWN_CRASHES"] = "1";
    mkfifo(tmp("fifo").c_str(), 0600);
    command("clear");
    EXPECT_EQ(run(environment).signal, SIGABRT); /* not SIGALRM */
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
    EXPECT_EQ(dynamic.find("BIND_NOW"), std::string::npos);
    EXPECT_EQ(dynamic.find("Flags: NOW"), std::string::npos);
    for (const char *library : {"libopenclt.so", "libproc_libs.so"}) {
        std::string path = platformLibraries() + "/" + library;
        EXPECT_EQ(runProcess({"readelf", "-d", path}).output.find("libstdc++"), std::string::npos) << library;
    }

    /* an empty library of that name earlier on the search path is the one that is loaded */
    std::filesystem::create_directories(directory + "/lib");
    writeFile(directory + "/lib/libopenclt.so", "not a library");
    Environment environment = request("GET", "bridge/dot1d-stp-priority");
    environment["LD_LIBRARY_PATH"] = directory + "/lib";
    Outcome outcome = run(environment);
    EXPECT_EQ(outcome.exitStatus, 127);
    EXPECT_NE(outcome.errors.find(directory + "/lib/libopenclt.so"), std::string::npos) << outcome.errors;
}
