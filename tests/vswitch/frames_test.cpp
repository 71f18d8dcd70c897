/*
 * frames_test.cpp - frames through the virtual switch. Requests configure it, hosts on sockets send frames, and each row
 * says on which ports the frames come out. The command "settle" waits until all frames are forwarded. The clock stands
 * still except for the command "pass SECONDS".
 */
#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <utility>

#include "tests/support/driver.h"
#include "tests/support/rpc.h"

/* The short names that rows use for requests; $1, $2, ... are the arguments behind the name. */
static const struct { const char *name, *method, *target, *body; } requests[] = {
    {"vlan", "POST", "vlan/create?vlanNum=$1", ""},
    {"unvlan", "DELETE", "vlan/delete?vlanNum=$1", ""},
    {"join", "PUT", "vlan/if-participation?ifNum=$1&vlanNum=$2", R"({"participationMode":1})"},
    {"leave", "PUT", "vlan/if-participation?ifNum=$1&vlanNum=$2", R"({"participationMode":2})"},
    {"tag", "PUT", "vlan/if-tagging?ifNum=$1&vlanNum=$2", R"({"tagging":1})"},
    {"pvid", "PUT", "vlan/if-pvid?ifNum=$1", R"({"vlanNum":$2})"},
    {"accept", "PUT", "vlan/if-accept-frame-type?ifNum=$1", R"({"type":$2})"},
    {"ingress", "PUT", "vlan/qports-enable-ingress-filtering?ifNum=$1", R"({"mode":$2})"},
    {"priority", "PUT", "vlan/if-default-user-priority?ifNum=$1", R"({"priority":$2})"},
    {"mode", "PUT", "vlan/dot1q-sw-port-mode", R"({"intf":$1,"mode":$2})"},
    {"access", "PUT", "vlan/dot1q-sw-port-access-vlan?intf=$1", R"({"vlanId":$2})"},
    {"native", "PUT", "vlan/dot1q-sw-port-trunk-native-vlan?intf=$1", R"({"vlanId":$2})"},
    {"allowed", "PUT", "vlan/dot1q-sw-port-trunk-allowed-vlan-list", R"({"intf":$1,"vidList":[$2]})"},
    {"private", "POST", "vlan/dot1q-private-vlan-enable?vlanId=$1", R"({"pvlanType":$2})"},
    {"associate", "POST", "vlan/dot1q-api-private-vlan-assoc?vlanId=$1", R"({"vidList":[$2]})"},
    {"host", "PUT", "vlan/dot1q-intf-pvlan-host-assoc?ifNum=$1", R"({"primaryVlan":$2,"secondaryVlan":$3})"},
    {"promiscuous", "PUT", "vlan/dot1q-intf-pvlan-promisc-assoc?ifNum=$1", R"({"primaryVlan":$2,"vidList":[$3]})"},
    {"mac", "POST", "vlan/mac", R"({"mac":"$1","vlanId":$2})"},
    {"oui", "POST", "vlan/mac-oui-vlan?vlanId=$2", R"({"oui":"$1"})"},
    {"voice", "PUT", "voice-vlan/admin-mode", R"({"mode":1})"},
    {"voiceport", "PUT", "voice-vlan/port-admin-mode?ifNum=$1", R"({"mode":1,"dataValue":$2})"},
    {"override", "PUT", "voice-vlan/port-cos-override-mode?ifNum=$1", R"({"mode":1})"},
    {"voip", "PUT", "voip/global-vlan-id?vlanId=$1", ""},
    {"voipport", "PUT", "voip/intf-mode?ifNum=$1", R"({"type":"oui","mode":"enable"})"},
    {"voipoui", "POST", "voip/oui", R"({"voipOui":"$1"})"},
    {"voippriority", "PUT", "voip/oui-priority", R"({"priority":$1})"},
    {"mvrp", "PUT", "mvrp/mode", R"({"mode":"enable"})"},
    {"mvrpport", "PUT", "mvrp/intf-mode?intIfNum=$1", R"({"mode":"$2"})"},
    {"gvrp", "PUT", "garp/gvrp-enable", R"({"globalGvrpStatus":"enable"})"},
    {"leavetime", "PUT", "garp/leave-time?ifNum=$1", R"({"leaveTime":$2})"},
    {"gvrpport", "PUT", "garp/gvrp-port-enable?ifNum=$1", R"({"intfGvrpStatus":"enable"})"},
    {"mmrp", "PUT", "mmrp/mode", R"({"mmrpMode":"enable"})"},
    {"mmrpport", "PUT", "mmrp/intf-mode", R"({"ifNum":$1,"mmrpIntfMode":"enable"})"},
    {"gmrp", "PUT", "garp/gmrp-enable", R"({"globalGmrpStatus":"enable"})"},
    {"gmrpport", "PUT", "garp/gmrp-port-enable?ifNum=$1", R"({"intfGmrpStatus":"enable"})"},
    {"flush", "POST", "fdb/flush", ""},
    {"filter", "POST", "static-filter/filter?vlanId=$2", R"({"macAddr":"$1"})"},
    {"to", "POST", "static-filter/filter-dst-intf?vlanId=$2&ifNum=$3", R"({"macAddr":"$1"})"},
    {"from", "POST", "static-filter/filter-src-intf?vlanId=$2&ifNum=$3", R"({"macAddr":"$1"})"},
    {"never", "POST", "static-filter/filter-dst-intf-list?vlanId=$2", R"({"macAddr":"$1","filterIntfList":"$3"})"},
    {"filtering", "PUT", "static-filter/filter-vlan-filtering-mode?vlanId=$1", R"({"mode":"filter_$2"})"},
    {"filters", "PUT", "static-filter/filter-admin-mode", R"({"adminMode":"$1"})"},
    {"protect", "POST", "protectedport/group-intf?ifNum=$1&groupId=$2", ""},
    {"storm", "PUT", "storm-control/mode", R"({"stormCtrlMode":"$1","state":"$2"})"},
    {"limit", "PUT", "storm-control/threshold?rateUnit=pps", R"({"stormCtrlMode":"$1","threshold":$2})"},
    {"portstorm", "PUT", "storm-control/intf-mode", R"({"stormCtrlMode":"$1","interface":$2,"state":"$3"})"},
    {"portlimit", "PUT", "storm-control/intf-threshold?rateUnit=pps",
     R"({"stormCtrlMode":"$1","interface":$2,"threshold":$3})"},
    {"action", "PUT", "storm-control/action", R"({"stormCtrlMode":"$1","action":"$2"})"},
    {"guard", "PUT", "loop-protect/admin-mode", R"({"adminMode":1})"},
    {"loops", "PUT", "loop-protect/port-admin-mode?ifNum=$1", R"({"mode":$2})"},
    {"looped", "PUT", "loop-protect/port-action?ifNum=$1", R"({"mode":$2})"},
    {"disabled", "PUT", "loop-protect/disable-timer", R"({"val":$1})"},
    {"list", "POST", "macal/list", R"({"macalName":"a"})"},
    {"rule", "POST", "macal/rule-entry", R"({"macalName":"a","macalRulePrio":$1})"},
    {"permit", "POST", "macal/rule-action", R"({"macalName":"a","macalRulePrio":$1,"action":"permit"})"},
    {"source", "POST", "macal/rule-src-ip-mask",
     R"({"macalName":"a","macalRulePrio":$1,"ipAddr":"$2","mask":"255.255.255.255"})"},
    {"service", "POST", "macal/rule-tcp-udp-port-number?portNum=$2", R"({"macalName":"a","macalRulePrio":$1})"},
    {"activate", "POST", "macal/activate", R"({"macalName":"a"})"},
};

