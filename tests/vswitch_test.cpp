/*
 * vswitch_test.cpp - the virtual switch as a server: many clients, bad clients, one socket, a clean end.
 */
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>

#include "tests/support/driver.h"
#include "wire.h"

class VirtualSwitch : public SwitchTest {
protected:
    int connectClient()
    {
        int client = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, socket.c_str());
        EXPECT_EQ(connect(client, (sockaddr *)&address, sizeof address), 0);
        timeval limit = {5, 0};
        setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        return client;
    }

    static std::string frame(const std::string &content)
    {
        uint32_t length = (uint32_t)content.size();
        return std::string((const char *)&length, sizeof length) + content;
    }

    static std::string call(const std::string &name, const std::string &arguments = "")
    {
        return frame(std::string({(char)WIRE_VERSION, (char)name.size()}) + name + arguments);
    }

    /* What the server answers to these bytes; "" when it hangs up. */
    std::string exchange(int client, const std::string &bytes)
    {
        EXPECT_EQ(::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL), (ssize_t)bytes.size());
        char answer[65536];
        ssize_t got = recv(client, answer, sizeof answer, 0);
        EXPECT_GE(got, 0) << "no answer in time";
        return std::string(answer, got > 0 ? (size_t)got : 0);
    }

    std::vector<std::string> command(const std::string &verb = "serve")
    {
        return {buildDirectory() + "/vswitch", "--socket", socket, verb};
    }

    void expectAlive() { EXPECT_EQ(send("GET", "bridge/dot1d-stp-priority"), success(R"("bridge":{"priority":32768})")); }
};

static const std::string okReply = std::string("\4\0\0\0\0\0\0\0", 8);

TEST_F(VirtualSwitch, servesOnItsSocketOnce)
{
    Outcome second = runProcess(command());
    EXPECT_EQ(second.exitStatus, 1);
    EXPECT_EQ(second.errors, "vswitch: another virtual switch serves on " + socket + "; stop it or choose another with --socket\n");
    expectAlive();
    stopSwitch(); /* checks for exit status 0 */
    EXPECT_EQ(access(socket.c_str(), F_OK), -1);

    writeFile(socket, "precious");
    EXPECT_EQ(runProcess(command()).exitStatus, 1);
    EXPECT_EQ(readFile(socket), "precious");
    unlink(socket.c_str());
}

TEST_F(VirtualSwitch, takesTheSocketOfOneThatDied)
{
    stopSwitch();
    Process victim = startProcess(command(), {}, "");
    char line[256];
    ASSERT_GT(read(victim.output, line, sizeof line), 0);
    kill(victim.pid, SIGKILL);
    finishProcess(victim);
    ASSERT_EQ(access(socket.c_str(), F_OK), 0);
    startSwitch();
    expectAlive();
}

TEST_F(VirtualSwitch, survivesBadClients)
{
    const std::string check = "rpcclt_openapiConnectivityCheck";
    for (const std::string &bytes : {std::string("\xFF\xFF\xFF\xFF"), frame(""), frame("\1"), frame({2, 0}), frame("\1\xFFxx"),
                                     call(check, std::string("n\1\0\0\0", 5)), call("rpcclt_openapiDot1dBaseNumPortsGet"),
                                     call("rpcclt_openapiDot1dBaseNumPortsGet", std::string("n\1\0\0\0", 5)),
                                     call("rpcclt_openapiDot1dBaseBridgeAddressGet", std::string("T\xFF\xFF\xFF\xFF\0\0\0\0", 9)),
                                     call("rpcclt_openapiDot1dBaseBridgeAddressGet", std::string("T\2\0\0\0\3\0\0\0abc", 12))}) {
        int client = connectClient();
        EXPECT_EQ(exchange(client, bytes), "");
        close(client);
    }
    int client = connectClient();
    std::string unknown = exchange(client, call("rpcclt_openapiNoSuchThing"));
    EXPECT_EQ(unknown, std::string("\4\0\0\0\xE3\xFF\xFF\xFF", 8)); /* -29 */
    EXPECT_EQ(exchange(client, call(check)), okReply);
    ::send(client, "\x40\0\0\0half", 8, MSG_NOSIGNAL); /* a request that never ends */
    int other = connectClient();
    EXPECT_EQ(exchange(other, call(check)), okReply);
    close(client);
    close(other);
    expectAlive();
}

