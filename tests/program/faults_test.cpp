/*
 * faults_test.cpp - what happens when things break: the server, the log, the session file, standard output, memory.
 * In every case the program ends by itself and in time, without a crash; serves nobody without a session; and answers
 * correctly, with a failure, or without a body.
 */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <regex>
#include <thread>

#include "tests/support/driver.h"
#include "tests/support/rpc.h"

#define OP "rpcclt_openapi"

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

static const std::string refused = "Status:403\r\n\r\n";
static const std::string priority = "bridge/dot1d-stp-priority";
static const std::string priorityData = success(R"("bridge":{"priority":32768})");
static const std::string priorityAnswer = header + priorityData;
static const std::string freshSession = "admin\n0\n";
static const Environment impatient = {{"OPENCLT_TIMEOUT_MS", "300"}, {"SANDBOX_SLEEP_MS", "1"}};

/* The longest list of ids. */
static std::string longestList(const std::string &id)
{
    std::string ids = id;
    for (int i = 1; i < VLAN_ID_LIST_MAX; i++)
        ids += "," + id;
    return ids;
}

enum Kind { FILE_OF, DIRECTORY, PIPE, LINK_TO, SECOND_NAME_OF };

/* Replaces the path by a file of that kind. */
static void put(const std::string &path, Kind kind, const std::string &content = "")
{
    std::filesystem::remove_all(path);
    if (kind == FILE_OF)
        writeFile(path, content);
    else
        EXPECT_EQ(kind == DIRECTORY ? mkdir(path.c_str(), 0700)
                  : kind == PIPE    ? mkfifo(path.c_str(), 0600)
                  : kind == LINK_TO ? symlink(content.c_str(), path.c_str())
                                    : link(content.c_str(), path.c_str()), 0);
}

class Faults : public SwitchTest {
protected:
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
        return outputOf(outcome, getenv("TEST_RESIDENT") ? 0 : exitStatus);
    }

    /* The output of a shell script in which "$@" is the program. `command` starts the shell. */
    std::string outputAfter(const std::string &script, Environment environment, std::vector<std::string> command = {})
    {
        /* the sandbox is not for the shell, which can be of another processor */
        command.insert(command.end(), {"sh", "-c", script, "sh", "env", "LD_PRELOAD=" + environment["LD_PRELOAD"]});
        environment.erase("LD_PRELOAD");
        for (const std::string &word : programCommand())
            command.push_back(word);
        return outputOf(runProcess(command, environment));
    }

    /* Gives the file to another user. False for a user who is not root: the test leaves this case out. */
    static bool giveAway(const std::string &path) { return chown(path.c_str(), 65534, (gid_t)-1) == 0; }

    std::string session() const { return readFile(tmp("session/token")); }

    /* The session file is as it was, or has the stamp of the program. */
    void expectSessionIsWhole()
    {
        EXPECT_TRUE(std::regex_match(session(), std::regex(R"(admin\n(0\n|\d+\ntoken))"))) << session();
    }

    /* Starts a second switch, to be killed. Commands and requests go to this one from now on. */
    Process startVictim()
    {
        socket = directory + "/victim.sock";
        writeFile(directory + "/trace", "");
        return launchSwitch({"--trace", directory + "/trace"});
    }

    static void murder(const Process &victim)
    {
        kill(victim.pid, SIGKILL);
        EXPECT_EQ(finishProcess(victim).signal, SIGKILL);
    }

    /* How many times the log says that there is no server yet. */
    auto warnings() const
    {
        static const std::regex warning(R"(\(WARN\): kelt_cgi: \[initHandler:\d+\] RPC call can fail until server )"
                                        R"(starts\. Keep trying \(result = -1\)\n)");
        const std::string text = log();
        return std::distance(std::sregex_iterator(text.begin(), text.end(), warning), std::sregex_iterator());
    }
};

using ServerFault = Faults;
using LogFault = Faults;
using FileSystemFault = Faults;
using SessionFault = Faults;
using StreamFault = Faults;

/* The server */

TEST_F(ServerFault, killedBeforeTheRequest)
{
    murder(startVictim()); /* its socket stays behind */
    EXPECT_EQ(outputOf(get(priority, impatient), "", 255), "");
    EXPECT_EQ(warnings(), 6);
    EXPECT_EQ(session(), freshSession);
}

