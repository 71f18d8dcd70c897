/*
 * driver.h - runs the real program in front of a virtual switch that each test starts, and collects calls and answers.
 */
#ifndef TESTS_SUPPORT_DRIVER_H
#define TESTS_SUPPORT_DRIVER_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

using Environment = std::map<std::string, std::string>;

/* How a process ended and what it wrote. */
struct Outcome {
    int exitStatus = -1; /* -1 when a signal ended it */
    int signal = 0;
    std::string output;
    std::string errors;
};

/* The build whose program and virtual switch are tested: this one, unless TEST_BUILD names another. */
std::string buildDirectory();

/*
 * The command that starts the program: that of the build, unless the environment says otherwise.
 *
 *   TEST_PROGRAM     the path of another build of it, say one for the switch's processor
 *   TEST_LIBRARIES   the directory of its platform libraries, for one without a run path
 *   TEST_SANDBOX     the sandbox library of its kind
 *   TEST_RESIDENT    if set, SwitchTest::run sends its requests to one worker of the resident program
 *   TEST_LAUNCHER    the command to start it with, say an emulator, which has to leave LD_PRELOAD to the program
 */
std::vector<std::string> programCommand();

/* The directory of the program's platform libraries. */
std::string platformLibraries();

/* A process in the background. */
struct Process {
    pid_t pid = -1;
    int output = -1; /* its standard output */
    int errors = -1;
};

/* Starts `command` with exactly `environment` and PATH. `input` is its standard input: a text or a descriptor. */
Process startProcess(const std::vector<std::string> &command, const Environment &environment, const std::string &input);
Process startProcess(const std::vector<std::string> &command, const Environment &environment, int input);

/* Waits for the end, at most a minute: what takes longer hangs, and is killed. */
Outcome finishProcess(Process process);

inline Outcome runProcess(const std::vector<std::string> &command, const Environment &environment = {},
                          const std::string &input = "")
{
    return finishProcess(startProcess(command, environment, input));
}

/* A connection to the server on a Unix-domain socket. The test fails without one. */
int connectTo(const std::string &path);

/* A directory of this test process, removed at its end. */
const std::string &scratchDirectory();

/* Makes this process use a directory of that name in there as /tmp. Returns its path. (Needs the sandbox.) */
std::string enterSandbox(const std::string &name);

std::string readFile(const std::string &path);
void writeFile(const std::string &path, const std::string &content);

/* What stands before the body of every answer. */
inline const std::string header = "Content-Type: application/json\r\n\r\n";

/* The expected bodies. `data` is compact JSON without the outer braces. */
std::string success(const std::string &data); /* no line end */
std::string successLine();                    /* no data, line end */
std::string failure(int code, const std::string &message = ""); /* no line end; knows the messages of common codes */
std::string failureLine(int code, const std::string &message = "");

/* A virtual switch for each test, and the program in front of it. */
class SwitchTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /* Starts another switch in place of the one that runs. */
    void startSwitch(const std::vector<std::string> &options = {});
    void stopSwitch();

    /* The command line of a switch on the socket, or of a command to the running one. */
    std::vector<std::string> switchCommand(const std::vector<std::string> &arguments) const;

    /* Starts a switch and waits until it serves. The caller ends it. */
    Process launchSwitch(const std::vector<std::string> &options);

    /* Sends a command to the running switch: "fault ...", "clear", "reset". */
    void command(const std::string &command);

    /* The CGI environment of a request; the query is taken from the target. */
    Environment request(const std::string &method, const std::string &target, const std::string &body = "");
    /* Is TEST_RESIDENT set? Then there is no exit status to be seen: it is 0. */
    static bool isResident();
    Outcome run(const Environment &environment, const std::string &body = "");

    /*
     * Plays steps, one a line. A request must succeed, or answer the code or contain the text behind " | " (white space
     * does not count). A command to the switch, in small letters, must succeed, or be refused with the text behind
     * " | ". A line that begins with "|" or "{" continues the line before.
     */
    void play(const std::string &steps);

    /* Sends the request and returns the body of its answer. */
    std::string send(const std::string &method, const std::string &target, const std::string &body = "");

    /* Waits, at most 20 seconds, until the trace shows a call of the operation. The test fails without one. */
    void awaitCall(const std::string &operation) const;

    /* The trace's lines since the last call, without those of the start-up. */
    std::string takeTrace();

    std::string tmp(const std::string &name) const { return directory + "/tmp/" + name; }
    std::string log() const { return readFile(tmp("zt731.log")); }

    std::string directory; /* tmp/ in it stands for /tmp */
    std::string socket;
    Process vswitch;

private:
    void startResident(const Environment &environment);
    void stopResident();

    size_t traceRead = 0;
    Process resident;
    Environment residentEnvironment;
};

#endif
