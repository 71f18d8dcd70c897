/*
 * plugs_test.cpp - hosts in the ports of the virtual switch: how they come and go, how fast they are served, captures.
 */
#include <signal.h>
#include <sys/wait.h>

#include <utility>

#include "tests/support/rpc.h"
#include "tests/vswitch/frames.h"

using Plug = FrameTest;
using Capture = FrameTest;

/* A host that disconnects takes the link and its addresses away. No host is on port 6. */
TEST_F(Plug, givesThePortItsLink)
{
    auto stateOf = [&](int port) { return send("GET", "bridge/dot1d-stp-port-state?port=" + std::to_string(port)); };
    const std::string forwarding = success("\"bridge\":{\"portState\":5}");
    const std::string down = success("\"bridge\":{\"portState\":1}");
    forward({{"", "1 A>B", "2 A>B, 3 A>B, 4 A>B, 5 A>B"}, {"", "2 B>A", "1 B>A"}});
    EXPECT_EQ(stateOf(1) + stateOf(6), forwarding + down);
    close(hosts[1]);
    hosts.erase(1);
    command("settle");
    EXPECT_EQ(stateOf(1), down);
    connectHost(1);
    forward({{"settle", "2 B>A", "1 B>A, 3 B>A, 4 B>A, 5 B>A"}});
    uint32_t nonsense = htonl(65537); /* no frame is as long: the switch closes this connection only */
    ASSERT_EQ(::send(hosts[1], &nonsense, sizeof nonsense, MSG_NOSIGNAL), (ssize_t)sizeof nonsense);
    command("settle");
    EXPECT_TRUE(isHungUpOn(1));
    forward({{"", "2 B>*", "0 B>*, 3 B>*, 4 B>*, 5 B>*"}});
    int first = hosts[2];
    hosts.erase(2);
    connectHost(2); /* a port has one host */
    command("settle");
    EXPECT_TRUE(isHungUpOn(2));
    close(std::exchange(hosts[2], first));
    forward({{"", "3 C>*", "0 C>*, 2 C>*, 4 C>*, 5 C>*"}});
}

/* A host that disconnects and connects again at once is not taken for a second one, and its last frame is not lost. */
TEST_F(Plug, letsAHostReconnectAtOnce)
{
    for (int i = 0; i < 50; i++) {
        put(1, frameOf("A>B"));
        close(hosts[1]);
        hosts.erase(1);
        connectHost(1);
        command("settle");
        ASSERT_FALSE(isHungUpOn(1)) << i;
        EXPECT_EQ(collect(), "2 A>B, 3 A>B, 4 A>B, 5 A>B");
    }
}

/* Here a LAG: it is one port. */
TEST_F(Plug, pluggedAndUnpluggedAtRunTime)
{
    play("plug 29=unix:" + path(29) + "\n"
         "plug 29=unix:" + path(7) + " | something is plugged into port 29 already\n"
         "plug 7=unix:" + directory + "/tmp | exists and is not a socket\n"
         "plug 7=unix:" + path(1) + " | another process is serving on\n" /* which is this switch */
         "plug 37=unix:" + path(7) + " | \"37\" is neither 0 (management) nor a port (to 28) nor a LAG (to 36)");
    connectHost(29);
    command("settle");
    forward({{"vlan 10; mode 29 2; join 1 10; pvid 1 10", "1 A>*", "29 A>*@10"}, /* a trunk */
             {"", "29 B>A@10", "1 B>A"},
             {"", "1 A>B", "29 A>B@10"},
             {"", "29 C>*", "0 C>*, 1 C>*, 2 C>*, 3 C>*, 4 C>*, 5 C>*"}});
    play("unplug 29\nunplug 29 | nothing is plugged into port 29\nplug 7=unix:" + path(7));
    EXPECT_TRUE(isHungUpOn(29));
    EXPECT_NE(access(path(29).c_str(), F_OK), 0);
    startSwitch(); /* without plugs, as with serve.sh */
    play("POST vlan/create?vlanNum=10\nplug 1=unix:" + path(1));
    EXPECT_EQ(send("GET", "vlan/static-vlan-entries"), success("\"vlan\":{\"val\":1}")); /* it was reset */
    connectHost(1);
    command("settle");
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-port-state?port=1"), success("\"bridge\":{\"portState\":5}"));
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-port-state?port=2"), success("\"bridge\":{\"portState\":1}"));
}

