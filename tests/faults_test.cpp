/*
 * faults_test.cpp - what happens when things break: the server, the log, the session file, standard output, memory.
 * Every fault ends in its stated way, by itself and in time: no crash, no hang, nobody let in who should not be, and
 * either the right answer, a failure, or no body at all.
 */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <regex>
#include <thread>

#include "platform/openclt/wire.h"
#include "tests/support/driver.h"

using Clock = std::chrono::steady_clock;

static const std::string header = "Content-Type: application/json\r\n\r\n";
static const std::string refused = "Status:403\r\n\r\n";
static const std::string priorityAnswer = header + success(R"("bridge":{"priority":32768})");

static double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/* A virtual switch besides the test's own, to be killed. */
struct Victim {
    Process process;
    std::string socket, trace;
};

class Faults : public SwitchTest {
protected:
    Environment priorityRequest() { return request("GET", "bridge/dot1d-stp-priority"); }

    /* Runs the request; it must end by itself, with status 0, within `limit` seconds. */
    std::string outputOf(const Environment &environment, double limit = 8, const std::string &body = "")
    {
        Clock::time_point start = Clock::now();
        Outcome outcome = run(environment, body);
        return checkedOutput(outcome, secondsSince(start), limit);
    }

    /* The same behind what a shell does first: "$@" is the program. `launcher` starts the shell. */
    std::string outputAfter(const std::string &script, Environment environment, std::vector<std::string> launcher = {})
    {
        std::vector<std::string> command = std::move(launcher);
        /* the sandbox is not for the shell, which can be of another processor */
        command.insert(command.end(), {"sh", "-c", script, "sh", "env", "LD_PRELOAD=" + environment["LD_PRELOAD"]});
        environment.erase("LD_PRELOAD");
        for (const std::string &word : programCommand())
            command.push_back(word);
        Clock::time_point start = Clock::now();
        Outcome outcome = runProcess(command, environment);
        return checkedOutput(outcome, secondsSince(start), 8);
    }

    static std::string checkedOutput(const Outcome &outcome, double seconds, double limit)
    {
        EXPECT_EQ(outcome.signal, 0);
        EXPECT_EQ(outcome.exitStatus, 0);
        EXPECT_EQ(outcome.errors, "");
        EXPECT_LT(seconds, limit);
        return outcome.output;
    }

    /* As it was given, or with the stamp the program wrote into it. */
    void expectSessionIsWhole()
    {
        EXPECT_TRUE(std::regex_match(readFile(tmp("session/token")), std::regex(R"(admin\n(0\n|\d+\ntoken))")))
            << readFile(tmp("session/token"));
    }

    Victim startVictim()
    {
        Victim victim = {{}, directory + "/victim.sock", directory + "/victim.trace"};
        writeFile(victim.trace, "");
        victim.process = startProcess({std::string(BUILD_DIRECTORY) + "/vswitch", "--socket", victim.socket, "--trace",
                                       victim.trace}, {}, "");
        char line[256]; /* it says when it serves */
        EXPECT_GT(read(victim.process.output, line, sizeof line), 0);
        return victim;
    }

    void tellVictim(const Victim &victim, const std::string &operation, const std::string &word)
    {
        EXPECT_EQ(runProcess({std::string(BUILD_DIRECTORY) + "/vswitch", "--socket", victim.socket, "fault", operation,
                              word}).exitStatus, 0);
    }

    /* Until the switch has been asked for that operation. */
    void awaitCall(const Victim &victim, const std::string &operation)
    {
        Clock::time_point start = Clock::now();
        while (readFile(victim.trace).find(operation + " ") == std::string::npos && secondsSince(start) < 20)
            usleep(5000);
    }

    static void murder(const Victim &victim)
    {
        kill(victim.process.pid, SIGKILL);
        EXPECT_EQ(finishProcess(victim.process).signal, SIGKILL);
    }

    size_t warnings() const
    {
        const std::string warning = "] RPC call can fail until server starts. Keep trying (result = -1)\n";
        std::string text = log();
        size_t count = 0;
        for (size_t at = text.find(warning); at != std::string::npos; at = text.find(warning, at + 1))
            count++;
        return count;
    }
};

/* The server */

TEST_F(Faults, serverKilledBefore)
{
    Victim victim = startVictim();
    murder(victim); /* its socket stays behind */
    Environment environment = priorityRequest();
    environment["OPENCLT_SOCKET"] = victim.socket;
    environment["SANDBOX_SLEEP_MS"] = "1";
    Outcome outcome = run(environment);
    EXPECT_EQ(outcome.exitStatus, 255);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(warnings(), 6u);
    EXPECT_EQ(readFile(tmp("session/token")), "admin\n0\n");
}

