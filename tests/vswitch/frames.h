/*
 * frames.h - frames through the virtual switch. Requests configure it, hosts on sockets send frames, and each row says
 * on which ports the frames come out. The command "settle" waits until all frames are forwarded. The clock stands still
 * except for the command "pass SECONDS".
 */
#ifndef TESTS_VSWITCH_FRAMES_H
#define TESTS_VSWITCH_FRAMES_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>

#include "tests/support/driver.h"

/* The short names that rows use for requests; $1, $2, ... are the arguments behind the name. */
inline const struct { const char *name, *method, *target, *body; } requests[] = {
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
inline const std::map<char, std::string> addresses = {
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

inline std::string addressOf(char letter)
{
    auto found = addresses.find(letter);
    return found == addresses.end() ? std::string("\x02\0\0\0\0", 5) + letter : found->second;
}

inline char letterOf(const std::string &address)
{
    for (const auto &[letter, known] : addresses)
        if (known == address)
            return letter;
    return address[5];
}

/*
 * The frame of a text: "A>B" from A to B, "A>B@10" with a tag of VLAN 10, "A>B@10p5" and priority 5, "A>B@10p5d" and
 * DEI. Behind that, "=IP:PORT" for a TCP packet, "=IP:PORT+" for a later fragment of one, and ":1600" for the length.
 */
inline std::string frameOf(const std::string &text)
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
inline std::string textOf(const std::string &frame)
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

#endif
