/*
 * vswitch_test.cpp - the virtual switch as a process: its socket, clients, commands, faults, trace and clock.
 */
#include <signal.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "tests/support/driver.h"
#include "tests/support/rpc.h"

#define OP "rpcclt_openapiDot1d"

class VswitchTest : public SwitchTest {
protected:
    /* Sends the bytes. Returns what the server sends back, "" when it closes the connection. */
    std::string exchange(int client, const std::string &bytes)
    {
        EXPECT_EQ(::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL), (ssize_t)bytes.size());
        char answer[65536];
        ssize_t got = recv(client, answer, sizeof answer, 0);
        EXPECT_GE(got, 0) << "no answer in time";
        return std::string(answer, got > 0 ? (size_t)got : 0);
    }

    static std::string portState(const std::string &data) { return success(R"("bridge":{"portState":)" + data + "}"); }

    void expectAlive()
    {
        EXPECT_EQ(send("GET", "bridge/dot1d-stp-priority"), success(R"("bridge":{"priority":32768})"));
    }
};

using VswitchSocket = VswitchTest;
using VswitchServer = VswitchTest;
using FaultInjection = VswitchTest;
using VswitchCommands = VswitchTest;
using VswitchOperations = VswitchTest;
using VswitchTrace = VswitchTest;
using VswitchClock = VswitchTest;

static const std::string okReply = replyOf(OPEN_OK);

TEST_F(VswitchSocket, isServedByOneProcess)
{
    Outcome second = runProcess(switchCommand({"serve"}));
    EXPECT_EQ(second.exitStatus, 1);
    EXPECT_EQ(second.errors, "vswitch: another process is serving on " + socket + "; stop it or choose another path\n");
    expectAlive();
    stopSwitch(); /* checks for exit status 0 */
    EXPECT_EQ(access(socket.c_str(), F_OK), -1);

    writeFile(socket, "precious");
    EXPECT_EQ(runProcess(switchCommand({"serve"})).exitStatus, 1);
    EXPECT_EQ(readFile(socket), "precious");
    unlink(socket.c_str());
}

TEST_F(VswitchSocket, isTakenOverFromADeadProcess)
{
    stopSwitch();
    Process victim = launchSwitch({});
    kill(victim.pid, SIGKILL);
    finishProcess(victim);
    ASSERT_EQ(access(socket.c_str(), F_OK), 0);
    startSwitch();
    expectAlive();
}

TEST_F(VswitchServer, survivesBadClients)
{
    const std::string check = "rpcclt_openapiConnectivityCheck", one = "n" + bytesOf(1);
    for (const std::string &bytes : {
             bytesOf(0xFFFFFFFF), messageOf(""), messageOf("\1"), messageOf({2, 0}), messageOf("\1\xFFxx"),
             callOf(check, one), callOf(OP "BaseNumPortsGet"), callOf(OP "BaseNumPortsGet", one),
             callOf(OP "BaseBridgeAddressGet", textArgument(0xFFFFFFFF, 0, "")),
             callOf(OP "BaseBridgeAddressGet", textArgument(2, 3, "abc"))}) {
        int client = connectTo(socket);
        EXPECT_EQ(exchange(client, bytes), "");
        close(client);
    }
    int client = connectTo(socket);
    std::string unknown = exchange(client, callOf("rpcclt_openapiNoSuchThing"));
    EXPECT_EQ(unknown, replyOf(-29));
    EXPECT_EQ(exchange(client, callOf(check)), okReply);
    ::send(client, "\x40\0\0\0half", 8, MSG_NOSIGNAL); /* a message that never ends */
    int other = connectTo(socket);
    EXPECT_EQ(exchange(other, callOf(check)), okReply);
    close(client);
    close(other);
    expectAlive();
}