/* Addresses that a letter stands for. Other letters are stations: 02:00:00:00:00:XX, XX being the letter's code. */
static const std::map<char, std::string> addresses = {
    {'*', std::string(6, '\xff')},
    {'m', std::string("\x01\x00\x5e\x00\x00\x01", 6)},
    {'n', std::string("\x01\x00\x5e\x00\x00\x02", 6)},
    {'g', std::string("\x01\x80\xc2\x00\x00\x20", 6)},  /* GMRP's and MMRP's */
    {'b', std::string("\x01\x80\xc2\x00\x00\x00", 6)},  /* spanning tree's */
    {'s', std::string("\x02\xa0\xc9\x00\x00\x01", 6)},  /* the switch's */
    {'l', std::string("\x03\xa0\xc9\x00\x00\x01", 6)},  /* loop protection's */
    {'r', std::string("\x01\x80\xc2\x00\x00\x21", 6)},  /* the registration protocols' */
    {'e', std::string("\x01\x80\xc2\x00\x00\x0e", 6)}, /* LLDP's */
    {'0', std::string(6, '\0')},
};

static std::string addressOf(char letter)
{
    auto found = addresses.find(letter);
    return found == addresses.end() ? std::string("\x02\0\0\0\0", 5) + letter : found->second;
}