TEST_F(Faults, serverKilledDuringACall)
{
    const struct { const char *operation, *logged; } rows[] = {
        {"rpcclt_openapiNetworkOSVersionGet", "] Network OS Version retrieve error\n"},
        {"rpcclt_openapiApiVersionGet", "] Open API Version retrieve error\n"},
        {"rpcclt_openapiDot1dStpPriorityGet", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.operation);
        Victim victim = startVictim();
        tellVictim(victim, row.operation, "delay=60000");
        Environment environment = priorityRequest();
        environment["OPENCLT_SOCKET"] = victim.socket;
        Process process = startProcess(programCommand(), environment, "");
        awaitCall(victim, row.operation);
        murder(victim);
        Outcome outcome = finishProcess(process);
        EXPECT_EQ(outcome.exitStatus, 0);
        EXPECT_EQ(outcome.output, header + failure(10000));
        EXPECT_NE(log().find(row.logged), std::string::npos) << log();
        expectSessionIsWhole();
    }
}

/* The reply is taken, the answer is on its way through a pipe that is full, and only then the server dies. */
TEST_F(Faults, serverKilledAfterTheCall)
{
    Victim victim = startVictim();
    std::string ids = "1";
    for (int id = 2; id <= VLAN_ID_LIST_MAX; id++)
        ids += "," + std::to_string(id);
    EXPECT_EQ(runProcess({std::string(BUILD_DIRECTORY) + "/vswitch", "--socket", victim.socket, "fault",
                          "rpcclt_openapiVlanVIDListGet", "code=0", "vidList=" + ids,
                          "numOfElements=4096"}).exitStatus, 0);
    Environment environment = request("GET", "vlan/vid-list?intfNum=1");
    environment["OPENCLT_SOCKET"] = victim.socket;
    Process process = startProcess(programCommand(), environment, "");
    fcntl(process.output, F_SETPIPE_SZ, 4096);
    pollfd stream = {process.output, POLLIN, 0};
    EXPECT_EQ(poll(&stream, 1, 20000), 1);
    murder(victim);
    Outcome outcome = finishProcess(process);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.output, header + success("\"vlan\":{\"numOfElements\":4096,\"vidList\":[" + ids + "]}"));
}

TEST_F(Faults, serverFailsInOneOfTwoCalls)
{
    for (const char *trouble : {"hangup", "rubbish", "delay=60000", "code=-1"})
        for (const char *first : {"code=0", trouble}) {
            SCOPED_TRACE(std::string(trouble) + " after " + first);
            tell(std::string("fault rpcclt_openapiProtectedPortGroupIntfCountGet count=2 ") + first);
            tell(std::string("fault rpcclt_openapiProtectedPortGroupIntfListGet ") + trouble);
            Environment environment = request("GET", "protectedport/group-intf-list?groupId=1");
            environment["OPENCLT_TIMEOUT_MS"] = "200";
            EXPECT_EQ(outputOf(environment), header + failure(10000));
        }
}

TEST_F(Faults, serverFailsAtTheStart)
{
    const struct { const char *fault; size_t warnings; std::string output; } rows[] = {
        {"rpcclt_openapiConnectivityCheck hangup times=6", 6, priorityAnswer},
        {"rpcclt_openapiConnectivityCheck rubbish times=6", 6, priorityAnswer},
        {"rpcclt_openapiConnectivityCheck delay=400 times=2", 2, priorityAnswer},
        {"rpcclt_openapiNetworkOSVersionGet hangup", 0, priorityAnswer},
        {"rpcclt_openapiNetworkOSVersionGet rubbish", 0, priorityAnswer},
        {"rpcclt_openapiApiVersionGet delay=400", 0, priorityAnswer},
        {"rpcclt_openapiApiVersionGet hangup", 0, priorityAnswer},
        {"* hangup", 6, ""},
        {"* rubbish", 6, ""},
        {"* delay=400", 6, ""},
        {"rpcclt_openapiDot1dStpPriorityGet delay=100", 0, priorityAnswer}, /* late, but in time */
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.fault);
        unlink(tmp("zt731.log").c_str());
        tell("clear");
        tell(std::string("fault ") + row.fault);
        Environment environment = priorityRequest();
        environment["OPENCLT_TIMEOUT_MS"] = "300";
        environment["SANDBOX_SLEEP_MS"] = "1";
        Clock::time_point start = Clock::now();
        Outcome outcome = run(environment);
        EXPECT_EQ(outcome.exitStatus, row.output.empty() ? 255 : 0);
        EXPECT_EQ(outcome.output, row.output);
        EXPECT_EQ(warnings(), row.warnings);
        EXPECT_LT(secondsSince(start), 8);
    }
}

/* A server that does what the virtual switch never does. */

template <class T> static std::string bytesOf(const T &value)
{
    return {(const char *)&value, sizeof value};
}