TEST_F(VswitchServer, servesManyClientsAtOnce)
{
    std::vector<int> clients;
    clients.reserve(300);
    for (int i = 0; i < 300; i++)
        clients.push_back(connectTo(socket));
    for (int round = 0; round < 3; round++)
        for (int client : clients)
            ASSERT_EQ(exchange(client, callOf("rpcclt_openapiConnectivityCheck")), okReply);
    /* two calls in one write get two replies */
    std::string twice = callOf("rpcclt_openapiConnectivityCheck") + callOf("rpcclt_openapiConnectivityCheck");
    std::string answers = exchange(clients[0], twice);
    if (answers == okReply)
        answers += exchange(clients[0], "");
    EXPECT_EQ(answers, okReply + okReply);
    for (int client : clients)
        close(client);
}

/* A fault applies to calls whose arguments match. The newest fault wins; faults of "*" come last. */
TEST_F(FaultInjection, appliesToTheCallsThatMatch)
{
    command("fault * port=2 code=-28"); /* start-up calls have no such argument: the program starts */
    command("fault " OP "StpPortStateGet port=3 code=-24");
    command("fault " OP "StpPortStateGet port=4 value=broken");
    command("fault " OP "TpFdbEntryNextGet address==02:00:00:00:01:01 address=02:00:00:00:00:99 code=0");
    const struct { const char *target; std::string answer; } rows[] = {
        {"dot1d-stp-port-state?port=1", portState("5")},
        {"dot1d-stp-port-state?port=2", failure(17002)},
        {"dot1d-stp-port-state?port=3", failure(10011)},
        {"dot1d-stp-port-state?port=4", portState("6")},
        {"dot1d-tp-fdb-entry-next", success(R"("bridge":{"address":"02:00:00:00:01:01"})")},
        {"dot1d-tp-fdb-entry-next?address=02:00:00:00:01:01", success(R"("bridge":{"address":"02:00:00:00:00:99"})")},
    };
    for (const auto &row : rows)
        EXPECT_EQ(send("GET", std::string("bridge/") + row.target), row.answer) << row.target;
    command("fault " OP "StpPortStateGet code=-22 times=1");       /* for the next call, whatever its arguments */
    command("fault " OP "StpPortStateGet port=3 value=1 times=9"); /* replaces the fault of port 3 */
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-port-state?port=4"), failure(10003));
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-port-state?port=4"), portState("6"));
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-port-state?port=3"), portState("1"));
    EXPECT_EQ(runProcess(switchCommand({"faults"})).output,
              "* port=2 code=-28 (1 calls met it)\n"
              OP "StpPortStateGet port=3 value=1 times=8 (1 calls met it)\n"
              OP "StpPortStateGet port=4 value=broken (2 calls met it)\n"
              OP "TpFdbEntryNextGet address==02:00:00:00:01:01 address=02:00:00:00:00:99 code=0 (1 calls met it)\n");

    runProcess(switchCommand({"fault", OP "StpDesignatedRootGet", "root=two  \"words\" it's"}));
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-designated-root"),
              success(R"("bridge":{"designatedRoot":"two  \"words\" it's"})"));

    /* a list can be written as the trace prints it */
    const std::string list = "rpcclt_openapiVlanVIDListGet";
    for (const std::string given : {"5(10 20)", "2(10 20)", "(10 20)", "10,20"}) {
        const std::string shown = given[0] == '5' ? "5(10 20 0 0 0)" : "2(10 20)";
        EXPECT_EQ(runProcess(switchCommand({"fault", list, "code=0", "vidList=" + given})).exitStatus, 0);
        takeTrace();
        send("GET", "vlan/vid-list?intfNum=3");
        EXPECT_EQ(takeTrace(),
                  list + " ifNum=3 vidList=0() numOfElements=0 -> 0 vidList=" + shown + " numOfElements=0");
    }
}

