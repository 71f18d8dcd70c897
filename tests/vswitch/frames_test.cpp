/*
 * frames_test.cpp - which frames leave the virtual switch where: VLANs, filters, storms, loops, lists.
 */
#include "tests/vswitch/frames.h"

using Forwarding = FrameTest;
using PrivateVlanFrames = FrameTest;
using MacVlanFrames = FrameTest;
using VoiceVlanFrames = FrameTest;
using StaticFilterFrames = FrameTest;
using StormControlFrames = FrameTest;
using LoopProtectionFrames = FrameTest;
using AccessListFrames = FrameTest;

#define A_MAC "02:00:00:00:00:41"
#define M_MAC "01:00:5E:00:00:01"

TEST_F(Forwarding, sendsFramesWhereTheirAddressWasLearned)
{
    forward({
        {"", "1 A>B", "2 A>B, 3 A>B, 4 A>B, 5 A>B"},
        {"", "2 B>A", "1 B>A"},
        {"", "3 C>*", "0 C>*, 1 C>*, 2 C>*, 4 C>*, 5 C>*"},
        {"", "1 A>m", "0 A>m, 2 A>m, 3 A>m, 4 A>m, 5 A>m"},
        {"", "1 D>A", "! 02:00:00:00:00:41 is on the same port"},
        {"", "3 A>B", "2 A>B"}, /* A has moved */
        {"", "2 B>A", "3 B>A"},
        {"pass 299", "3 A>B", "2 A>B"},
        {"pass 1", "3 A>B", "1 A>B, 2 A>B, 4 A>B, 5 A>B"}, /* B has not been heard for 300 s, A has */
        {"", "2 B>A", "3 B>A"},
        {"flush", "2 B>A", "1 B>A, 3 B>A, 4 B>A, 5 B>A"},
        {"", "1 A>s", "0 A>s"}, /* to the switch, and the answers of it */
        {"", "0 s>A", "1 s>A"},
        {"", "0 s>C", "1 s>C, 2 s>C, 3 s>C, 4 s>C, 5 s>C"},
        {"", "1 A>b", "! it ends at the switch: spanning tree"},
        {"", "1 s>B", "! its source is the switch's own address"},
        {"", "1 *>B", "! FF:FF:FF:FF:FF:FF is not a valid source"},
        {"", "1 0>B", "! 00:00:00:00:00:00 is not a valid source"},
        {"", "1 A>B:13", "! a frame of 13 bytes"},
        {"", "1 A>B@1:17", "! a tag that is cut off"},
        {"", "1 A>B:1514", "2 A>B"},
        {"", "1 A>B:1515", "! a frame of 1515 bytes; the port takes 1514"},
        {"", "1 A>B@1:1518", "2 A>B"},
        {"", "1 A>B@1:1519", "! a frame of 1519 bytes; the port takes 1518"},
    });
    EXPECT_EQ(send("GET", "bridge/dot1d-tp-port-in-frames?port=1"), success("\"bridge\":{\"inFrames\":14}"));
    EXPECT_EQ(send("GET", "bridge/dot1d-tp-port-out-frames?port=1"), success("\"bridge\":{\"outFrames\":6}"));
    EXPECT_EQ(send("GET", "bridge/dot1d-tp-port-in-discards?port=1"), success("\"bridge\":{\"inDiscards\":8}"));
    EXPECT_EQ(send("GET", "bridge/dot1d-base-port-mtu-exceeded-discards?port=1"),
              success("\"bridge\":{\"mtuExceededDiscardsValue\":2}"));
    EXPECT_EQ(send("GET", "vlan/dot1q-rx-packets-not-forwarded-count?ifNum=1"),
              success("\"vlan\":{\"totalRxPktsNotForwarded\":8}"));
    EXPECT_EQ(send("GET", "bridge/dot1d-tp-fdb-port?address=02:00:00:00:00:42"), success("\"bridge\":{\"port\":2}"));
}