static std::string frame(const std::string &content)
{
    return bytesOf((uint32_t)content.size()) + content;
}

static std::string reply(int32_t code, const std::string &arguments = "")
{
    return frame(bytesOf(code) + arguments);
}

static std::string numberArgument(uint32_t value)
{
    return "N" + bytesOf(value);
}

static std::string textArgument(uint32_t size, uint32_t used, const std::string &bytes)
{
    return "T" + bytesOf(size) + bytesOf(used) + bytes;
}

/* What the server does once it has the request of an operation; the connection is closed behind it. */
using Script = std::function<void(int connection)>;

static void sendBytes(int connection, const std::string &bytes)
{
    size_t sent = 0;
    ssize_t got = 1;
    while (sent < bytes.size() && got > 0) {
        got = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        sent += got > 0 ? (size_t)got : 0;
    }
}

static void waitForTheEnd(int connection)
{
    char bytes[4096];
    while (recv(connection, bytes, sizeof bytes, 0) > 0)
        ;
}

static Script sends(const std::string &bytes)
{
    return [bytes](int connection) {
        sendBytes(connection, bytes);
        waitForTheEnd(connection);
    };
}

static Script sendsAndHangsUp(const std::string &bytes)
{
    return [bytes](int connection) { sendBytes(connection, bytes); };
}

static Script sendsInDrops(const std::string &bytes, useconds_t pause)
{
    return [bytes, pause](int connection) {
        for (char byte : bytes) {
            if (send(connection, &byte, 1, MSG_NOSIGNAL) != 1)
                return;
            usleep(pause);
        }
    };
}

/* The name of the operation in the request that comes next, "" when none comes. */
static std::string receiveRequest(int connection)
{
    uint32_t length = 0;
    if (recv(connection, &length, sizeof length, MSG_WAITALL) != sizeof length)
        return "";
    std::string request(length, 0);
    if (recv(connection, request.data(), length, MSG_WAITALL) != (ssize_t)length || length < 2)
        return "";
    return request.substr(2, (unsigned char)request[1]);
}

/* Serves one client: the start-up as it should be, then the script. */
static void serveClient(int listener, const Script &script)
{
    int connection = accept(listener, nullptr, nullptr);
    if (connection < 0)
        return;
    for (std::string name; !(name = receiveRequest(connection)).empty();) {
        bool startUp = name == "rpcclt_openapiConnectivityCheck" || name.ends_with("VersionGet");
        if (!startUp) {
            script(connection);
            break;
        }
        sendBytes(connection, reply(name == "rpcclt_openapiConnectivityCheck" ? OPEN_OK : OPEN_FAILED));
    }
    close(connection);
}

class StrangeServer : public Faults {
protected:
    /* What the program answers when its operation meets the script. */
    std::string answerTo(const std::string &target, const Script &script, double limit = 8)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::string path = directory + "/strange.sock";
        EXPECT_LT(path.size(), sizeof address.sun_path);
        strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        unlink(path.c_str());
        int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener, (sockaddr *)&address, sizeof address), 0);
        EXPECT_EQ(listen(listener, 8), 0);
        std::thread server(serveClient, listener, script);

        Environment environment = request("GET", target);
        environment["OPENCLT_SOCKET"] = path;
        environment["OPENCLT_TIMEOUT_MS"] = "300";
        environment["SANDBOX_SLEEP_MS"] = "1";
        std::string output = outputOf(environment, limit);
        shutdown(listener, SHUT_RDWR); /* in case nobody came */
        server.join();
        close(listener);
        EXPECT_EQ(output.substr(0, header.size()), header);
        return output.size() < header.size() ? "" : output.substr(header.size());
    }
};