TEST_F(VswitchCommands, refuseWrongArgumentsWithAReason)
{
    const struct { std::vector<std::string> words; const char *says; } rows[] = {
        {{"nonsense"}, "there is no command \"nonsense\"; --help lists them"},
        {{"serve", "now"}, "\"serve\" takes options only, not \"now\""},
        {{"--ports", "0"}, "--ports takes a number from 1 to 4096, not \"0\""},
        {{"--nonsense"}, "unrecognized option '--nonsense'"},
        {{"fault"}, "\"fault\" takes the arguments OPERATION [ARG...], not 0"},
        {{"reset", "it"}, "\"reset\" takes no arguments, not 1"},
        {{"pass", "-5"}, "\"advance\" takes a number of seconds from 1 to 10000000, not \"-5\""},
        {{"pass", "10000001"}, "\"advance\" takes a number of seconds from 1 to 10000000, not \"10000001\""},
        {{"fault", "rpcclt_openapiNothing"},
         "there is no operation \"rpcclt_openapiNothing\" (\"operations\" lists them, \"*\" is all of them)"},
        {{"fault", OP "StpPriorityGet", "wrong=1"},
         "\"wrong=1\": " OP "StpPriorityGet has no parameter \"wrong\" (it has value), nor is it code, times or delay"},
        {{"fault", OP "StpPriorityGet", "value=4294967296"},
         "\"value=4294967296\": \"4294967296\" is no value of value (see \"operations\")"},
        {{"fault", OP "StpPriorityGet", "code=x"}, "\"code=x\": code takes a number"},
        {{"fault", OP "StpPriorityGet", "times=0"}, "\"times=0\": times takes a number from 1"},
        {{"fault", OP "StpPriorityGet", "now"},
         "\"now\": it is none of code=N, times=N, delay=MS, hangup, garbage, NAME=VALUE"},
        {{"fault", "*", "wrong=1"}, "\"wrong=1\": no operation has a parameter \"wrong\""},
        {{"fault", "rpcclt_openapiVlanVIDListGet", "vidList=3(1 2"},
         "\"vidList=3(1 2\": \"3(1 2\" is no value of vidList (see \"operations\")"},
        {{"clear", "it"}, "there is no operation \"it\" (\"operations\" lists them, \"*\" is all of them)"},
        {{"operations", "nothing"}, "there is no operation with \"nothing\" in its name"},
    };
    for (const auto &row : rows) {
        Outcome outcome = runProcess(switchCommand(row.words));
        EXPECT_EQ(outcome.exitStatus, 2) << row.says;
        EXPECT_EQ(outcome.output, "") << row.says;
        EXPECT_EQ(outcome.errors, std::string("vswitch: ") + row.says + "\n");
    }
    for (const char *asked : {"--help", "--version"}) {
        Outcome outcome = runProcess(switchCommand({asked}));
        EXPECT_EQ(outcome.exitStatus, 0);
        EXPECT_NE(outcome.output, "");
        EXPECT_EQ(outcome.errors, "");
    }
}

TEST_F(VswitchOperations, areAllImplementedAndListed)
{
    Outcome outcome = runProcess(switchCommand({"operations"}));
    EXPECT_GT(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 40);
    EXPECT_EQ(outcome.output.find("the model lacks it"), std::string::npos) << outcome.output;
    EXPECT_EQ(runProcess(switchCommand({"operations", "ifparticipationset"})).output,
              "rpcclt_openapiVlanIfParticipationSet\n"
              "    vlanId             in    uint32  VLAN, 1 to 4094\n"
              "    ifNum              in    uint32  interface number: ports, then link aggregation groups; 0 for none\n"
              "    mode               in    uint32  0 auto, 1 include, 2 exclude\n");
}

TEST_F(VswitchTrace, namesTheProcessThatAsked)
{
    startSwitch({"--trace-no-start"});
    Process asking = startProcess(programCommand(), request("GET", "bridge/dot1d-stp-priority"), "");
    finishProcess(asking);
    EXPECT_EQ(readFile(directory + "/trace"),
              "[" + std::to_string(asking.pid) + "] " OP "StpPriorityGet value=0 -> 0 value=32768\n");
}