static char letterOf(const std::string &address)
{
    for (const auto &[letter, known] : addresses)
        if (known == address)
            return letter;
    return address[5];
}

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

/*
 * The frame of a text: "A>B" from A to B, "A>B@10" with a tag of VLAN 10, "A>B@10p5" and priority 5, "A>B@10p5d" and DEI.
 * Behind that, "=IP:PORT" for a TCP packet, "=IP:PORT+" for a later fragment of one, and ":1600" for the length in bytes.
 */
static std::string frameOf(const std::string &text)
{
    std::smatch part;
    if (!std::regex_match(text, part, std::regex(R"((.)>(.)(@(\d+)(p(\d)(d)?)?)?(=([\d.]+):(\d+)(\+)?)?(:(\d+))?)")))
        return "";
    std::string frame = addressOf(part.str(2)[0]) + addressOf(part.str(1)[0]);
    auto put16 = [&](int number) { frame += {(char)(number >> 8), (char)number}; };
    if (part[3].matched) {
        put16(0x8100);
        put16(std::stoi(part.str(4)) | (part[6].matched ? std::stoi(part.str(6)) : 0) << 13 | part[7].matched << 12);
    }
    put16(part[8].matched ? 0x0800 : 0x88B5);
    if (part[8].matched) {
        in_addr source = {inet_addr(part.str(9).c_str())};
        frame += std::string("\x45\0\0\x28\0\0\0", 7) + (char)part[11].matched;
        frame += std::string("\x40\x06\0\0", 4) + std::string((char *)&source, 4);
        frame += std::string("\xa\0\0\xfezz", 6);
        put16(std::stoi(part.str(10)));
    }
    frame.resize(part[13].matched ? std::stoul(part.str(13)) : std::max<size_t>(60, frame.size()));
    return frame;
}

/* The text of a frame, with the VLANs it joins (+) and leaves (-) if it is a PDU. */
static std::string textOf(const std::string &frame)
{
    auto get16 = [&](size_t at) { return (unsigned char)frame[at] << 8 | (unsigned char)frame[at + 1]; };
    std::string text = {letterOf(frame.substr(6, 6)), '>', letterOf(frame.substr(0, 6))};
    for (int i = 0, count = get16(12) == 0x88F5 ? get16(17) & 0x1FFF : 0; i < count; i++) { /* MVRP's vector */
        const int place[] = {36, 6, 1}, event = (unsigned char)frame[(size_t)(21 + i / 3)] / place[i % 3] % 6;
        text += event == 4 ? "" : (event == 1 ? "+" : "-") + std::to_string(get16(19) + i);
    }
    for (size_t at = 20; get16(12) < 0x600 && frame[at] == 4; at += 4) /* GVRP's attributes */
        text += (frame[at + 1] == 2 ? "+" : "-") + std::to_string(get16(at + 2));
    if (get16(12) == 0x8100) {
        text += "@" + std::to_string(get16(14) & 0xFFF);
        text += get16(14) >> 12 ? "p" + std::to_string(get16(14) >> 13) : "";
        text += get16(14) & 0x1000 ? "d" : "";
    }
    return text + (frame.size() < 60 ? " of " + std::to_string(frame.size()) + " bytes" : "");
}

/*
 * The requests and commands before; the ports and frames that come in; the ports and frames that come out, or "! " and
 * the reason why none does.
 */
struct Passage {
    const char *configured, *in, *out;
};

class FrameTest : public SwitchTest {
protected:
    void SetUp() override
    {
        SwitchTest::SetUp();
        startWithHosts(5);
    }