TEST_F(ServerFault, killedDuringACall)
{
    const struct { std::string operation, logged; } rows[] = {
        {OP "NetworkOSVersionGet", R"(\(ERROR\): kelt_cgi: \[initHandler:\d+\] Network OS Version retrieve error\n)"},
        {OP "ApiVersionGet", R"(\(ERROR\): kelt_cgi: \[initHandler:\d+\] Open API Version retrieve error\n)"},
        {OP "Dot1dStpPriorityGet", ""},
    };
    for (const auto &[operation, logged] : rows) {
        SCOPED_TRACE(operation);
        Process victim = startVictim();
        command("fault " + operation + " delay=60000");
        Process process = startProcess(programCommand(), get(priority), "");
        awaitCall(operation);
        murder(victim);
        EXPECT_EQ(outputOf(finishProcess(process)), header + failure(10000));
        EXPECT_TRUE(std::regex_search(log(), std::regex(logged))) << log();
        expectSessionIsWhole();
    }
}

TEST_F(ServerFault, failsInOneOfTwoCalls)
{
    for (const std::string trouble : {"hangup", "rubbish", "delay=60000", "code=-1"})
        for (const std::string &first : {std::string("code=0"), trouble}) {
            SCOPED_TRACE(trouble + " after " + first);
            command("fault " OP "ProtectedPortGroupIntfCountGet count=2 " + first);
            command("fault " OP "ProtectedPortGroupIntfListGet " + trouble);
            EXPECT_EQ(outputOf(get("protectedport/group-intf-list?groupId=1", impatient)), header + failure(10000));
        }
    /* a list that is too long is not requested */
    command("clear");
    command("fault " OP "ProtectedPortGroupIntfCountGet code=0 count=4294967295");
    takeTrace();
    EXPECT_EQ(outputOf(get("protectedport/group-intf-list?groupId=1")), header + failure(10000));
    EXPECT_EQ(takeTrace().find("ListGet"), std::string::npos);
    /* both modes are requested even if the first fails; the answer is the first failure */
    command("fault " OP "VoipIntfModeGet type=1 code=-24");
    command("fault " OP "VoipIntfModeGet type=2 code=-28");
    EXPECT_EQ(outputOf(get("voip/intf-mode?ifNum=3")), header + failure(10011));
    EXPECT_NE(takeTrace().find("type=2"), std::string::npos);
}

TEST_F(ServerFault, failsAtTheStart)
{
    const struct { const char *fault; int warnings; std::string output; } rows[] = {
        {OP "ConnectivityCheck hangup times=6", 6, priorityAnswer},
        {OP "ConnectivityCheck rubbish times=6", 6, priorityAnswer},
        {OP "ConnectivityCheck delay=2000 times=2", 2, priorityAnswer},
        {OP "NetworkOSVersionGet hangup", 0, priorityAnswer},
        {OP "ApiVersionGet delay=2000", 0, priorityAnswer},
        {OP "ConnectivityCheck hangup", 6, ""},
        {OP "ConnectivityCheck delay=2000", 6, ""},
        {OP "Dot1dStpPriorityGet delay=100", 0, priorityAnswer}, /* late, but in time */
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.fault);
        unlink(tmp("zt731.log").c_str());
        command("clear");
        command(std::string("fault ") + row.fault);
        EXPECT_EQ(outputOf(get(priority, impatient), "", row.output.empty() ? 255 : 0), row.output);
        EXPECT_EQ(warnings(), row.warnings);
    }
}

/* A server that sends what the virtual switch never sends. */

static std::string number(uint32_t value) { return "N" + bytesOf(value); }
static std::string list(size_t used, const std::string &bytes) { return "L" + bytesOf((uint32_t)used) + bytes; }

/* What the server sends in reply to the call of an operation, and what it does then. */
struct Script {
    std::string bytes;
    enum { STAYS, HANGS_UP } then = STAYS;
    useconds_t pause = 0; /* before each byte; 0: all bytes at once */
};

static void sendBytes(int connection, const Script &script)
{
    size_t step = script.pause ? 1 : script.bytes.size();
    for (size_t at = 0; at < script.bytes.size(); at += step) {
        usleep(script.pause);
        if (send(connection, script.bytes.data() + at, step, MSG_NOSIGNAL) != (ssize_t)step)
            return;
    }
}

/* Serves one client: correct replies to the three start-up calls, then the script. */
static void serveClient(int listener, const Script &script)
{
    int connection = accept(listener, nullptr, nullptr);
    char request[4096];
    auto isAsked = [&] { return recv(connection, request, sizeof request, 0) > 0; };
    for (int code : {OPEN_OK, OPEN_FAILED, OPEN_FAILED})
        if (isAsked())
            sendBytes(connection, {replyOf(code)});
    if (isAsked())
        sendBytes(connection, script);
    while (script.then == Script::STAYS && isAsked())
        ;
    close(connection);
}