TEST_F(StrangeServer, answersANumber)
{
    const std::string good = reply(0, numberArgument(7));
    const std::string failed = failure(10000);
    const struct { const char *what; Script script; std::string answer; } rows[] = {
        {"the number", sends(good), success(R"("bridge":{"priority":7})")},
        {"the number, in drops", sendsInDrops(good, 2000), success(R"("bridge":{"priority":7})")},
        {"nothing", sendsAndHangsUp(""), failed},
        {"nothing, and stays", sends(""), failed},
        {"half a length", sendsAndHangsUp(good.substr(0, 3)), failed},
        {"half a frame", sendsAndHangsUp(good.substr(0, 7)), failed},
        {"half a frame, and stays", sends(good.substr(0, 10)), failed},
        {"drops without an end", sendsInDrops(frame(std::string(2000, 'x')), 20000), failed},
        {"an empty frame", sends(frame("")), failed},
        {"half a code", sends(frame("\0\0")), failed},
        {"no number", sends(reply(0)), failed},
        {"half a number", sends(reply(0, numberArgument(7).substr(0, 3))), failed},
        {"a number of another kind", sends(reply(0, "H" + bytesOf((uint32_t)7))), failed},
        {"two numbers", sends(reply(0, numberArgument(7) + numberArgument(8))), failed},
        {"two frames", sends(good + good), failed},
        {"a frame of 4 GiB", sends(bytesOf((uint32_t)0xFFFFFFFF) + "xxxx"), failed},
        {"a frame above the limit", sends(bytesOf((uint32_t)WIRE_FRAME_MAX + 1) + "xxxx"), failed},
        {"a frame at the limit that ends early", sendsAndHangsUp(bytesOf((uint32_t)WIRE_FRAME_MAX) + "xxxx"), failed},
        {"a frame at the limit", sends(frame(std::string(WIRE_FRAME_MAX, 0))), failed},
        {"a refusal", sends(reply(-22)), failure(10003)},
        {"a refusal with the number", sends(reply(-22, numberArgument(7))), failure(10003)},
        {"a refusal with half of it", sends(reply(-22, "N")), failed},
        {"a code that is none", sends(reply(1)), failed},
        {"another", sends(reply(INT32_MIN)), failed},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(answerTo("bridge/dot1d-stp-priority", row.script), row.answer);
    }
}

TEST_F(StrangeServer, answersAText)
{
    const std::string failed = failure(10000);
    const std::string full(18, 'A');
    const struct { const char *what; Script script; std::string answer; } rows[] = {
        {"a text without an end", sends(reply(0, textArgument(18, 18, full))),
         success("\"bridge\":{\"bridgeAddress\":\"" + full + "\"}")},
        {"an empty text", sends(reply(0, textArgument(18, 0, ""))), success(R"("bridge":{"bridgeAddress":""})")},
        {"a text of another size", sends(reply(0, textArgument(19, 18, full))), failed},
        {"more than was offered", sends(reply(0, textArgument(18, 19, full + "A"))), failed},
        {"less than it says", sends(reply(0, textArgument(18, 18, "A"))), failed},
        {"as much as there is no room for", sends(reply(0, textArgument(18, 0xFFFFFFFF, full))), failed},
        {"no size", sends(reply(0, textArgument(0, 0, ""))), failed},
        {"a number", sends(reply(0, numberArgument(7))), failed},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(answerTo("bridge/dot1d-base-bridge-address", row.script), row.answer);
    }
}

TEST_F(StrangeServer, answersAList)
{
    static VlanIdList list; /* all zero */
    list.count = 0xFFFFFFFF;
    std::string zeros = "0";
    for (int i = 1; i < VLAN_ID_LIST_MAX; i++)
        zeros += ",0";
    auto listArgument = [](uint32_t used, const std::string &bytes) { return "L" + bytesOf(used) + bytes; };
    const std::string failed = failureLine(10003); /* this endpoint's word for every failure */
    const struct { const char *what; std::string list; std::string answer; } rows[] = {
        {"more ids than there can be", listArgument(4, bytesOf(list.count)),
         success("\"vlan\":{\"numOfElements\":7,\"vidList\":[" + zeros + "]}")},
        {"as long as it can be", listArgument(sizeof list, bytesOf(list)),
         success("\"vlan\":{\"numOfElements\":7,\"vidList\":[" + zeros + "]}")},
        {"no ids", listArgument(0, ""), success(R"("vlan":{"numOfElements":7,"vidList":[]})")},
        {"longer than it can be", listArgument(sizeof list + 1, bytesOf(list) + "x"), failed},
        {"shorter than it says", listArgument(sizeof list, "x"), failed},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(answerTo("vlan/vid-list?intfNum=1", sends(reply(0, row.list + numberArgument(7)))), row.answer);
    }
}

/* Somebody listens on the socket, but answers nothing and never will. */
TEST_F(StrangeServer, isSilent)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string path = directory + "/silent.sock";
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, (sockaddr *)&address, sizeof address), 0);
    for (int backlog : {8, 0}) { /* clients beyond the backlog do not even get a connection */
        ASSERT_EQ(listen(listener, backlog), 0);
        Environment environment = priorityRequest();
        environment["OPENCLT_SOCKET"] = path;
        environment["OPENCLT_TIMEOUT_MS"] = "200";
        environment["SANDBOX_SLEEP_MS"] = "1";
        Clock::time_point start = Clock::now();
        Outcome outcome = run(environment);
        EXPECT_EQ(outcome.exitStatus, 255);
        EXPECT_EQ(outcome.output, "");
        EXPECT_LT(secondsSince(start), 8);
    }
    close(listener);
}

/* The log */

/* A line of the log among what the program printed. */
static const std::regex notFoundLine(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \(ERROR\): kelt_cgi: )"
                                     R"(\[httpdProcessRequest:\d+\] method not found:/api/v2/switching/nothing\n)"
                                     R"(switching\nnothing\n)");

