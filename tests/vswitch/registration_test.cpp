/*
 * registration_test.cpp - real neighbours that register VLANs (MVRP, GVRP) and groups (MMRP, GMRP).
 */
#include <time.h>

#include "tests/vswitch/frames.h"

using MvrpGvrpFrames = FrameTest;
using GroupFrames = FrameTest;

#define M_MAC "01:00:5E:00:00:01"

/* A PDU that joins (event 1) or leaves (5) the VLAN and the next but one. */
static std::string mvrpOf(int vlan, int event)
{
    const char events = (char)(event * 36 + 4 * 6 + event);
    const std::string pdu = {0, 1, 2, 0, 3, (char)(vlan >> 8), (char)vlan, events, 0, 0, 0, 0};
    return "\x88\xf5" + pdu;
}

/* A PDU that joins (event 2) or leaves (3) the VLAN. */
static std::string gvrpOf(int vlan, int event)
{
    const std::string pdu = {0x42, 0x42, 3, 0, 1, 1, 4, (char)event, (char)(vlan >> 8), (char)vlan, 0, 0};
    return std::string("\0\xc", 2) + pdu;
}

/* PDUs that join (1, 2) or leave (5, 3) a group; MMRP's can have a service requirement of one byte instead. */
static std::string mmrpOf(const std::string &group, int event)
{
    const std::string head = {0, (char)(group.size() == 1 ? 1 : 2), (char)group.size(), 0, 1};
    return "\x88\xf6" + head + group + (char)(event * 36) + std::string(4, 0);
}

static std::string gmrpOf(const std::string &group, int event)
{
    const std::string head = {0, 0x10, 0x42, 0x42, 3, 0, 1, 1, 8, (char)event};
    return head + group + std::string(2, 0);
}

static const std::string gvrpLeaveAll("\0\x9\x42\x42\3\0\1\1\2\0\0\0", 12);

TEST_F(MvrpGvrpFrames, registerVlans)
{
    auto from = [&](int port, const std::string &pdu) { put(port, addressOf('r') + addressOf('A') + pdu); };
    forward({
        {"", "1 A>r", "0 A>r, 2 A>r, 3 A>r, 4 A>r, 5 A>r"}, /* without a protocol, its group is like any other */
        {"mvrp; mvrpport 1 enable; mvrpport 2 enable; gvrp; gvrpport 3; leavetime 1 200; leavetime 3 200", "",
         "1 s>r+1, 2 s>r+1, 3 s>r+1"},
    });
    struct Neighbour { int port; std::string joins, leaves; const char *joined, *added, *reached, *left; };
    const Neighbour neighbours[] = {
        {1, mvrpOf(30, 1), mvrpOf(30, 5), "2 s>r+1+30+32, 3 s>r+1+30+32", "30,32", "1 B>*@30",
         "2 s>r+1-30-32, 3 s>r+1-30-32"},
        {3, gvrpOf(30, 2), gvrpOf(30, 3), "1 s>r+1+30, 2 s>r+1+30", "", "3 B>*@30", "1 s>r+1-30, 2 s>r+1-30"},
        {3, gvrpOf(30, 2), gvrpLeaveAll, "1 s>r+1+30, 2 s>r+1+30", "", "3 B>*@30", "1 s>r+1-30, 2 s>r+1-30"},
    };
    for (const auto &[port, joins, leaves, joined, added, reached, left] : neighbours) {
        SCOPED_TRACE(port);
        from(port, joins);
        command("settle");
        EXPECT_EQ(collect(), joined);
        EXPECT_EQ(send("GET", "vlan/dot1q-sw-port-dynamically-added-vlan-list?intf=1"),
                  success("\"vlan\":{\"vidList\":[" + std::string(added) + "]}"));
        from(port, leaves);
        command("settle");
        collect();
        forward({{"pass 1; settle", "2 B>*@30", reached},
              {"pass 1; settle", "", left},
              {"", "2 B>*@30", "! VLAN 30 does not exist"}});
    }
    from(1, mvrpOf(30, 1));
    command("settle");
    forward({{"", "2 B>*@30", "1 B>*@30"}});
    configure("pass 11; settle; pass 2; settle"); /* the switch has sent LeaveAll, and no neighbour has joined again */
    forward({{"", "2 B>*@30", "! VLAN 30 does not exist"}});
    from(1, mvrpOf(30, 1).substr(0, 9));
    command("settle");
    EXPECT_EQ(send("GET", "mvrp/intf-traffic-pdu-counter?intIfNum=1&type=2"), success("\"mvrp\":{\"counter\":1}"));
    collect();
    /* a newer version, an attribute that this one does not know, VLAN 40 joins, no end marks */
    from(1, std::string("\x88\xf5\1\x9\1\0\1\0\0\0\0\1\2\0\1\0\x28\x24", 18));
    command("settle");
    EXPECT_EQ(collect(), "2 s>r+1+40, 3 s>r+1+40");
    reconnectHost(1); /* another neighbour */
    forward({{"", "2 B>*@40", "! VLAN 40 does not exist"}});
    close(hosts[1]);
    hosts.erase(1);
    connectHost(1);
    from(1, mvrpOf(30, 1)); /* at once */
    command("settle");
    collect();
    forward({{"", "2 B>*@30", "1 B>*@30"}});
}