TEST_F(Plug, countsTheFramesThatASlowHostLoses)
{
    forward({{"", "2 B>A", "1 B>A, 3 B>A, 4 B>A, 5 B>A"}, {"", "1 A>B", "2 A>B"}});
    for (int sent = 0; sent < 2000; sent++) {
        put(1, frameOf("A>B:1500"));
        if (sent % 50 == 49)
            command("settle");
    }
    size_t arrived = 0;
    for (size_t got; (got = get(2).size()) > 0; command("settle"))
        arrived += got;
    std::string lost = send("GET", "bridge/dot1d-base-port-delay-exceeded-discards?port=2");
    EXPECT_EQ(lost, success("\"bridge\":{\"delayExceededDiscardsValue\":" + std::to_string(2000 - arrived) + "}"));
    EXPECT_LT(arrived, 2000u);
    EXPECT_GT(arrived, 100u);
}

/* A flood of frames does not delay a request: it is answered after the first few of the frames that wait before it. */
TEST_F(Plug, takesTurnsWithRequests)
{
    enum { FLOOD = 1000, FIRST_TURNS = 300 };
    std::string flood;
    for (int i = 0; i < FLOOD; i++)
        flood += withLength(frameOf("A>*"));
    const std::string call = callOf("rpcclt_openapiDot1dTpPortInFramesGet", "n" + bytesOf(1) + "N" + bytesOf(0));
    int client = connectTo(socket);
    command("settle");
    int status;
    kill(vswitch.pid, SIGSTOP); /* frames and request are all there when it goes on */
    ASSERT_EQ(waitpid(vswitch.pid, &status, WUNTRACED), vswitch.pid);
    sendBytes(1, flood);
    EXPECT_EQ(::send(client, call.data(), call.size(), MSG_NOSIGNAL), (ssize_t)call.size());
    kill(vswitch.pid, SIGCONT);
    char reply[13]; /* length, code, tag, number */
    uint32_t framesBefore = FLOOD;
    EXPECT_EQ(recv(client, reply, sizeof reply, MSG_WAITALL), (ssize_t)sizeof reply);
    memcpy(&framesBefore, reply + 9, sizeof framesBefore);
    EXPECT_LT(framesBefore, (uint32_t)FIRST_TURNS);
    close(client);
}

TEST_F(Capture, recordsFramesWithTheReasonOfTheirLoss)
{
    configure("capture 1 " + directory + "/frames");
    forward({{"", "1 A>B", "2 A>B, 3 A>B, 4 A>B, 5 A>B"},
             {"", "2 B>A", "1 B>A"},
             {"", "1 A>B@30", "! VLAN 30 does not exist"}});
    std::string file = readFile(directory + "/frames");
    std::string blocks; /* the types; the length stands at both ends of a block */
    auto get32 = [&](size_t at) { return *(const uint32_t *)(file.data() + at); };
    for (size_t at = 0; at + 12 <= file.size() && get32(at + 4) == get32(at + get32(at + 4) - 4); at += get32(at + 4))
        blocks += std::to_string(get32(at)) + " ";
    EXPECT_EQ(blocks, "168627466 1 6 6 6 ");
    EXPECT_NE(file.find("VLAN 30 does not exist"), std::string::npos);
    EXPECT_NE(file.find(frameOf("B>A")), std::string::npos);
    play("capture stop 2 | no such capture runs\ncapture stop 1");
    forward({{"", "2 B>A", "1 B>A"}});

    /* another user's link to a file of the switch's user */
    EXPECT_EQ(symlink((directory + "/frames").c_str(), (directory + "/link").c_str()), 0);
    Outcome refused = runProcess(switchCommand({"capture", "1", directory + "/link"}));
    EXPECT_NE(refused.errors.find("/link: it is a symbolic link\n"), std::string::npos) << refused.errors;
    EXPECT_EQ(readFile(directory + "/frames"), file);
}