TEST_F(VirtualSwitch, servesManyClientsAtOnce)
{
    std::vector<int> clients;
    clients.reserve(300);
    for (int i = 0; i < 300; i++)
        clients.push_back(connectClient());
    for (int round = 0; round < 3; round++)
        for (int client : clients)
            ASSERT_EQ(exchange(client, call("rpcclt_openapiConnectivityCheck")), okReply);
    /* two requests in one go get two answers */
    std::string twice = call("rpcclt_openapiConnectivityCheck") + call("rpcclt_openapiConnectivityCheck");
    std::string answers = exchange(clients[0], twice);
    if (answers == okReply)
        answers += exchange(clients[0], "");
    EXPECT_EQ(answers, okReply + okReply);
    for (int client : clients)
        close(client);
}

TEST_F(VirtualSwitch, letsOnlyTheLateAnswerWait)
{
    tell("fault rpcclt_openapiDot1dStpPriorityGet delay=2000 times=1");
    auto before = std::chrono::steady_clock::now();
    Process late = startProcess(programCommand(), request("GET", "bridge/dot1d-stp-priority"), "");
    while (takeTrace().empty())
        usleep(1000);
    expectAlive();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1800));
    EXPECT_NE(finishProcess(late).output.find("32768"), std::string::npos);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(2000));
}

TEST_F(VirtualSwitch, isToldWhatToDo)
{
    tell("fault rpcclt_openapiDot1dStpPriorityGet code=-24 times=2");
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-priority"), failure(10011));
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-priority"), failure(10011));
    expectAlive();
    tell("fault rpcclt_openapiDot1dStpPriorityGet value=5"); /* asks the model, then says otherwise */
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-priority"), success(R"("bridge":{"priority":5})"));
    tell("clear rpcclt_openapiDot1dStpPriorityGet");
    expectAlive();
    send("PUT", "bridge/db-dot1d-tp-aging-time", R"({"agingTime":400})");
    tell("reset");
    EXPECT_EQ(send("GET", "bridge/db-dot1d-tp-aging-time"), success(R"("bridge":{"agingTime":300})"));

    for (const char *wrong : {"fault", "fault rpcclt_openapiNothing", "fault rpcclt_openapiDot1dStpPriorityGet wrong=1",
                              "fault rpcclt_openapiDot1dStpPriorityGet code=x", "fault rpcclt_openapiDot1dStpPriorityGet times=0",
                              "pass", "pass 0", "pass soon"}) {
        std::vector<std::string> words = {"sh", "-c", "'" + buildDirectory() + "/vswitch' --socket " + socket + " " + wrong};
        Outcome outcome = runProcess(words);
        EXPECT_EQ(outcome.exitStatus, 2) << wrong;
        EXPECT_NE(outcome.errors, "") << wrong;
    }
    EXPECT_EQ(runProcess(command("nonsense")).exitStatus, 2);
    EXPECT_EQ(runProcess({buildDirectory() + "/vswitch", "--ports", "0"}).exitStatus, 2);
}

TEST_F(VirtualSwitch, modelsEveryOperationOfTheList)
{
    Outcome outcome = runProcess(command("operations"));
    EXPECT_GT(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 40);
    EXPECT_EQ(outcome.output.find("the model lacks it"), std::string::npos) << outcome.output;
}

TEST_F(VirtualSwitch, hasAsManyPortsAsItIsTold)
{
    startSwitch({"--ports", "4", "--stations", "0"});
    EXPECT_EQ(send("GET", "bridge/dot1d-base-num-ports"), success(R"("bridge":{"numPorts":4})"));
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-port-state?port=5"), failure(10003));
    EXPECT_EQ(send("GET", "bridge/dot1d-tp-fdb-entry-next"), success(R"("bridge":{"address":"02:A0:C9:00:00:01"})"));
}