class ServerReply : public Faults {
protected:
    /* The test itself listens in place of the switch. */
    int listenInstead()
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        socket = directory + "/strange.sock";
        unlink(socket.c_str());
        EXPECT_EQ(socket.copy(address.sun_path, sizeof address.sun_path - 1), socket.size());
        int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener, (sockaddr *)&address, sizeof address), 0);
        EXPECT_EQ(listen(listener, 8), 0);
        return listener;
    }

    /* What the program answers to each reply. */
    struct Row { const char *what; Script script; std::string answer; };
    void expectAnswers(const std::string &target, const std::vector<Row> &rows)
    {
        for (const Row &row : rows) {
            SCOPED_TRACE(row.what);
            int listener = listenInstead();
            std::thread server(serveClient, listener, row.script);
            EXPECT_EQ(outputOf(get(target, {{"OPENCLT_TIMEOUT_MS", "2000"}})), header + row.answer);
            shutdown(listener, SHUT_RDWR); /* if the program never connected */
            server.join();
            close(listener);
        }
    }
};

TEST_F(ServerReply, isAnOddNumber)
{
    const std::string good = replyOf(0, number(7)), right = success(R"("bridge":{"priority":7})");
    const std::string failed = failure(10000);
    expectAnswers(priority, {
        {"the number", {good}, right},
        {"the number, byte by byte", {good, Script::STAYS, 2000}, right},
        {"half a length", {good.substr(0, 3), Script::HANGS_UP}, failed},
        {"half a message", {good.substr(0, 7), Script::HANGS_UP}, failed},
        {"half a message, and stays", {good.substr(0, 10)}, failed},
        {"bytes without an end", {messageOf(std::string(2000, 'x')), Script::STAYS, 20000}, failed},
        {"an empty message", {messageOf("")}, failed},
        {"half a code", {messageOf(std::string(2, 0))}, failed},
        {"half a number", {replyOf(0, number(7).substr(0, 3))}, failed},
        {"a number of another kind", {replyOf(0, "H" + bytesOf(7))}, failed},
        {"two numbers", {replyOf(0, number(7) + number(8))}, failed},
        {"two messages", {good + good}, failed},
        {"a message of 4 GiB", {bytesOf(0xFFFFFFFF) + "xxxx"}, failed},
        {"a message above the limit", {bytesOf(WIRE_MESSAGE_MAX + 1) + "xxxx"}, failed},
        {"a message at the limit", {messageOf(std::string(WIRE_MESSAGE_MAX, 0))}, failed},
        {"a refusal", {replyOf(-22)}, failure(10003)},
        {"a refusal with the number", {replyOf(-22, number(7))}, failure(10003)},
        {"a refusal with half of it", {replyOf(-22, "N")}, failed},
        {"a code that is none", {replyOf(1)}, failed},
    });
}

TEST_F(ServerReply, isAnOddText)
{
    const std::string full(18, 'A'), failed = failure(10000), head = R"("bridge":{"bridgeAddress":")";
    expectAnswers("bridge/dot1d-base-bridge-address", {
        {"a text without an end", {replyOf(0, textArgument(18, 18, full))}, success(head + full + "\"}")},
        {"an empty text", {replyOf(0, textArgument(18, 0, ""))}, success(head + "\"}")},
        {"a text of another size", {replyOf(0, textArgument(19, 18, full))}, failed},
        {"more than was offered", {replyOf(0, textArgument(18, 19, full + "A"))}, failed},
        {"less than it says", {replyOf(0, textArgument(18, 18, "A"))}, failed},
        {"as much as there is no room for", {replyOf(0, textArgument(18, 0xFFFFFFFF, full))}, failed},
        {"no size", {replyOf(0, textArgument(0, 0, ""))}, failed},
    });
}

TEST_F(ServerReply, isAnOddList)
{
    const std::string count = bytesOf(0xFFFFFFFF), longest = count + std::string(sizeof(VlanIdList) - count.size(), 0);
    const std::string head = R"("vlan":{"numOfElements":7,"vidList":[)";
    const std::string zeros = success(head + longestList("0") + "]}"), none = success(head + "]}");
    const std::string failed = failureLine(10003); /* this endpoint's code for every failure */
    expectAnswers("vlan/vid-list?intfNum=1", {
        {"more ids than there can be", {replyOf(0, list(4, count) + number(7))}, zeros},
        {"as long as it can be", {replyOf(0, list(longest.size(), longest) + number(7))}, zeros},
        {"no ids", {replyOf(0, list(0, "") + number(7))}, none},
        {"longer than it can be", {replyOf(0, list(longest.size() + 1, longest + "x") + number(7))}, failed},
        {"shorter than it says", {replyOf(0, list(longest.size(), "x"))}, failed},
    });
}