TEST_F(Forwarding, keepsFramesInTheirVlan)
{
    forward({
        {"vlan 10; join 1 10; join 2 10; tag 2 10; join 3 10", "1 A>B", "2 A>B, 3 A>B, 4 A>B, 5 A>B"},
        {"pvid 1 10", "1 A>B", "2 A>B@10, 3 A>B"},
        {"", "2 B>A@10", "1 B>A"},
        {"", "2 B>A@10p5", "1 B>A"}, /* padded: without its tag it is too short for Ethernet */
        {"", "1 A>B@0p3d", "2 A>B@10p3d"}, /* a priority alone is no tag */
        {"priority 1 6", "1 A>B", "2 A>B@10p6"},
        {"priority 1 0", "1 A>B@30", "! VLAN 30 does not exist"},
        {"", "1 A>B@4095", "! VLAN 4095 does not exist"},
        {"", "4 D>A@10", "1 D>A"},                   /* no ingress filtering, but D is not learned in VLAN 10 */
        {"", "1 A>D", "2 A>D@10, 3 A>D"},
        {"ingress 4 1", "4 D>A@10", "! VLAN 10 not admitted: ingress filtering"},
        {"accept 2 3", "2 B>A@10", "! tagged frames are not accepted"},
        {"", "2 B>A@0p1", "1 B>A"}, /* in VLAN 1, where A was heard as well */
        {"accept 2 2", "2 B>A", "! untagged frames are not accepted"},
        {"", "2 B>A@10", "1 B>A"},
        {"leave 3 10", "1 A>*", "2 A>*@10"},
        {"leave 2 10", "1 A>*", "! no other port is in VLAN 10"},
        {"unvlan 10", "2 B>*@10", "! VLAN 10 does not exist"},
        {"", "1 A>D", "2 A>D, 3 A>D, 4 A>D, 5 A>D"}, /* the PVID is VLAN 1 again */
        /* switchport modes */
        {"vlan 10; vlan 20; mode 1 1; access 1 10; mode 2 2; mode 3 2; native 3 10; mode 4 1; access 4 20", "1 A>E",
         "2 A>E@10, 3 A>E"},
        {"", "2 B>A@10p2", "1 B>A"},
        {"", "3 C>A", "1 C>A"},
        {"", "1 A>C@10", "! tagged frames are not accepted"},
        {"", "2 B>*@20p7", "3 B>*@20p7, 4 B>*"},
        {"allowed 3 20", "3 C>A", "! VLAN 10 not admitted: ingress filtering"},
        {"", "1 A>*", "2 A>*@10"},
        {"", "3 C>*@20", "2 C>*@20, 4 C>*"},
        {"allowed 2 20", "2 B>A@1", "! VLAN 1 not admitted: ingress filtering"},
    });
}

TEST_F(PrivateVlanFrames, reachOnlyTheirCommunityAndThePromiscuousPort)
{
    /* 1 is promiscuous, 2 and 3 are isolated, 4 and 5 a community */
    forward({
        {"vlan 100; vlan 101; vlan 102; private 100 1; private 101 2; private 102 3; associate 100 101,102;"
         "promiscuous 1 100 101,102; host 2 100 101; host 3 100 101; host 4 100 102; host 5 100 102",
         "1 A>*", "2 A>*, 3 A>*, 4 A>*, 5 A>*"},
        {"", "2 B>*", "1 B>*"},
        {"", "2 B>C", "1 B>C"},
        {"", "4 D>*", "1 D>*, 5 D>*"},
        {"", "5 E>D", "4 E>D"},
        {"", "1 A>B", "2 A>B"}, /* learned in the secondary VLAN, found from the primary one */
        {"", "2 B>A", "1 B>A"},
        {"", "4 B>A", "1 B>A"},
        {"", "1 A>B", "4 A>B"}, /* B moved into another secondary VLAN within the second */
        {"", "2 B>A", "1 B>A"},
        {"", "3 C>B", "! port 2 is separated from private VLAN 101"},
        {"", "3 C>D", "! port 4 is separated from private VLAN 101"},
        {"promiscuous 1 100 102", "1 A>*", "4 A>*, 5 A>*"},
        {"", "2 B>A", "! port 1 is separated from private VLAN 101"},
        {"filters enable; filter " M_MAC " 100; to " M_MAC " 100 1", "4 D>m", "1 D>m"}, /* for 102, too */
        {"mode 4 2; mode 1 2", "1 A>*@100p1", "4 A>*@102p1, 5 A>*"}, /* trunks, with their VLANs' tags */
        {"", "4 D>A@102", "1 D>A@100"},
        {"", "4 D>A@100", "! private VLAN 100 not admitted: the port sends in VLAN 102"},
    });
}

TEST_F(MacVlanFrames, areClassifiedByTheirSource)
{
    forward({
        {"vlan 10; vlan 20; join 2 10; join 2 20; tag 2 10; tag 2 20; join 1 10; join 1 20; mac " A_MAC " 10", "1 A>*",
         "2 A>*@10"},
        {"oui 02:00:00 20", "1 A>*", "2 A>*@10"}, /* the address comes before its OUI */
        {"", "1 B>*", "2 B>*@20"},
        {"", "1 B>*@10", "2 B>*@10"}, /* a tag comes before the source */
        {"mode 1 1", "1 A>*", "0 A>*, 2 A>*, 3 A>*, 4 A>*, 5 A>*"},
        {"mode 1 3; unvlan 20", "1 B>*", "0 B>*, 2 B>*, 3 B>*, 4 B>*, 5 B>*"},
    });
}