TEST_F(GroupFrames, reachTheMembersOfTheGroup)
{
    const std::string m = addressOf('m'), all(1, 0), tag("\x81\0\0\x0a", 4);
    auto from = [&](int port, const std::string &pdu) {
        put(port, addressOf('g') + addressOf('A') + pdu);
        command("settle");
    };
    forward({{"filtering 1 filter_unregistered", "1 A>m", "! " M_MAC " is not registered in VLAN 1"},
             {"mmrp; mmrpport 1; mmrpport 2; gmrp; gmrpport 3", "", "1 s>g, 2 s>g, 3 s>g"}});
    from(2, mmrpOf(m, 1));
    EXPECT_NE(get(1).at(0).find(mmrpOf(m, 1).substr(0, 14)), std::string::npos); /* it is declared on the other ports */
    EXPECT_NE(get(3).at(0).find(gmrpOf(m, 2).substr(2, 14)), std::string::npos);
    forward({{"", "1 A>m", "2 A>m"}, {"", "2 B>m", "! no other port is a member of " M_MAC}});
    from(3, gmrpOf(m, 2));
    forward({{"", "1 A>m", "2 A>m, 3 A>m"},
             {"filter " M_MAC " 1; never " M_MAC " 1 3; to " M_MAC " 1 5", "1 A>m", "2 A>m, 5 A>m"},
             {"filters disable", "1 A>n", "! 01:00:5E:00:00:02 is not registered in VLAN 1"},
             {"filtering 1 forward_unregistered", "1 A>n", "0 A>n, 2 A>n, 3 A>n, 4 A>n, 5 A>n"},
             {"", "1 A>m", "2 A>m, 3 A>m"}});
    from(2, mmrpOf(m, 5));
    from(2, mmrpOf(all, 1)); /* all groups */
    configure("filtering 1 filter_unregistered; pass 1; settle");
    forward({{"", "1 A>n", "2 A>n"}, {"", "1 A>m", "2 A>m, 3 A>m"}});
    from(3, gmrpOf(m, 3));
    configure("pass 1; settle");
    forward({{"", "4 D>m", "2 D>m"}});
    configure("vlan 10; join 1 10; tag 1 10; join 2 10; tag 2 10; join 3 10; tag 3 10; "
              "filtering 10 filter_unregistered");
    from(2, tag + mmrpOf(m, 1));
    forward({{"", "1 A>m@10", "2 A>m@10"}});
    configure("pass 11; settle; pass 2; settle"); /* the switch has sent LeaveAll, and no neighbour has joined again */
    forward({{"", "1 A>m@10", "! " M_MAC " is not registered in VLAN 10"},
             {"", "1 A>m", "! " M_MAC " is not registered in VLAN 1"}});
    from(2, mmrpOf(m, 1));
    reconnectHost(2); /* another neighbour */
    forward({{"", "1 A>m", "! " M_MAC " is not registered in VLAN 1"}});
    from(2, mmrpOf(m, 1).substr(0, 12));
    EXPECT_EQ(send("GET", "mmrp/intf-counter?intIfNum=2&type=rx_bad_format"), success("\"mmrp\":{\"counter\":1}"));
    from(3, gmrpOf(addressOf('0'), 2)); /* no group */
    forward({{"", "1 A>m", "! " M_MAC " is not registered in VLAN 1"}});
    EXPECT_EQ(send("GET", "garp/gmrp-failed-registrations?ifNum=3"),
              success("\"garp\":{\"gmrpFailedRegistrations\":1}"));
}

/* A neighbour that trunks all VLANs joins them in one PDU; here all neighbours do, and one sends many LeaveAlls. */
TEST_F(MvrpGvrpFrames, costLittleWithAllVlansOnAllPorts)
{
    enum { PORTS = 28, MOST_MILLIS = 20 /* for a frame; a sanitizer's build is slower */ };
    int factor = readFile(buildDirectory() + "/vswitch").find("__asan_init") == std::string::npos ? 1 : 4;
    startWithHosts(PORTS);
    configure("mvrp; mmrp");
    for (int port = 1; port <= PORTS; port++)
        configure("mvrpport " + std::to_string(port) + " enable; mmrpport " + std::to_string(port));
    const std::string to = addressOf('r') + addressOf('A') + std::string("\x88\xf5\0\1\2", 5), end(4, '\0');
    const std::string groups = addressOf('g') + addressOf('A') + std::string("\x88\xf6\0\2\6\x0f\xfe", 7) +
                               addressOf('m') + std::string(4094 / 3 + 1, 43);
    std::string all = std::string("\x0f\xfe\0\1", 4) + std::string(4094 / 3 + 1, 43), leaves;
    for (int i = 0; i < 280; i++)
        leaves += std::string("\x20\1\0\1\x24", 5); /* LeaveAll, and VLAN 1 joins */
    clockid_t cpu;
    timespec before, after;
    ASSERT_EQ(clock_getcpuclockid(vswitch.pid, &cpu) + clock_gettime(cpu, &before), 0);
    for (int port = 1; port <= PORTS; port++) {
        for (const std::string &pdu : {to + all, groups}) {
            put(port, pdu + end);
            command("settle");
            collect();
        }
    }
    put(1, to + leaves + end);
    command("settle");
    clock_gettime(cpu, &after);
    long millis = (after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000;
    EXPECT_LT(millis, 2 * PORTS * MOST_MILLIS * factor);
    EXPECT_EQ(send("GET", "vlan/dynamic-vlan-entries"), success("\"vlan\":{\"val\":4093}"));
}