/* A process listens on the socket, but never replies. */
TEST_F(ServerReply, neverComes)
{
    int listener = listenInstead();
    for (int backlog : {8, 0}) { /* clients beyond the backlog do not even get a connection */
        ASSERT_EQ(listen(listener, backlog), 0);
        EXPECT_EQ(outputOf(get(priority, impatient), "", 255), "");
    }
    close(listener);
}

/* The log */

/* A log entry on the standard output. */
static const std::regex notFoundLine(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \(ERROR\): kelt_cgi: )"
                                     R"(\[httpdProcessRequest:\d+\] method not found:/api/v2/switching/nothing\n)"
                                     R"(switching\nnothing\n)");

/* A file that is not regular is not used as a log or level file. A file with a second name is replaced by a copy. */
TEST_F(LogFault, isNoRegularFile)
{
    const char *logFile = "zt731.log", *levelFile = "devmgr_log_level";
    const std::string others = "what must stay as it is";
    const struct { const char *what, *file; Kind kind; std::string content; bool logged; } rows[] = {
        {"directory", logFile, DIRECTORY, "", false},
        {"pipe", logFile, PIPE, "", false},
        {"link", logFile, LINK_TO, tmp("others"), false},
        {"link to nowhere", logFile, LINK_TO, tmp("nowhere"), false},
        {"second name", logFile, SECOND_NAME_OF, tmp("others"), true},
        {"empty level", levelFile, FILE_OF, "", true},
        {"huge level", levelFile, FILE_OF, std::string(3'000'000, '9'), true},
        {"directory for a level", levelFile, DIRECTORY, "", true},
        {"pipe for a level", levelFile, PIPE, "", true},
        {"link for a level", levelFile, LINK_TO, tmp("others"), true},
        {"link to nowhere for a level", levelFile, LINK_TO, tmp("nowhere"), true},
        {"second name for a level", levelFile, SECOND_NAME_OF, tmp("others"), true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        put(tmp("others"), FILE_OF, others);
        put(tmp(logFile), FILE_OF);
        put(tmp(levelFile), FILE_OF, "6");
        put(tmp(row.file), row.kind, row.content);
        EXPECT_EQ(outputOf(get(priority)), priorityAnswer);
        std::string printed = outputOf(get("nothing"));
        EXPECT_TRUE(row.logged ? printed.empty() : std::regex_match(printed, notFoundLine)) << printed;
        EXPECT_EQ(readFile(tmp("others")), others);
        EXPECT_EQ(access(tmp("nowhere").c_str(), F_OK), -1);
        expectSessionIsWhole();
        EXPECT_TRUE(row.kind != SECOND_NAME_OF || std::filesystem::hard_link_count(tmp(row.file)) == 1);
        if (row.logged) {
            EXPECT_NE(log().find("] method not found:"), std::string::npos) << log();
            EXPECT_TRUE(row.file == levelFile || log().starts_with(others)) << log();
            continue;
        }
        put(tmp(levelFile), FILE_OF, "7");
        printed = outputOf(get(priority));
        EXPECT_TRUE(printed.ends_with(priorityAnswer) && !printed.starts_with(header)) << printed;
    }
}

/* Another user's lease must not delay requests for 45 seconds; O_CREAT cannot open another user's file. */
TEST_F(LogFault, belongsToAnotherUser)
{
    signal(SIGIO, SIG_IGN);
    for (const char *file : {"zt731.log", "devmgr_log_level"}) {
        put(tmp(file), FILE_OF, "6");
        int leased = open(tmp(file).c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(fcntl(leased, F_SETLEASE, F_RDLCK), 0);
        EXPECT_EQ(outputOf(get(priority)), priorityAnswer);
        close(leased);
        giveAway(tmp(file));
    }
    EXPECT_EQ(outputOf(get("nothing")), "");
    EXPECT_NE(log().find("] method not found:"), std::string::npos) << log();
}

/* Above 8 MiB the log loses its content, and its first line says so. Below, it keeps every line. */
TEST_F(LogFault, cannotBeRotatedAsUsual)
{
    enum Content { IN_THE_OLD_LOG, KEPT, LOST };
    const struct { const char *what, *immovable; size_t size; Content content; } rows[] = {
        {"a directory in the place of the old log", "", 0x100000, IN_THE_OLD_LOG},
        {"another user's log", "/tmp/zt731.log", 0x100000, IN_THE_OLD_LOG},
        {"another user's old log", "/tmp/zt731.log.old", 0x100000, KEPT},
        {"another user's old log, a large log", "/tmp/zt731.log.old", 0x800000, LOST},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const std::string full(row.size, 'x');
        put(tmp("zt731.log"), FILE_OF, full);
        put(tmp("zt731.log.old"), DIRECTORY);
        writeFile(tmp("zt731.log.old/in the way"), "");
        EXPECT_EQ(outputOf(get("nothing", {{"SANDBOX_IMMOVABLE", row.immovable}})), "");
        const std::string old = row.content == IN_THE_OLD_LOG ? readFile(tmp("zt731.log.old")) : "", all = old + log();
        EXPECT_EQ(all.starts_with(full + "20"), row.content != LOST);
        EXPECT_TRUE(all.ends_with(" method not found:/api/v2/switching/nothing\nswitching\nnothing\n"));
        EXPECT_EQ(log().empty(), row.content == IN_THE_OLD_LOG);
        const std::regex notice(R"(^20\S+ \S+ \(ERROR\): kelt_cgi: \[rotate:\d+\] More than 8 MiB of log are lost: )"
                                R"([^\n]*\(Operation not permitted\)\n20)");
        EXPECT_EQ(std::regex_search(log().substr(0, 300), notice), row.content == LOST) << log().substr(0, 300);
    }
}

/* Log lines can hold tokens: nobody else may read the new log. Nor may the user lose it who could read the old one. */
TEST_F(LogFault, keepsModeAndOwner)
{
    for (const char *immovable : {"", "/tmp/zt731.log"}) {
        put(tmp("zt731.log"), FILE_OF, std::string(0x100000, 'x'));
        const uid_t owner = giveAway(tmp("zt731.log")) ? 65534 : geteuid();
        EXPECT_EQ(chmod(tmp("zt731.log").c_str(), 0600), 0);
        EXPECT_EQ(outputOf(get("nothing", {{"SANDBOX_IMMOVABLE", immovable}})), "");
        for (const char *file : {"zt731.log", "zt731.log.old"}) {
            struct stat status;
            ASSERT_EQ(stat(tmp(file).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777, 0600u) << file;
            EXPECT_EQ(status.st_uid, owner) << file;
        }
    }
}

/* A process that can only read the log cannot stop rotation with a lock; one that can write it, only up to 2 MiB. */
TEST_F(LogFault, isLockedByAnotherProcess)
{
    const struct { short type; size_t size; bool rotated; } rows[] = {
        {F_RDLCK, 0x100000, true}, {F_WRLCK, 0x100000, false}, {F_WRLCK, 0x200000, true}};
    for (const auto &row : rows) {
        put(tmp("zt731.log"), FILE_OF, std::string(row.size, 'x'));
        int held = open(tmp("zt731.log").c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock = {.l_type = row.type, .l_whence = SEEK_SET, .l_start = 0, .l_len = 0, .l_pid = 0};
        ASSERT_EQ(fcntl(held, F_SETLK, &lock), 0);
        EXPECT_EQ(outputOf(get("nothing")), "");
        EXPECT_EQ(log().empty(), row.rotated) << row.type << " " << row.size;
        close(held);
    }
}

/* As a shell does on the way to a new digit: echo 7 >/tmp/devmgr_log_level */
TEST_F(LogFault, levelFileIsTruncatedWhileRunning)
{
    writeFile(tmp("devmgr_log_level"), "7");
    command("fault " OP "NetworkOSVersionGet delay=500");
    Process process = startProcess(programCommand(), get(priority), "");
    awaitCall(OP "NetworkOSVersionGet");
    EXPECT_EQ(truncate(tmp("devmgr_log_level").c_str(), 0), 0);
    EXPECT_EQ(outputOf(finishProcess(process)), priorityAnswer);
    EXPECT_EQ(log().find("ORNIS"), std::string::npos); /* no digit is 6 */
}

/* A session that cannot be opened for writing is refused; log entries go to the standard output. */
TEST_F(FileSystemFault, isReadOnly)
{
    const Environment readOnly = {{"SANDBOX_READ_ONLY", "1"}};
    std::string output = outputOf(get(priority, readOnly));
    EXPECT_TRUE(output.ends_with("] 403 Forbidden\n" + refused)) << output;
    output = outputOf(get("nothing", readOnly));
    EXPECT_TRUE(std::regex_match(output, notFoundLine)) << output;
    EXPECT_EQ(session(), freshSession);
    EXPECT_EQ(access(tmp("zt731.log").c_str(), F_OK), -1);
}

/* No file can grow. The session is valid: its file needs no more space. */
TEST_F(FileSystemFault, isFull)
{
    const std::string full = "trap '' XFSZ; ulimit -f 0; exec \"$@\"";
    for (const char *level : {"", "7"}) {
        writeFile(tmp("devmgr_log_level"), level);
        EXPECT_EQ(outputAfter(full, get(priority)), priorityAnswer);
        EXPECT_EQ(outputAfter(full, get("nothing")), "");
        EXPECT_EQ(session(), freshSession);
        EXPECT_EQ(log(), "");
    }
    writeFile(tmp("session/token"), "joe\n1\nro\ntoken"); /* timed out: it can still be deleted, and is */
    EXPECT_EQ(outputAfter(full, get(priority, {{"SANDBOX_UPTIME", "9000"}})), refused);
    EXPECT_EQ(access(tmp("session/token").c_str(), F_OK), -1);
}

/* In a full tmpfs, a new file gets a size, but no memory for its bytes. */
TEST_F(FileSystemFault, isFullAndInMemory)
{
    if (runProcess({"unshare", "-rm", "true"}).exitStatus != 0)
        GTEST_SKIP() << "mounting is not allowed here";
    const std::string mounted = "mount -t tmpfs -o size=64k none \"$SANDBOX_TMP\" && cd \"$SANDBOX_TMP\" && "
                                "mkdir session && echo admin >session/token && { cat /dev/zero 2>&- >fill; "
                                "\"$@\"; echo \" $?\"; \"$@\"; echo \" $?\"; }";
    EXPECT_EQ(outputAfter(mounted, get(priority), {"unshare", "-rm"}),
              priorityAnswer + " 0\n" + priorityAnswer + " 0\n");
}

/* The session file */

TEST_F(SessionFault, hasOddContent)
{
    const std::string huge(5'000'000, 'x');
    const struct { const char *what; bool served; std::string content; Kind kind = FILE_OF; } rows[] = {
        {"whole", true, "joe\n7000\nrw\ntoken"},
        {"the administrator's without its newline", false, "admin"},
        {"nothing behind the administrator's", true, "admin\n"}, /* no stamp, no time-out */
        {"half a stamp", false, "joe\n70"},
        {"a role of other letters", false, "joe\n7000\nRW\ntoken"},
        {"a zero in the administrator's name", false, std::string("admin\0\n7000\ntoken", 17)},
        {"a zero in the role", false, std::string("joe\n7000\n\0rw\ntoken", 18)},
        {"a carriage return", false, "admin\r\n7000\r\ntoken"},
        {"megabytes", false, huge},
        {"megabytes behind the administrator's name", false, "admin" + huge},
        {"a stamp of megabytes", false, "joe\n" + huge + "\nrw\ntoken"},
        {"megabytes behind a session", true, "joe\n7000\nrw\ntoken" + huge},
        {"newlines", false, std::string(5'000'000, '\n')},
        {"a stamp out of range", true, "joe\n99999999999999999999999\nrw\ntoken"}, /* lies ahead */
        {"a link to a device", false, "/dev/zero", LINK_TO},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        put(tmp("session/token"), row.kind, row.content);
        takeTrace();
        EXPECT_EQ(outputOf(get(priority, {{"SANDBOX_UPTIME", "7300"}})), row.served ? priorityAnswer : refused);
        EXPECT_EQ(takeTrace().empty(), !row.served);
    }
    std::filesystem::remove(tmp("session/token"));
    EXPECT_EQ(outputOf(get(priority)), refused);
}

/* A user who can make session files could log in: only those of root and of the program's user count. */
TEST_F(SessionFault, belongsToAnotherUser)
{
    const struct { const char *what; std::string path; Kind kind; std::string content, logged; } rows[] = {
        {"his directory", "session", DIRECTORY, "", "/tmp/session is refused: it belongs to user 65534, not to root"},
        {"his file", "session/token", FILE_OF, freshSession, "A file in /tmp/session is refused: it belongs to"},
        {"his second name of a session", "session/token", SECOND_NAME_OF, tmp("mine"), ""},
        {"his link", "session", LINK_TO, tmp("my sessions"), "/tmp/session is refused: it must be a directory"},
        {"no directory", "session", FILE_OF, "", "/tmp/session is refused: it must be a directory"},
    };
    writeFile(tmp("mine"), freshSession);
    std::filesystem::create_directories(tmp("my sessions"));
    writeFile(tmp("my sessions/token"), freshSession);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        put(tmp("session"), DIRECTORY);
        put(tmp(row.path), row.kind, row.content);
        if (row.kind == DIRECTORY)
            writeFile(tmp("session/token"), freshSession);
        if (row.logged.find("belongs") != std::string::npos && !giveAway(tmp(row.path)))
            continue;
        EXPECT_EQ(outputOf(get(priority)), refused);
        EXPECT_NE(log().find("] " + row.logged), std::string::npos) << log();
        EXPECT_EQ(takeTrace(), "");
        unlink(tmp("zt731.log").c_str());
    }
}

/* After ten seconds the request is refused, also if the web server has blocked the signal of the timer. */
TEST_F(SessionFault, isLockedForLongerThanTheLimit)
{
    int held = open(tmp("session/token").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    Clock::time_point start = Clock::now();
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    Process process = startProcess(programCommand(), get(priority), "");
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    EXPECT_EQ(outputOf(run(get(priority))), refused);
    EXPECT_GE(Clock::now() - start, 10s);
    EXPECT_EQ(outputOf(finishProcess(process)), refused);
    EXPECT_LT(Clock::now() - start, 30s);
    EXPECT_NE(log().find("] File lock failed\n"), std::string::npos) << log();
    EXPECT_EQ(session(), freshSession);
    EXPECT_EQ(takeTrace(), "");
    close(held);
}

/* A process that locks the session again and again does not keep other requests out. */
TEST_F(SessionFault, isLockedAgainAndAgain)
{
    int held = open(tmp("session/token").c_str(), O_RDWR | O_CLOEXEC);
    std::atomic<bool> served = false;
    std::thread neighbour([&] {
        while (!served && flock(held, LOCK_EX) == 0 && usleep(20'000) == 0)
            flock(held, LOCK_UN);
    });
    Clock::time_point start = Clock::now();
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(outputOf(run(get(priority))), priorityAnswer);
    EXPECT_LT(Clock::now() - start, 3s);
    served = true;
    neighbour.join();
    close(held);
}

/* Standard streams */

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
            unlink(tmp("zt731.log").c_str());
            writeFile(tmp("devmgr_log_level"), level);
            EXPECT_EQ(outputAfter(row.script, get(priority)), row.output);
            EXPECT_EQ(readFile(tmp("devmgr_log_level")), level + std::string(3, 0)); /* no answer in it */
            EXPECT_EQ(log().find("32768"), std::string::npos) << log();
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

/* The answer is out before the connection is closed. */
TEST_F(ServerFault, tearDownCrashes)
{
    Outcome outcome = run(get(priority, {{"SANDBOX_TEAR_DOWN_CRASHES", "1"}}));
    EXPECT_EQ(outcome.signal, SIGABRT);
    EXPECT_EQ(outcome.output, priorityAnswer);
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

/* Memory */

/* One request, and the calls and the answer it leads to. */
struct Exchange {
    const char *method;
    std::string target;   /* below /api/v2/switching/, with its query */
    std::string body;
    std::string asked;    /* the trace's lines, without those of the start-up */
    std::string answered; /* the body of the answer */
};

class MemoryFault : public Faults {
protected:
    /*
     * Runs the request once for each of its allocations, which fails. The program answers correctly; or that the body is
     * invalid; or only the header; or nothing, not even a header, and ends with status 1. The log says why. Or it refuses
     * the request. The switch gets the right calls or none.
     */
    void failEveryAllocation(const Exchange &exchange)
    {
        const std::string right = header + exchange.answered;
        Environment environment = request(exchange.method, exchange.target, exchange.body);
        for (int n = 1, failed = true; failed; n++) {
            SCOPED_TRACE(exchange.target + ", allocation " + std::to_string(n));
            ASSERT_LT(n, 5000);
            put(tmp("session/token"), FILE_OF, "admin\n0\ntoken");
            put(tmp("devmgr_log_level"), FILE_OF, "7");
            unlink(tmp("allocation-failed").c_str());
            takeTrace();
            environment["SANDBOX_FAIL_ALLOCATION"] = std::to_string(n);
            Outcome outcome = run(environment, exchange.body);
            std::string asked = takeTrace(), output = outcome.output;
            failed = access(tmp("allocation-failed").c_str(), F_OK) == 0;
            bool invalid = !exchange.body.empty() && output == header + failureLine(10003);
            EXPECT_EQ(outcome.errors, "");
            EXPECT_TRUE(asked == exchange.asked || (asked.empty() && output != right)) << asked;
            EXPECT_TRUE(output == right || output == header || output == "" || (asked.empty() && (invalid || output == refused))) << output;
            /* the builder with a fixed buffer logs only a failed print: established behaviour */
            bool inFixedBuffer = exchange.answered == success("");
            const std::string logged = log() + readFile(tmp("zt731.log.old"));
            EXPECT_TRUE((output != header && !invalid) || (inFixedBuffer && !asked.empty()) ||
                        logged.find("] [MEM] Failed to ") != std::string::npos) << logged;
            EXPECT_TRUE(outcome.exitStatus == 0 || (outcome.exitStatus == 1 && asked.empty() && output == ""))
                << outcome.exitStatus << ", signal " << outcome.signal;
            expectSessionIsWhole();
            EXPECT_TRUE(failed || (output == right && outcome.exitStatus == 0 && n > 10)) << n << output;
        }
    }
};

TEST_F(MemoryFault, failsAtEveryAllocation)
{
    const struct { const char *operation, *fault; Exchange exchange; } rows[] = {
        {"Dot1dStpPriorityGet", "value=32768", {"GET", priority, "", "value=0 -> 0 value=32768", priorityData}},
        {"VlanVIDListGet", "numOfElements=3 vidList=10,20,30",
         {"GET", "vlan/vid-list?intfNum=3", "",
          "ifNum=3 vidList=0() numOfElements=0 -> 0 vidList=3(10 20 30) numOfElements=3",
          success(R"("vlan":{"numOfElements":3,"vidList":[10,20,30]})")}},
        {"MvrpVlanArrayGet", "vlans=10,20 count=2",
         {"GET", "mvrp/vlan-array?vlanType=1", "", "vlanType=1 vlans=0() count=0 -> 0 vlans=2(10 20) count=2",
          success(R"("mvrp":{"vlanList":{"numEntries":2,"ids":[10,20]},"count":2})")}},
        {"DbDot1dTpAgingTimeSet", "",
         {"PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingTime": 400})", "seconds=400 -> 0", successLine()}},
        {"Dot1qSwPortTrunkAllowedVlanListSet", "",
         {"PUT", "vlan/dot1q-sw-port-trunk-allowed-vlan-list", R"({"intf": 2, "vidList": [10, 20]})",
          "ifNum=2 vidList=2(10 20) -> 0 vidList=2(10 20)", success("")}},
        /* no default for a parameter that was lost: it would mean another database, or VLAN */
        {"FdbAddrAgingTimeoutGet", "timeOut=77",
         {"GET", "fdb/addr-aging-timeout?a&b&c&d&e&f&g&h&i&j&k&fdbId=2", "", "fdbId=2 timeOut=0 -> 0 timeOut=77",
          success(R"("fdb":{"timeOut":77})")}},
        {"Dot1qApiPrivateVlanAssocRemove", "",
         {"DELETE", R"(vlan/dot1q-api-private-vlan-assoc?{"vidList":[10]})", "",
          "primaryVid=0 secondaryVidList=1(10) -> 0", success("")}},
        {"MacalRuleIsServicePortSet", "flag=1",
         {"PUT", "macal/rule-is-service-port", "macalName=mgmt&macalRulePrio=2",
          R"(macalName=[256]"mgmt" priority=2 flag=0 -> 0 macalName=[256]"mgmt" flag=1)",
          success(R"("macal":{"isRuleForServicePort":true})")}},
        {"ProtectedPortGroupNameSet", "",
         {"PUT", "protectedport/group-name?groupId=2", R"({"groupName":"lab"})",
          R"(groupId=2 name=[4]"lab" -> 0 name=[4]"lab")", successLine()}},
        {"VlanMacOuiVlanNextGet", "nextOui=00:11:22 vlanId=5",
         {"GET", "vlan/mac-oui-vlan-next?oui=00%3A11%3A21", "",
          R"(oui=[8]"00:11:21" nextOui=[64]"" vlanId=0 -> 0 oui=[8]"00:11:21" nextOui=[64]"00:11:22" vlanId=5)",
          success(R"("vlan":{"nextOui":"00:11:22","vlanId":5})")}},
    };
    for (auto [operation, fault, exchange] : rows) {
        command(std::string("fault " OP) + operation + " code=0 " + fault);
        exchange.asked = std::string(OP) + operation + " " + exchange.asked;
        failEveryAllocation(exchange);
    }
}