TEST_F(VoiceVlanFrames, getTheVoiceVlanAndPriority)
{
    forward({
        {"vlan 10; vlan 20; voice; voiceport 1 10; voiceport 2 10; join 1 20; join 2 20; tag 2 20; settle",
         "1 A>*@10p5", "1 s>e, 2 s>e, 2 A>*@10p5"},
        {"override 1", "1 A>*@10p5d", "2 A>*@10p5d"},
        {"", "1 A>*@20p6", "2 A>*@20"}, /* only the voice VLAN keeps its priority */
        {"voip 20; voipport 1", "1 A>*", "0 A>*, 2 A>*, 3 A>*, 4 A>*, 5 A>*"},
        {"voippriority 4; voipoui 02:00:00", "1 A>*", "2 A>*@20p4"},
        {"", "1 A>*@10p1", "2 A>*@10p4"},
        {"", "3 C>*", "0 C>*, 1 C>*, 2 C>*, 4 C>*, 5 C>*"},
    });
}

/* LLDP-MED: three times at first, once a second, then every 30 s. */
TEST_F(VoiceVlanFrames, tellPhonesTheNetworkPolicy)
{
    configure("vlan 10; voice; voiceport 1 10; settle");
    std::vector<std::string> frames = get(1);
    ASSERT_EQ(frames.size(), 1u);
    /* of 8 bytes, from TIA; network policy; voice; tagged, VLAN 10, priority 5, DSCP 46 */
    EXPECT_NE(frames[0].find("\xfe\x08" + std::string("\0\x12\xbb\2\1\x40\x15\x6e", 8)), std::string::npos);
    forward({{"pass 1", "", "1 s>e"}, {"pass 1", "", "1 s>e"}, {"pass 29", "", ""}, {"pass 1", "", "1 s>e"},
             {"voiceport 1 1", "", "1 s>e"}});
}

TEST_F(StaticFilterFrames, obeyFiltersProtectedPortsAndTheSpanningTree)
{
    forward({
        {"filters enable; filter " A_MAC " 1; to " A_MAC " 1 4", "2 B>A", "4 B>A"},
        {"", "1 A>*", "0 A>*, 2 A>*, 3 A>*, 4 A>*, 5 A>*"}, /* A sends from another port: the filter does not move */
        {"", "2 B>A", "4 B>A"},
        {"from " A_MAC " 1 3", "2 B>A", "! the filter of 02:00:00:00:00:41 does not name the port as source"},
        {"", "3 C>A", "4 C>A"},
        {"filters disable", "2 B>C", "3 B>C"},
        {"filters enable; filter " M_MAC " 1; never " M_MAC " 1 4,5", "1 D>m", "0 D>m, 2 D>m, 3 D>m"},
        {"to " M_MAC " 1 2; to " M_MAC " 1 3", "1 D>m", "2 D>m, 3 D>m"},
        {"", "3 C>m", "2 C>m"},
        {"filter 02:00:00:00:00:43 1; never 02:00:00:00:00:43 1 3", "1 D>C",
         "! the filter of 02:00:00:00:00:43 keeps it from port 3"},
        {"filtering 1 filter_unregistered", "1 D>m", "2 D>m, 3 D>m"},
        {"", "1 D>*", "0 D>*, 2 D>*, 3 D>*, 4 D>*, 5 D>*"},
        {"filters disable; protect 1 1; protect 2 1; protect 3 2", "1 D>*", "0 D>*, 3 D>*, 4 D>*, 5 D>*"},
        {"", "2 B>D", "! port 1 is in the same protected group"},
        {"", "3 C>D", "1 C>D"},
        {"stp 1 learning", "3 C>D", "! port 1 is learning: it does not forward yet"},
        {"", "1 D>C", "! it is learning: it does not forward yet"},
        {"stp 1 blocking", "1 D>C", "! it is blocked by the spanning tree"},
    });
}

