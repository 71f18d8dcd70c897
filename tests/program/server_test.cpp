/*
 * server_test.cpp - the server of the switch hangs up, is late, is not there, or replies what it never should.
 */
#include <sys/socket.h>
#include <sys/un.h>

#include <thread>

#include "tests/program/program_test.h"
#include "tests/support/rpc.h"

using ServerFault = ProgramTest;

static const Environment impatient = {{"OPENCLT_TIMEOUT_MS", "300"}, {"SANDBOX_SLEEP_MS", "1"}};

/* What one of two calls returns, and what becomes of the other. */
TEST_F(ServerFault, failsInOneOfTwoCalls)
{
    for (const char *trouble : {"hangup", "rubbish", "delay=60000"}) {
        command("fault " OP "ProtectedPortGroupIntfListGet " + std::string(trouble));
        EXPECT_EQ(outputOf(get("protectedport/group-intf-list?groupId=1", impatient)), header + failure(10000)) << trouble;
    }
    command("fault " OP "ProtectedPortGroupIntfCountGet code=0 count=4294967295"); /* too long to be requested */
    takeTrace();
    EXPECT_EQ(outputOf(get("protectedport/group-intf-list?groupId=1")), header + failure(10000));
    EXPECT_THAT(takeTrace(), Not(HasSubstr("ListGet")));
    command("fault " OP "VoipIntfModeGet type=1 code=-24"); /* the answer is the first failure */
    command("fault " OP "VoipIntfModeGet type=2 code=-28");
    EXPECT_EQ(outputOf(get("voip/intf-mode?ifNum=3")), header + failure(10011));
    EXPECT_THAT(takeTrace(), HasSubstr("type=2"));
}

TEST_F(ServerFault, failsAtTheStart)
{
    const std::string three = "3 3 3 3 3 3 "; /* pauses, in seconds */
    const struct { const char *fault; std::string slept, logged, output = priorityAnswer; } rows[] = {
        {OP "ConnectivityCheck hangup times=6", three, ""},
        {OP "ConnectivityCheck rubbish times=6", three, ""},
        {OP "ConnectivityCheck delay=2000 times=2", "3 3 ", ""},
        {OP "NetworkOSVersionGet hangup", "", "Network OS Version retrieve error\n"},
        {OP "ApiVersionGet delay=2000", "", "Open API Version retrieve error\n"},
        {OP "ConnectivityCheck hangup", three, "", ""},
        {OP "Dot1dStpPriorityGet delay=100", "", ""}, /* late, but in time */
    };
    const std::regex warning(R"(\(WARN\): kelt_cgi: \[initHandler:\d+\] RPC call can fail until server )"
                             R"(starts\. Keep trying \(result = -1\)\n)");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.fault);
        put(tmp(LOG_FILE), FILE_OF);
        put(tmp("slept"), FILE_OF);
        command("clear");
        command(std::string("fault ") + row.fault);
        EXPECT_EQ(outputOf(get(priority, impatient), "", row.output.empty() ? 255 : 0), row.output);
        EXPECT_EQ(readFile(tmp("slept")), row.slept);
        const std::string text = log();
        const std::sregex_iterator warnings(text.begin(), text.end(), warning);
        EXPECT_EQ((size_t)std::distance(warnings, std::sregex_iterator()), row.slept.size() / 2);
        const std::regex line("\\(ERROR\\): kelt_cgi: \\[initHandler:\\d+\\] " + row.logged);
        EXPECT_TRUE(row.logged.empty() || std::regex_search(text, line)) << text;
    }
    EXPECT_THAT(readFile(directory + "/trace"), HasSubstr("NetworkOSVersionGet version=[100]\"\" -> 0"));
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
    for (const Script &reply : {Script{replyOf(OPEN_OK)}, {replyOf(OPEN_FAILED)}, {replyOf(OPEN_FAILED)}, script})
        if (recv(connection, request, sizeof request, 0) > 0)
            sendBytes(connection, reply);
    while (script.then == Script::STAYS && recv(connection, request, sizeof request, 0) > 0)
        ;
    close(connection);
}

class ServerReply : public ProgramTest {
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
            EXPECT_EQ(outputOf(get(target, {{"OPENCLT_TIMEOUT_MS", "1000"}})), header + row.answer);
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
    std::string ids = "0";
    for (int i = 1; i < VLAN_ID_LIST_MAX; i++)
        ids += ",0";
    const std::string zeros = success(head + ids + "]}"), none = success(head + "]}");
    const std::string failed = failureLine(10003); /* this endpoint's code for every failure */
    expectAnswers("vlan/vid-list?intfNum=1", {
        {"more ids than there can be", {replyOf(0, list(4, count) + number(7))}, zeros},
        {"as long as it can be", {replyOf(0, list(longest.size(), longest) + number(7))}, zeros},
        {"no ids", {replyOf(0, list(0, "") + number(7))}, none},
        {"longer than it can be", {replyOf(0, list(longest.size() + 1, longest + "x") + number(7))}, failed},
        {"shorter than it says", {replyOf(0, list(longest.size(), "x"))}, failed},
    });
}

/* A process listens on the socket, but never replies; then none listens any more. */
TEST_F(ServerReply, neverComes)
{
    int listener = listenInstead();
    for (int backlog : {8, 0, -1}) { /* clients beyond the backlog do not even get a connection */
        if (backlog < 0)
            close(listener);
        else
            ASSERT_EQ(listen(listener, backlog), 0);
        EXPECT_EQ(outputOf(get(priority, {{"OPENCLT_TIMEOUT_MS", "50"}, {"SANDBOX_SLEEP_MS", "1"}}), "", 255), "");
    }
    EXPECT_EQ(session(), "admin\n0\n");
}