    /* Starts a switch with a host on each port from 0 to `last`. */
    void startWithHosts(int last)
    {
        std::vector<std::string> options;
        for (int port = 0; port <= last; port++)
            for (const std::string &word : {std::string("--plug"), std::to_string(port) + "=unix:" + path(port)})
                options.push_back(word);
        startSwitch(options);
        command("hold");
        for (int port = 0; port <= last; port++)
            connectHost(port);
        command("settle");
    }

    void TearDown() override
    {
        for (auto [port, host] : hosts)
            close(host);
        SwitchTest::TearDown();
    }

    std::string path(int port) const { return directory + "/port" + std::to_string(port); }

    void connectHost(int port)
    {
        int host = connectTo(path(port));
        if (hosts.contains(port))
            close(hosts[port]);
        received[port].clear();
        hosts[port] = host;
    }

    void reconnectHost(int port)
    {
        close(hosts[port]);
        hosts.erase(port);
        connectHost(port);
        command("settle");
    }

    /* Sends requests of the table and commands: "join 1 10; tag 1 10; pass 300". */
    void configure(const std::string &text)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line, ';');) {
            std::istringstream words(line);
            std::vector<std::string> arguments((std::istream_iterator<std::string>(words)), {});
            auto row = std::find_if(std::begin(requests), std::end(requests),
                                    [&](const auto &request) { return request.name == arguments[0]; });
            if (row == std::end(requests)) {
                command(line);
                continue;
            }
            std::string target = row->target, body = row->body;
            for (size_t i = 1; i < arguments.size(); i++)
                for (std::string *into : {&target, &body})
                    *into = std::regex_replace(*into, std::regex("\\$" + std::to_string(i)), arguments[i]);
            EXPECT_EQ(send(row->method, target, body).find("\"fail\""), std::string::npos) << line;
        }
    }

    static std::string withLength(const std::string &frame)
    {
        uint32_t length = htonl((uint32_t)frame.size());
        return std::string((char *)&length, sizeof length) + frame;
    }

    void sendBytes(int port, const std::string &bytes)
    {
        ASSERT_EQ(::send(hosts[port], bytes.data(), bytes.size(), MSG_NOSIGNAL), (ssize_t)bytes.size());
    }

    void put(int port, const std::string &frame) { sendBytes(port, withLength(frame)); }

    bool isHungUpOn(int port)
    {
        char byte;
        return recv(hosts[port], &byte, 1, MSG_DONTWAIT) == 0;
    }

    /* The frames that have come out of the port since the last call. */
    std::vector<std::string> get(int port)
    {
        std::string &bytes = received[port], more(1 << 20, 0);
        ssize_t got = recv(hosts[port], more.data(), more.size(), MSG_DONTWAIT);
        bytes.append(more, 0, got < 0 ? 0 : (size_t)got);
        std::vector<std::string> frames;
        for (uint32_t length; bytes.size() >= sizeof length; bytes.erase(0, sizeof length + length)) {
            memcpy(&length, bytes.data(), sizeof length);
            length = ntohl(length);
            if (bytes.size() < sizeof length + length)
                break;
            frames.push_back(bytes.substr(sizeof length, length));
        }
        return frames;
    }

    /* The frames that have come out of all ports: "2 A>B@10, 3 A>B". */
    std::string collect()
    {
        std::string out;
        for (auto [port, host] : hosts)
            for (const std::string &frame : get(port))
                out += (out.empty() ? "" : ", ") + std::to_string(port) + " " + textOf(frame);
        return out;
    }

    /* Plays the rows. */
    void forward(const std::vector<Passage> &rows)
    {
        for (const Passage &row : rows) {
            SCOPED_TRACE(std::string(row.configured) + " | " + row.in + " | " + row.out);
            collect();
            configure(row.configured);
            takeTrace();
            std::istringstream in(row.in);
            int port;
            std::string frame, bytes, out;
            while (in >> port >> frame) /* in one write */
                bytes += withLength(frameOf(frame));
            if (!bytes.empty())
                sendBytes(port, bytes);
            command("settle");
            out = collect();
            if (out.empty()) {
                std::string trace = std::regex_replace(takeTrace(), std::regex("port \\d+: "), "");
                out = trace.empty() ? "" : "! " + trace;
            }
            EXPECT_EQ(out, row.out);
        }
    }

    std::map<int, int> hosts;
    std::map<int, std::string> received; /* the beginning of a frame whose end is still to come */
};