TEST_F(StormControlFrames, areDroppedAboveTheLimit)
{
    auto of = [](const std::string &frame, int times) {
        std::string out;
        for (int port : {0, 2, 3, 4, 5})
            for (int i = 0; i < times; i++)
                out += (out.empty() ? "" : ", ") + std::to_string(port) + " " + frame;
        return out;
    };
    const std::string once = of("A>*", 1), both = of("A>*", 2), many = of("A>m", 3);
    forward({
        {"limit broadcast 2; storm broadcast enable", "1 A>* 1 A>* 1 A>*", both.c_str()},
        {"", "1 A>*", "! broadcast storm: more than 2 packets a second"},
        {"", "1 A>m 1 A>m 1 A>m", many.c_str()},
        {"", "2 B>*", "0 B>*, 1 B>*, 3 B>*, 4 B>*, 5 B>*"}, /* each port has its own bucket */
        {"pass 1", "1 A>* 1 A>* 1 A>*", both.c_str()},
        {"portlimit broadcast 1 1; portstorm broadcast 1 enable; pass 1", "1 A>* 1 A>*", once.c_str()},
        {"limit unicast 1; storm unicast enable", "1 A>E 1 A>E", "2 A>E, 3 A>E, 4 A>E, 5 A>E"},
        {"", "1 A>B 1 A>B 1 A>B", "2 A>B, 2 A>B, 2 A>B"}, /* known addresses are no storm */
        {"limit multicast 0; storm multicast enable", "1 A>m", "! multicast storm: more than 0 packets a second"},
        {"action multicast shutdown", "1 A>m 1 A>*",
         "! multicast storm: more than 0 packets a second\nit is shut down by storm control"},
        {"", "2 B>*", "0 B>*, 3 B>*, 4 B>*, 5 B>*"},
    });
    EXPECT_EQ(send("GET", "bridge/dot1d-stp-port-state?port=1"), success("\"bridge\":{\"portState\":1}"));
    EXPECT_TRUE(isHungUpOn(1)) << "the port has a carrier";
    connectHost(1);
    command("settle");
    EXPECT_TRUE(isHungUpOn(1)) << "the port has a carrier again";
    configure("storm multicast disable; settle");
    connectHost(1);
    forward({{"pass 1", "1 A>*", once.c_str()}});
}

TEST_F(LoopProtectionFrames, shutThePortThatSentThem)
{
    configure("guard; looped 2 1; disabled 60; loops 2 1; settle");
    std::vector<std::string> probes = get(2);
    ASSERT_EQ(probes.size(), 1u);
    EXPECT_EQ(textOf(probes[0]), "s>l");
    std::string forged = probes[0];
    forged[20] ^= 1;
    put(4, forged); /* a host without the original cannot forge one */
    forward({{"", "1 A>B", "2 A>B, 3 A>B, 4 A>B, 5 A>B"},
             {"pass 10; settle", "1 A>B", "2 s>l, 2 s>l, 2 A>B, 3 A>B, 4 A>B, 5 A>B"},
             {"", "2 B>A", "1 B>A"}});
    sendBytes(1, withLength(probes[0]) + withLength(frameOf("A>B"))); /* a cable from port 2 to port 1 */
    command("settle");
    EXPECT_EQ(collect(), "3 A>B, 4 A>B, 5 A>B");
    EXPECT_EQ(send("GET", "loop-protect/port-packet-rx-count?ifNum=2"), success("\"loopProtect\":{\"count\":1}"));
    EXPECT_EQ(send("GET", "loop-protect/port-packet-tx-count?ifNum=2"), success("\"loopProtect\":{\"count\":3}"));
    forward({{"", "1 A>B", "3 A>B, 4 A>B, 5 A>B"}});
    configure("pass 60");
    connectHost(2);
    command("settle");
    forward({{"", "1 A>B", "2 A>B, 3 A>B, 4 A>B, 5 A>B"}});
}

TEST_F(AccessListFrames, reachTheSwitchIfPermitted)
{
    forward({
        {"", "1 A>s=10.0.0.1:80", "0 A>s"},
        {"list; rule 1; permit 1; source 1 10.0.0.1; activate", "1 A>s=10.0.0.1:80", "0 A>s"},
        {"", "2 B>s=10.0.0.2:80", "! the access list does not permit it"},
        {"", "2 B>s", "0 B>s"}, /* only IPv4 packets meet the list */
        {"", "2 B>A=10.0.0.2:80", "1 B>A"},
        {"", "3 C>s@1=10.0.0.1:80", "0 C>s"},
        {"service 1 80", "3 C>s=10.0.0.1:80", "0 C>s"},
        {"", "3 C>s=10.0.0.1:22", "! the access list does not permit it"},
        {"", "3 C>s=10.0.0.1:80+", "! the access list does not permit it"},
    });
    configure("pass 60"); /* the counter is reported once a minute */
    EXPECT_EQ(send("GET", "macal/stats-packets-filtered"), success("\"macal\":{\"filtPackets\":3}"));
}