TEST_F(Faults, log)
{
    enum LogLines { LOST, PRINTED }; /* what becomes of the log's lines: lost, or part of the output */
    const struct { const char *what; std::function<void()> arrange; LogLines lines; } rows[] = {
        {"full device", [&] { symlink("/dev/full", tmp("zt731.log").c_str()); }, LOST},
        {"directory", [&] { mkdir(tmp("zt731.log").c_str(), 0700); }, PRINTED},
        {"link to nowhere", [&] { symlink("/nowhere/zt731.log", tmp("zt731.log").c_str()); }, PRINTED},
        {"link to itself", [&] { symlink("zt731.log", tmp("zt731.log").c_str()); }, PRINTED},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::remove_all(tmp("zt731.log"));
        row.arrange();
        writeFile(tmp("devmgr_log_level"), "6");
        EXPECT_EQ(outputOf(priorityRequest()), priorityAnswer);
        std::string printed = outputOf(request("GET", "nothing"));
        EXPECT_TRUE(row.lines == LOST ? printed.empty() : std::regex_match(printed, notFoundLine)) << printed;
        writeFile(tmp("devmgr_log_level"), "7");
        printed = outputOf(priorityRequest());
        EXPECT_TRUE(printed.ends_with("}")) << printed;
        EXPECT_EQ(printed.starts_with(header), row.lines == LOST) << printed;
        expectSessionIsWhole();
    }
}

TEST_F(Faults, logThatCannotBeRotated)
{
    std::filesystem::create_directories(tmp("zt731.log.old/in the way"));
    writeFile(tmp("devmgr_log_level"), "7");
    writeFile(tmp("zt731.log"), std::string(0x100000, 'x'));
    EXPECT_EQ(outputOf(priorityRequest()), priorityAnswer);
    EXPECT_NE(log().find("Register RPC to OpEN success"), std::string::npos);
}