TEST_F(VswitchTrace, followsNoLink)
{
    EXPECT_EQ(symlink((directory + "/precious").c_str(), (directory + "/link").c_str()), 0);
    Outcome refused = runProcess(switchCommand({"--socket", directory + "/other", "--trace", directory + "/link"}));
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_NE(refused.errors.find("it is a symbolic link"), std::string::npos) << refused.errors;
    EXPECT_EQ(access((directory + "/precious").c_str(), F_OK), -1);
}

/* While nobody reads the trace, the switch serves on. The next reader gets the number of lost lines. */
TEST_F(VswitchTrace, countsTheLinesThatASlowReaderMissed)
{
    stopSwitch();
    Process unread = launchSwitch({"--trace", "-"});
    char bytes[65536];
    int client = connectTo(socket);
    const std::string list = bytesOf(4096) + std::string(8192, '\x11'); /* a line of 20 KB */
    const std::string asked =
        callOf("rpcclt_openapiDot1qApiPrivateVlanAssocAdd", "n" + bytesOf(1) + "l" + bytesOf(8196) + list);
    const int calls = 70;
    for (int i = 0; i < calls; i++)
        ASSERT_EQ(exchange(client, asked), replyOf(-22)) << i;

    std::string trace;
    while (trace.find(" lines dropped: the reader was too slow)\n") == std::string::npos) {
        ssize_t got = read(unread.output, bytes, sizeof bytes);
        ASSERT_GT(got, 0);
        trace.append(bytes, (size_t)got);
    }
    size_t notice = trace.rfind('(');
    EXPECT_EQ(std::count(trace.begin(), trace.begin() + (long)notice, '\n') + atol(&trace[notice + 1]), calls);
    exchange(client, asked);
    ASSERT_GT(read(unread.output, bytes, 1), 0);
    EXPECT_EQ(bytes[0], '[');
    kill(unread.pid, SIGTERM);
    finishProcess(unread);
    close(client);
}

/* A jump of months is not counted second by second. CPU time, because the machine may be busy. */
TEST_F(VswitchClock, jumpsFarInOneStep)
{
    command("hold");
    send("PUT", "loop-protect/admin-mode", R"({"adminMode":1})");
    for (const char *setting : {"port-admin-mode?ifNum=1", "port-tx-mode?ifNum=1"})
        send("PUT", std::string("loop-protect/") + setting, R"({"mode":1})");
    auto cpuSeconds = [&] {
        clockid_t clock;
        timespec used = {};
        EXPECT_TRUE(clock_getcpuclockid(vswitch.pid, &clock) == 0 && clock_gettime(clock, &used) == 0);
        return (double)used.tv_sec + (double)used.tv_nsec / 1e9;
    };
    double before = cpuSeconds();
    command("pass 10000000");
    EXPECT_EQ(send("GET", "loop-protect/port-packet-tx-count?ifNum=1"), success(R"("loopProtect":{"count":2000001})"));
    EXPECT_LT(cpuSeconds() - before, 0.1);
}

/* Clients with large unfinished messages are disconnected; clients with small or complete ones are served. */
TEST_F(VswitchServer, limitsTheMemoryOfUnfinishedMessages)
{
    const std::string huge = callOf("rpcclt_openapiNoSuchThing", std::string(WIRE_MESSAGE_MAX - 64, 'x'));
    const std::string check = callOf("rpcclt_openapiConnectivityCheck");
    int small = connectTo(socket);
    ::send(small, check.data(), 3, MSG_NOSIGNAL);
    std::vector<int> clients;
    for (int i = 0; i < 24; i++) {
        clients.push_back(connectTo(socket));
        ::send(clients.back(), huge.data(), huge.size() - 1, MSG_NOSIGNAL);
    }
    EXPECT_EQ(exchange(clients.back(), "x"), replyOf(-29));
    EXPECT_EQ(exchange(small, check.substr(3)), okReply);
    long kept = 0;
    for (int client : clients) {
        char byte;
        kept += recv(client, &byte, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
        close(client);
    }
    EXPECT_LE(kept, 4);
    close(small);
    expectAlive();
}