using Forwarding = FrameTest;
using PrivateVlanFrames = FrameTest;
using MacVlanFrames = FrameTest;
using VoiceVlanFrames = FrameTest;
using MvrpGvrpFrames = FrameTest;
using GroupFrames = FrameTest;
using StaticFilterFrames = FrameTest;
using StormControlFrames = FrameTest;
using LoopProtectionFrames = FrameTest;
using AccessListFrames = FrameTest;
using Plug = FrameTest;
using Capture = FrameTest;

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

TEST_F(Forwarding, obeysTheSpanningTree)
{
    forward({
        {"stp 2 blocking", "1 A>*", "0 A>*, 3 A>*, 4 A>*, 5 A>*"},
        {"", "2 B>A", "! it is blocked by the spanning tree"},
        {"", "1 A>B", "3 A>B, 4 A>B, 5 A>B"},
        {"stp 2 learning", "2 B>A", "! it is learning: it does not forward yet"},
        {"", "1 A>B", "! port 2 is learning: it does not forward yet"},
        {"stp 2 auto", "1 A>B", "2 A>B"},
    });
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
             {"", "1 A>m", "2 A>m, 3 A>m"},
             {"filtering 1 forward_all", "1 A>m", "0 A>m, 2 A>m, 3 A>m, 4 A>m, 5 A>m"}});
    from(2, mmrpOf(m, 5));
    from(2, mmrpOf(all, 1)); /* all groups */
    configure("filtering 1 filter_unregistered; pass 1; settle");
    forward({{"", "1 A>n", "2 A>n"}, {"", "1 A>m", "2 A>m, 3 A>m"}});
    from(3, gmrpOf(m, 3));
    configure("pass 1; settle");
    forward({{"", "4 D>m", "2 D>m"}});
    configure("vlan 10; join 1 10; tag 1 10; join 2 10; tag 2 10; join 3 10; tag 3 10; filtering 10 filter_unregistered");
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
    EXPECT_EQ(send("GET", "garp/gmrp-failed-registrations?ifNum=3"), success("\"garp\":{\"gmrpFailedRegistrations\":1}"));
}

/* A neighbour that trunks all VLANs joins them in one PDU; here all neighbours do, and one sends many LeaveAlls. */
TEST_F(MvrpGvrpFrames, costLittleWithAllVlansOnAllPorts)
{
    enum { PORTS = 28, MOST_MILLIS = 20 /* for a frame */ };
    startWithHosts(PORTS);
    configure("mvrp; mmrp");
    for (int port = 1; port <= PORTS; port++)
        configure("mvrpport " + std::to_string(port) + " enable; mmrpport " + std::to_string(port));
    const std::string to = addressOf('r') + addressOf('A') + std::string("\x88\xf5\0\1\2", 5), end(4, '\0');
    const std::string groups = addressOf('g') + addressOf('A') + std::string("\x88\xf6\0\2\6\x0f\xfe", 7) + addressOf('m') +
                               std::string(4094 / 3 + 1, 43);
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
    EXPECT_LT((after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1000000, 2 * PORTS * MOST_MILLIS);
    EXPECT_EQ(send("GET", "vlan/dynamic-vlan-entries"), success("\"vlan\":{\"val\":4093}"));
}

TEST_F(StaticFilterFrames, obeyFiltersAndProtectedPorts)
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

TEST_F(Plug, pluggedAndUnpluggedAtRunTime)
{
    play("plug 6=unix:" + path(6) + "\n"
         "plug 6=unix:" + path(7) + " | something is plugged into port 6 already\n"
         "plug 7=unix:" + directory + "/tmp | exists and is not a socket\n"
         "plug 7=unix:" + path(1) + " | another process is serving on\n" /* which is this switch */
         "plug 29=unix:" + path(7) + " | a plug is PORT=tap:NAME or PORT=unix:PATH");
    connectHost(6);
    command("settle");
    forward({{"", "6 A>*", "0 A>*, 1 A>*, 2 A>*, 3 A>*, 4 A>*, 5 A>*"}});
    play("unplug 6\nunplug 6 | nothing is plugged into port 6\nplug 7=unix:" + path(7));
    EXPECT_TRUE(isHungUpOn(6));
    EXPECT_NE(access(path(6).c_str(), F_OK), 0);
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