TEST_F(Faults, levelFile)
{
    const std::string path = tmp("devmgr_log_level");
    const struct { const char *what; std::function<void()> arrange; } rows[] = {
        {"empty", [&] { writeFile(path, ""); }},
        {"huge", [&] { writeFile(path, std::string(3'000'000, '9')); }},
        {"directory", [&] { mkdir(path.c_str(), 0700); }},
        {"link to nowhere", [&] { symlink("/nowhere/level", path.c_str()); }},
        {"device", [&] { symlink("/dev/null", path.c_str()); }},
        {"full device", [&] { symlink("/dev/full", path.c_str()); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::remove_all(path);
        row.arrange();
        EXPECT_EQ(outputOf(priorityRequest()), priorityAnswer);
        EXPECT_EQ(outputOf(request("GET", "nothing")), "");
    }
}

/* As a shell does on the way to a new digit: echo 7 >/tmp/devmgr_log_level */
TEST_F(Faults, levelFileCutOffWhileRunning)
{
    writeFile(tmp("devmgr_log_level"), "7");
    Victim victim = startVictim();
    tellVictim(victim, "rpcclt_openapiNetworkOSVersionGet", "delay=500");
    Environment environment = priorityRequest();
    environment["OPENCLT_SOCKET"] = victim.socket;
    Process process = startProcess(programCommand(), environment, "");
    awaitCall(victim, "rpcclt_openapiNetworkOSVersionGet");
    EXPECT_EQ(truncate(tmp("devmgr_log_level").c_str(), 0), 0);
    Outcome outcome = finishProcess(process);
    EXPECT_EQ(outcome.signal, 0);
    EXPECT_EQ(outcome.output, priorityAnswer);
    EXPECT_EQ(log().find("ORNIS"), std::string::npos); /* no digit is 6 */
    murder(victim);
}

/* A session that cannot be opened for its new stamp is refused; the log's lines go where the answer goes. */
TEST_F(Faults, readOnlyFileSystem)
{
    Environment environment = priorityRequest();
    environment["SANDBOX_READ_ONLY"] = "1";
    std::string output = outputOf(environment);
    EXPECT_TRUE(output.ends_with("] 403 Forbidden\n" + refused)) << output;
    environment["REQUEST_URI"] = "/api/v2/switching/nothing";
    output = outputOf(environment);
    EXPECT_TRUE(std::regex_match(output, notFoundLine)) << output;
    EXPECT_EQ(readFile(tmp("session/token")), "admin\n0\n");
    EXPECT_EQ(access(tmp("zt731.log").c_str(), F_OK), -1);
}

/* No file grows and none is written. What the session needs is there already, so it counts. */
TEST_F(Faults, fullFileSystem)
{
    const std::string full = "trap '' XFSZ; ulimit -f 0; exec \"$@\"";
    for (const char *level : {"", "7"}) {
        writeFile(tmp("devmgr_log_level"), level);
        EXPECT_EQ(outputAfter(full, priorityRequest()), priorityAnswer);
        EXPECT_EQ(outputAfter(full, request("GET", "nothing")), "");
        EXPECT_EQ(readFile(tmp("session/token")), "admin\n0\n");
        EXPECT_EQ(log(), "");
    }
    writeFile(tmp("session/token"), "joe\n1\nro\ntoken"); /* timed out: it can still be deleted, and is */
    Environment environment = priorityRequest();
    environment["SANDBOX_UPTIME"] = "9000";
    EXPECT_EQ(outputAfter(full, environment), refused);
    EXPECT_EQ(access(tmp("session/token").c_str(), F_OK), -1);
}

/* A file system in memory that is full gives a new file a size, but no byte to keep. */
TEST_F(Faults, fullFileSystemInMemory)
{
    if (runProcess({"unshare", "-rm", "true"}).exitStatus != 0)
        GTEST_SKIP() << "mounting is not allowed here";
    const std::string mounted = "mount -t tmpfs -o size=64k none \"$SANDBOX_TMP\" && cd \"$SANDBOX_TMP\" && "
                                "mkdir session && echo admin >session/token && { cat /dev/zero 2>&- >fill; "
                                "\"$@\"; echo \" $?\"; \"$@\"; echo \" $?\"; }";
    EXPECT_EQ(outputAfter(mounted, priorityRequest(), {"unshare", "-rm"}),
              priorityAnswer + " 0\n" + priorityAnswer + " 0\n");
}

/* The session file */

TEST_F(Faults, sessionFile)
{
    const std::string huge(5'000'000, 'x');
    const std::string path = tmp("session/token");
    const auto holds = [path](const std::string &content) { return [=] { writeFile(path, content); }; };
    const struct {
        const char *what;
        std::function<void()> arrange;
        bool served;
        const char *method = "GET";
    } rows[] = {
        {"whole", holds("joe\n7000\nrw\ntoken"), true},
        {"missing", [] {}, false},
        {"empty", holds(""), false},
        {"a newline", holds("\n"), false},
        {"half a name", holds("jo"), false},
        {"half the administrator's name", holds("admi"), false},
        {"the administrator's without its newline", holds("admin"), false},
        {"nothing behind a name", holds("joe\n"), false},
        {"nothing behind the administrator's", holds("admin\n"), true}, /* no stamp, no time-out */
        {"half a stamp", holds("joe\n70"), false},
        {"no role", holds("joe\n7000\n"), false},
        {"half a role", holds("joe\n7000\nr"), false},
        {"a role of other letters", holds("joe\n7000\nRW\ntoken"), false},
        {"a role that may read only", holds("joe\n7000\nro\ntoken"), false, "PUT"},
        {"a zero in the administrator's name", holds(std::string("admin\0\n7000\ntoken", 17)), false},
        {"a zero in the role", holds(std::string("joe\n7000\n\0rw\ntoken", 18)), false},
        {"zeros", holds(std::string(100, 0)), false},
        {"a carriage return", holds("admin\r\n7000\r\ntoken"), false},
        {"megabytes", holds(huge), false},
        {"megabytes behind the administrator's name", holds("admin" + huge), false},
        {"a name of megabytes", holds(huge + "\n7000\nrw\ntoken"), false},
        {"a stamp of megabytes", holds("joe\n" + huge + "\nrw\ntoken"), false},
        {"megabytes behind a session", holds("joe\n7000\nrw\ntoken" + huge), true},
        {"newlines", holds(std::string(5'000'000, '\n')), false},
        {"a stamp out of range", holds("joe\n99999999999999999999999\nrw\ntoken"), true}, /* lies ahead */
        {"a stamp far below zero", holds("joe\n-99999999999999999999999\nrw\ntoken"), false},
        {"a directory", [=] { mkdir(path.c_str(), 0700); }, false},
        {"a pipe", [=] { mkfifo(path.c_str(), 0600); }, false},
        {"a link to a session", [&] {
             writeFile(tmp("session/other"), "admin\n7000\nother");
             symlink("other", path.c_str());
         }, false},
        {"a link to itself", [=] { symlink("token", path.c_str()); }, false},
        {"a link to a device", [=] { symlink("/dev/zero", path.c_str()); }, false},
        {"a link to nowhere", [=] { symlink("nowhere", path.c_str()); }, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::remove_all(path);
        row.arrange();
        takeTrace();
        Environment environment = request(row.method, "bridge/db-dot1d-tp-aging-time", R"({"agingTime":300})");
        environment["SANDBOX_UPTIME"] = "7300";
        std::string output = outputOf(environment, 8, R"({"agingTime":300})");
        if (row.served)
            EXPECT_EQ(output, header + success(R"("bridge":{"agingTime":300})"));
        else
            EXPECT_EQ(output, refused);
        EXPECT_EQ(takeTrace().empty(), !row.served);
    }
}

/* Ten seconds at most, and no answer: what holds the lock may hang for ever. */
TEST_F(Faults, sessionLockedForLongerThanTheLimit)
{
    int held = open(tmp("session/token").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    Clock::time_point start = Clock::now();
    EXPECT_EQ(outputOf(priorityRequest(), 30), refused);
    EXPECT_GE(secondsSince(start), 8.9);
    EXPECT_NE(log().find("] File lock failed\n"), std::string::npos) << log();
    EXPECT_EQ(readFile(tmp("session/token")), "admin\n0\n");
    EXPECT_EQ(takeTrace(), "");
    close(held);
}

/* Standard streams */

TEST_F(Faults, streams)
{
    const struct { const char *what, *script; std::string output; } rows[] = {
        {"output closed", "exec \"$@\" >&-", ""},
        {"output full", "exec \"$@\" >/dev/full", ""},
        {"output read-only", "exec \"$@\" 1</dev/null", ""},
        {"input closed", "exec \"$@\" <&-", priorityAnswer},
        {"errors closed", "exec \"$@\" 2>&-", priorityAnswer},
        {"all closed", "exec \"$@\" <&- >&- 2>&-", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        for (const char *level : {"6", "7"}) {
            unlink(tmp("zt731.log").c_str());
            writeFile(tmp("devmgr_log_level"), level);
            EXPECT_EQ(outputAfter(row.script, priorityRequest()), row.output);
            EXPECT_EQ(readFile(tmp("devmgr_log_level")), std::string(level) + std::string(3, 0)); /* no answer in it */
            EXPECT_EQ(log().find("32768"), std::string::npos) << log();
            expectSessionIsWhole();
        }
    }

    /* a body that cannot be read has ended before it began */
    EXPECT_EQ(outputAfter("exec \"$@\" <&-", request("PUT", "bridge/db-dot1d-tp-aging-time", "{}")),
              header + failureLine(10003));
}

TEST_F(Faults, outputNobodyReads)
{
    Process process = startProcess(programCommand(), priorityRequest(), "");
    close(process.output);
    process.output = -1;
    Outcome outcome = finishProcess(process);
    EXPECT_EQ(outcome.signal, 0); /* SIGPIPE */
    EXPECT_EQ(outcome.exitStatus, 0);

    /* the largest answer fits into the pipe: the process ends though nobody has read a byte */
    std::string ids = "4095";
    for (int i = 1; i < VLAN_ID_LIST_MAX; i++)
        ids += ",4095";
    tell("fault rpcclt_openapiVlanVIDListGet code=0 numOfElements=1 vidList=" + ids);
    process = startProcess(programCommand(), request("GET", "vlan/vid-list?intfNum=1"), "");
    siginfo_t ended = {};
    for (int i = 0; i < 2000 && !ended.si_pid; i++) {
        waitid(P_PID, (id_t)process.pid, &ended, WEXITED | WNOHANG | WNOWAIT);
        usleep(5000);
    }
    EXPECT_EQ(ended.si_pid, process.pid);
    outcome = finishProcess(process);
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.output, header + success("\"vlan\":{\"numOfElements\":1,\"vidList\":[" + ids + "]}"));
}

/* A body that ends early, however much was announced. */
TEST_F(Faults, body)
{
    for (const char *length : {"17", "1000", "300000000", "-1", "x", ""}) {
        SCOPED_TRACE(length);
        Environment environment = request("PUT", "bridge/db-dot1d-tp-aging-time");
        environment["CONTENT_LENGTH"] = length;
        EXPECT_EQ(outputOf(environment, 8, R"({"agingTime":300)"), header + failureLine(10003));
    }
    EXPECT_EQ(takeTrace(), "");
}

/* Memory */

class Memory : public Faults {
protected:
    /*
     * Runs the request again and again, each time with another allocation failing, until there are no more. What it
     * may end in: the right answer; one of `failures`; nothing behind the header; a refusal; nothing at all. The switch
     * is asked for what it should be asked for, or for nothing.
     */
    void failEveryAllocation(const Exchange &exchange, const std::vector<std::string> &failures,
                             const char *level = "6", size_t logBytes = 0)
    {
        SCOPED_TRACE(exchange.target);
        const std::string right = header + exchange.answered;
        for (int n = 1;; n++) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            ASSERT_LT(n, 5000);
            writeFile(tmp("session/token"), "admin\n0\ntoken");
            writeFile(tmp("devmgr_log_level"), level);
            writeFile(tmp("zt731.log"), std::string(logBytes, '\n'));
            unlink(tmp("allocation-failed").c_str());
            takeTrace();
            Environment environment = request(exchange.method, exchange.target, exchange.body);
            environment["SANDBOX_FAIL_ALLOCATION"] = std::to_string(n);
            Outcome outcome = run(environment, exchange.body);
            std::string asked = takeTrace();
            bool failed = access(tmp("allocation-failed").c_str(), F_OK) == 0;
            bool printsLog = outcome.output.find("kelt_cgi: ") != std::string::npos; /* it has no file for it */
            if (failed && printsLog)
                outcome.output.erase(0, std::min(outcome.output.find(header), outcome.output.find(refused)));

            EXPECT_EQ(outcome.signal, 0);
            EXPECT_EQ(outcome.errors, "");
            EXPECT_TRUE(asked == exchange.asked || (asked.empty() && outcome.output != right)) << asked;
            bool stated = outcome.output == right || outcome.output == header || outcome.output == "";
            if (asked.empty())
                stated = stated || outcome.output == refused;
            for (const std::string &text : failures)
                stated = stated || outcome.output == header + text;
            EXPECT_TRUE(stated) << outcome.output;
            EXPECT_TRUE(outcome.exitStatus == 0 || (outcome.exitStatus == 1 && asked.empty())) << outcome.exitStatus;
            EXPECT_TRUE(outcome.exitStatus == 0 || outcome.output == "" || outcome.output == header);
            if (!failed) {
                EXPECT_EQ(outcome.output, right);
                EXPECT_EQ(outcome.exitStatus, 0);
                EXPECT_GT(n, 10);
                RecordProperty("allocations", n - 1);
                return;
            }
            expectSessionIsWhole();
        }
    }
};

static const Exchange priorityExchange = {"GET", "bridge/dot1d-stp-priority", "",
                                          "rpcclt_openapiDot1dStpPriorityGet value=0 -> 0 value=32768",
                                          success(R"("bridge":{"priority":32768})")};

TEST_F(Memory, ofAReader)
{
    failEveryAllocation(priorityExchange, {});
}

TEST_F(Memory, ofAReaderWhoseLogIsFull)
{
    failEveryAllocation(priorityExchange, {}, "7", 0x100000);
}

TEST_F(Memory, ofAListReader)
{
    tell("fault rpcclt_openapiVlanVIDListGet code=0 numOfElements=3 vidList=10,20,30");
    failEveryAllocation({"GET", "vlan/vid-list?intfNum=3", "",
                         "rpcclt_openapiVlanVIDListGet ifNum=3 vidList=0() numOfElements=0 -> 0 vidList=3(10 20 30) "
                         "numOfElements=3",
                         success(R"("vlan":{"numOfElements":3,"vidList":[10,20,30]})")}, {});
}

TEST_F(Memory, ofAWriter)
{
    failEveryAllocation({"PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingTime": 400})",
                         "rpcclt_openapiDbDot1dTpAgingTimeSet seconds=400 -> 0", successLine()}, {failureLine(10003)});
}

TEST_F(Memory, ofAWriterOfAList)
{
    tell("fault rpcclt_openapiDot1qSwPortTrunkAllowedVlanListSet code=0");
    failEveryAllocation({"PUT", "vlan/dot1q-sw-port-trunk-allowed-vlan-list", R"({"intf": 2, "vidList": [10, 20]})",
                         "rpcclt_openapiDot1qSwPortTrunkAllowedVlanListSet ifNum=2 vidList=2(10 20) -> 0 "
                         "vidList=2(10 20)",
                         success("")}, {failureLine(10003)});
}

/* A parameter that was lost is not one that was not there: the default would be another database, or another VLAN. */
TEST_F(Memory, ofParameters)
{
    tell("fault rpcclt_openapiFdbAddrAgingTimeoutGet code=0 timeOut=77");
    failEveryAllocation({"GET", "fdb/addr-aging-timeout?a&b&c&d&e&f&g&h&i&j&k&fdbId=2", "",
                         "rpcclt_openapiFdbAddrAgingTimeoutGet fdbId=2 timeOut=0 -> 0 timeOut=77",
                         success(R"("fdb":{"timeOut":77})")}, {});
}

TEST_F(Memory, ofAnExactParameter)
{
    tell("fault rpcclt_openapiVlanMacOuiVlanNextGet code=0 nextOui=00:11:22 vlanId=5");
    failEveryAllocation({"GET", "vlan/mac-oui-vlan-next?oui=00%3A11%3A21", "",
                         "rpcclt_openapiVlanMacOuiVlanNextGet oui=[8]\"00:11:21\" nextOui=[64]\"\" vlanId=0 -> 0 "
                         "oui=[8]\"00:11:21\" nextOui=[64]\"00:11:22\" vlanId=5",
                         success(R"("vlan":{"nextOui":"00:11:22","vlanId":5})")}, {});
}
