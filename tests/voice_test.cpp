/*
 * voice_test.cpp - the voice VLAN and VoIP families through the real program.
 */
#include "tests/support/family_rows.h"

#define OP "rpcclt_openapi"

static const Family voice = {"voice-vlan/", OP "VoiceVlan", "voiceVlan"};
static const Family voip = {"voip/", OP "Voip", "voip"};

class VoiceVlan : public SwitchTest {};

TEST_F(VoiceVlan, setsThePriorityOfAPort)
{
    const struct { std::string target, operation, key, initial, highest, tooHigh; } rows[] = {
        {"port-dot1p-priority", "PortDot1pPriority", "priority", "5", "7", "8"},
        {"port-cos-override-mode", "PortCosOverrideMode", "mode", "0", "1", "2"},
        {"port-auth-state", "PortAuthState", "state", "1", "1", "2"},
        {"port-dscp", "PortDscp", "dscp", "46", "63", "64"},
    };
    for (const auto &[target, operation, key, initial, highest, tooHigh] : rows) {
        std::string at = target + "?nextifNum=4&ifNum=";
        std::string get = operation + "Get ifNum=", set = operation + "Set ifNum=6 ";
        std::string body = "{" + member(key, ""), value = key + "=";
        auto is = [&, &name = key](Text port, Text sent, Text reading) {
            return voice.get(at + port, get + port + " " + value + "0 -> 0 " + value + sent, member(name, reading));
        };
        expectAll({
            is("6", initial, initial),
            voice.put(at + "6", body + highest + "}", set + value + highest + " -> 0"),
            voice.put(at + "6", body + tooHigh + "}", set + value + tooHigh + " -> -22"),
            is("6", highest, highest), is("7", initial, initial),
            voice.put(at + "6", body + "\"46\"}", set + value + "0 -> 0"), /* no number */
            is("6", "0", "0"),
            voice.put(at + "6", body + "true}", set + value + "0 -> 0"),
            voice.put(at + "6", "{}", set + value + "0 -> 0"),
            voice.put(at + "6", body, ""),
            voice.get(target, get + "0 " + value + "0 -> -22"),
            voice.put(target, "{}", operation + "Set ifNum=0 " + value + "0 -> -22"),
        });
        tell("fault " OP "VoiceVlan" + operation + "Get code=0 " + value + "4294967295"); /* what is read is signed */
        expect(is("6", "4294967295", "-1"));
    }
}

TEST_F(VoiceVlan, setsTheModeOfAPort)
{
    startSwitch({"--station-vlans", "120"});
    auto mode = [](Text port, Text value) {
        return voice.get("port-admin-mode?ifNum=" + port,
                         "PortAdminModeGet ifNum=" + port + " mode=0 -> 0 mode=" + value, member("mode", value));
    };
    auto vlan = [](Text port, Text value) {
        return voice.get("port-vlan-id?ifNum=" + port,
                         "PortVlanIdGet ifNum=" + port + " vlanId=0 -> 0 vlanId=" + value, member("vlanId", value));
    };
    auto status = [](Text port, Text value) { /* under the key "mode" too */
        return voice.get("port-status?ifNum=" + port,
                         "PortStatusGet ifNum=" + port + " status=0 -> 0 status=" + value, member("mode", value));
    };
    auto set = [](Text port, Text body, Text asked) {
        return voice.put("port-admin-mode?ifNum=" + port, body, "PortAdminModeSet ifNum=" + port + " " + asked);
    };
    expectAll({
        mode("2", "0"), vlan("2", "0"), status("2", "0"),
        set("2", R"({"mode":1,"dataValue":100})", "mode=1 value=100 -> 0"),
        mode("2", "1"), vlan("2", "100"), status("2", "0"),
        voice.put("admin-mode", R"({"mode":1})", "AdminModeSet mode=1 -> 0"),
        status("2", "1"), status("3", "0"),
        set("9", R"({"mode":2,"dataValue":6})", "mode=2 value=6 -> 0"),
        mode("9", "2"), vlan("9", "0"), status("9", "0"), /* nobody is there */
        voice.get("port-dot1p-priority?ifNum=9", "PortDot1pPriorityGet ifNum=9 priority=0 -> 0 priority=6",
                  R"("priority":6)"),
        set("2", R"({"mode":1,"dataValue":121})", "mode=1 value=121 -> -22"),
        set("2", R"({"mode":2,"dataValue":8})", "mode=2 value=8 -> -22"),
        set("2", R"({"mode":5})", "mode=5 value=0 -> -22"),
        set("29", R"({"mode":3})", "mode=3 value=0 -> -22"),
        mode("2", "1"), vlan("2", "100"),
        set("2", R"({"mode":"1","dataValue":"100"})", "mode=0 value=0 -> 0"),
        mode("2", "0"), vlan("2", "100"),
        voice.put("port-admin-mode?ifNum=2", "", ""),
        voice.get("port-admin-mode", "PortAdminModeGet ifNum=0 mode=0 -> -22"),
        voice.get("port-status", "PortStatusGet ifNum=0 status=0 -> -22"),
        voice.put("port-vlan-id?ifNum=3&vlanId=110", "", "PortVlanIdSet ifNum=3 vlanId=110 -> 0"),
        vlan("3", "110"),
        voice.put("port-vlan-id", R"({"ifNum":3,"vlanId":111})", "PortVlanIdSet ifNum=0 vlanId=0 -> -22"),
        voice.put("port-vlan-id?ifNum=3&vlanId=121", "", "PortVlanIdSet ifNum=3 vlanId=121 -> -22"),
        voice.get("port-vlan-id?vlanId=3", "PortVlanIdGet ifNum=0 vlanId=0 -> -22"),
        voice.get("admin-mode", "AdminModeGet mode=0 -> 0 mode=1", R"("mode":1)"),
        voice.put("admin-mode", R"({"mode":2})", "AdminModeSet mode=2 -> -22"),
        voice.put("admin-mode", R"({"mode":false})", "AdminModeSet mode=0 -> 0"),
        status("2", "0"),
        voice.put("admin-mode", "", ""),
    });
    tell("fault " OP "VoiceVlanAdminModeGet code=-1");
    tell("fault " OP "VoiceVlanPortStatusGet code=0 status=4294967294");
    expect(voice.get("admin-mode", "AdminModeGet mode=0 -> -1"));
    expect(voice.get("port-status", "PortStatusGet ifNum=0 status=0 -> 0 status=4294967294", R"("mode":-2)"));
}

class Voip : public SwitchTest {};

TEST_F(Voip, setsThePrioritisation)
{
    startSwitch({"--station-vlans", "120"});
    const std::string cosGet = "ProfileCosQueueGet scheme=0 value=0 -> 0 ", cosSet = "ProfileCosQueueSet ";
    auto vlan = [](Text value) {
        return voip.get("global-vlan-id", "GlobalVlanIdGet vlanId=0 -> 0 vlanId=" + value, member("vlanId", value));
    };
    expectAll({
        voip.get("max-calls", "MaxCallsGet count=0 -> 0 count=16", R"("maxCalls":16)"),
        voip.get("profile-cos-queue", cosGet + "scheme=2 value=6", R"("pType":"trafficClass","pTypeVal":6)"),
        voip.put("profile-cos-queue", R"({"priScheme":"remark","value":5})", cosSet + "scheme=1 value=5 -> 0"),
        voip.get("profile-cos-queue", cosGet + "scheme=1 value=5", R"("pType":"remark","pTypeVal":5)"),
        voip.put("profile-cos-queue", R"({"priScheme":"Remark","VALUE":3.9})", cosSet + "scheme=2 value=3 -> 0"),
        voip.put("profile-cos-queue", R"({"priScheme":1,"value":"3"})", cosSet + "scheme=2 value=0 -> 0"),
        voip.put("profile-cos-queue", "{}", cosSet + "scheme=2 value=0 -> 0"),
        voip.put("profile-cos-queue", R"({"value":8})", cosSet + "scheme=2 value=8 -> -22"),
        voip.put("profile-cos-queue", "value=8", ""),
        voip.get("oui-priority", "OUIPriorityGet priority=0 -> 0 priority=7", R"("priority":7)"),
        voip.put("oui-priority", R"({"priority":4})", "OUIPrioritySet priority=4 -> 0"),
        voip.get("oui-priority", "OUIPriorityGet priority=0 -> 0 priority=4", R"("priority":4)"),
        voip.put("oui-priority", R"({"priority":8})", "OUIPrioritySet priority=8 -> -22"),
        voip.put("oui-priority", R"({"priority":-1})", "OUIPrioritySet priority=4294967295 -> -22"),
        voip.put("oui-priority", R"({"priority":true})", "OUIPrioritySet priority=1 -> 0"),
        voip.put("oui-priority", "{}", "OUIPrioritySet priority=0 -> 0"),
        voip.put("oui-priority", "", ""),
        vlan("0"),
        voip.put("global-vlan-id?xvlanId=3&vlanId=115", "", "GlobalVlanIdSet vlanId=115 -> 0"),
        voip.put("global-vlan-id", R"({"vlanId":9})", "GlobalVlanIdSet vlanId=0 -> -22"),
        voip.put("global-vlan-id?vlanId=121", "", "GlobalVlanIdSet vlanId=121 -> -22"),
        vlan("115"),
        voip.post("global-vlan-id-reset", "no JSON", "GlobalVlanIdReset -> 0"),
        vlan("0"),
    });
    tell("fault " OP "VoipProfileCosQueueGet code=0 scheme=3 value=4294967295");
    tell("fault " OP "VoipMaxCallsGet code=0 count=4294967295");
    tell("fault " OP "VoipGlobalVlanIdReset code=-3");
    expectAll({
        voip.get("profile-cos-queue", cosGet + "scheme=3 value=4294967295",
                 R"("pType":"unknown","pTypeVal":4294967295)"),
        voip.get("max-calls", "MaxCallsGet count=0 -> 0 count=4294967295", R"("maxCalls":4294967295)"),
        voip.post("global-vlan-id-reset", "", "GlobalVlanIdReset -> -3"),
    });
}

TEST_F(Voip, detectsOnAPort)
{
    const std::string get = "IntfModeGet ifNum=", set = "IntfModeSet ifNum=";
    auto modes = [&](Text port, Text protocol, Text oui) {
        auto word = [](Text flag) { return flag == "1" ? "\"enable\"" : "\"disable\""; };
        return voip.get("intf-mode?ifNum=" + port,
                        get + port + " type=1 flag=0 -> 0 flag=" + protocol + "\n" OP "Voip" +
                            get + port + " type=2 flag=0 -> 0 flag=" + oui,
                        std::string("\"protocolMode\":") + word(protocol) + ",\"ouiMode\":" + word(oui));
    };
    auto status = [](Text target, Text operation, Text port,
                     Text value) { /* preset to 1 */
        return voip.get(target + "?ifNum=" + port, operation + " ifNum=" + port + " status=1 -> 0 status=" + value,
                        value == "0" ? R"("status":"up")" : R"("status":"down")");
    };
    auto protocolIs = [&](Text port, Text value) {
        return status("intf-protocol-status", "IntfProtocolStatusGet", port, value);
    };
    auto ouiIs = [&](Text port, Text value) {
        return status("intf-oui-status", "IntfOUIStatusGet", port, value);
    };
    auto sessions = [](Text value) {
        return voip.get("num-active-protocol-sessions", "NumActiveProtocolSessionsGet count=0 -> 0 count=" + value,
                        member("sessions", value));
    };
    expectAll({
        modes("3", "0", "0"), protocolIs("3", "1"), ouiIs("3", "1"),
        voip.put("intf-mode?ifNum=3", R"({"type":"protocol","mode":"enable"})", set + "3 type=1 flag=1 -> 0"),
        modes("3", "1", "0"), protocolIs("3", "0"), ouiIs("3", "1"), sessions("1"),
        voip.put("intf-mode?ifNum=3", R"({"type":"oui","mode":"enable"})", set + "3 type=2 flag=1 -> 0"),
        voip.put("intf-mode?ifNum=3", R"({"type":"protocol","mode":"Enable"})", set + "3 type=1 flag=0 -> 0"),
        modes("3", "0", "1"), protocolIs("3", "1"), ouiIs("3", "0"), sessions("0"),
        voip.put("intf-mode?ifNum=8", R"({"type":"Protocol","mode":"enable"})", set + "8 type=2 flag=1 -> 0"),
        voip.put("intf-mode?ifNum=8", "{}", set + "8 type=2 flag=0 -> 0"),
        voip.put("intf-mode?ifNum=8", R"({"type":"protocol","mode":"enable"})", set + "8 type=1 flag=1 -> 0"),
        modes("8", "1", "0"), protocolIs("8", "1"), sessions("0"), /* nobody is there */
        voip.put("intf-mode", R"({"ifNum":3,"type":"protocol"})", set + "0 type=1 flag=0 -> -22"),
        voip.put("intf-mode?ifNum=3", "", ""),
        voip.get("intf-protocol-status", "IntfProtocolStatusGet ifNum=0 status=1 -> -22"),
        voip.get("intf-oui-status", "IntfOUIStatusGet ifNum=0 status=1 -> -22"),
    });
    tell("fault " OP "VoipIntfModeGet code=0 flag=2");
    tell("fault " OP "VoipIntfProtocolStatusGet code=0"); /* untouched */
    tell("fault " OP "VoipIntfOUIStatusGet code=0 status=2");
    expectAll({modes("3", "2", "2"), protocolIs("3", "1"), ouiIs("3", "2")});
    tell("fault " OP "VoipIntfProtocolStatusGet code=0 status=3");
    expect(protocolIs("3", "3"));

    /* Both modes are asked for whatever becomes of the first; the first failure is the answer. */
    const std::string second = "\n" OP "Voip" + get + "3 type=2 flag=0 -> ";
    tell("fault " OP "VoipIntfModeGet code=-24 times=1");
    expect(voip.get("intf-mode?ifNum=3", get + "3 type=1 flag=0 -> -24" + second + "0 flag=1"));
    tell("fault " OP "VoipIntfModeGet code=0 times=1");
    tell("fault * code=-28"); /* what comes after it */
    tell("fault " OP "ConnectivityCheck code=0");
    Exchange secondFails = voip.get("intf-mode?ifNum=3", get + "3 type=1 flag=0 -> 0 flag=0" + second + "-28");
    secondFails.answered = failure(17002);
    expect(secondFails);
}

/* A text as it travels: the size offered, then the text. */
static std::string sized(Text name, size_t size, Text text)
{
    return name + "=[" + std::to_string(size) + "]\"" + text + "\"";
}

static std::string oui(Text text)
{
    return sized("oui", text.size(), text);
}

static std::string described(Text ouiText, Text description)
{
    return oui(ouiText) + " " + sized("description", description.size(), description);
}

/* Texts that are sent come back with success. */
static std::string echoed(Text operation, Text texts, Text code)
{
    return operation + texts + " -> " + code + (code == "0" ? " " + texts : "");
}

/* An entry that comes back, and the data that is made of it. */
static const std::string blank = R"(oui=[9]"" description=[33]"")";

static std::string entry(Text ouiText, Text description)
{
    return sized("oui", 9, ouiText) + " " + sized("description", 33, description);
}

static std::string entryData(Text ouiText, Text description)
{
    return "\"voipOui\":\"" + ouiText + "\",\"ouiDesc\":\"" + description + "\"";
}

TEST_F(Voip, keepsOuisByText)
{
    const std::string nextBlank = R"( nextOui=[9]"" nextDescription=[33]"" -> )";
    const std::string describe = R"( description=[33]"" -> )";
    auto count = [](Text value) {
        return voip.get("oui-count", "OuiCountGet count=0 -> 0 count=" + value, member("ouiCount", value));
    };
    auto add = [](Text body, Text sent, Text code) { return voip.post("oui", body, echoed("OuiAdd ", sent, code)); };
    expectAll({
        count("3"),
        add(R"({"voipOui":"3a:00:ff","ouiDesc":"Lab phones"})", described("3a:00:ff", "Lab phones"), "0"),
        add(R"({"voipOui":"3A:00:FF","ouiDesc":"again"})", described("3A:00:FF", "again"), "-24"),
        add(R"({"VOIPOUI":"9E:10:20:30:40"})", described("9E:10:20", ""), "0"),
        add(R"({"voipOui":"3A-00-01"})", described("3A-00-01", ""), "-22"),
        add(R"({"voipOui":"3A:00:0"})", described("3A:00:0", ""), "-22"),
        add(R"({"voipOui":3,"ouiDesc":4})", described("", ""), "-22"),
        voip.post("oui", "voipOui=3A:00:01", ""),
        count("5"),
        voip.get("oui-first-entry", "OuiFirstEntryGet " + blank + " -> 0 " + entry("2A:5D:01", "Conference phones"),
                 entryData("2A:5D:01", "Conference phones")),
        voip.get("oui-next-entry?voipOui=2A:5D:01", "OuiNextEntryGet " + oui("2A:5D:01") + nextBlank + "0 " +
                 oui("2A:5D:01") + R"( nextOui=[9]"3A:00:FF" nextDescription=[33]"Lab phones")",
                 R"("nextVoipOui":"3A:00:FF","nextOuiDesc":"Lab phones")"),
        /* a loose key, a long value; the OUI need not be in the table */
        voip.get("oui-next-entry?xvoipOui=9E:10:1F:ABC", "OuiNextEntryGet " + oui("9E:10:1F") + nextBlank + "0 " +
                 oui("9E:10:1F") + R"( nextOui=[9]"9E:10:20" nextDescription=[33]"")",
                 R"("nextVoipOui":"9E:10:20","nextOuiDesc":"")"),
        voip.get("oui-next-entry?voipOui=B6:0C:E3", "OuiNextEntryGet " + oui("B6:0C:E3") + nextBlank + "-1"),
        voip.get("oui-next-entry", "OuiNextEntryGet " + oui("") + nextBlank + "-22"),
        voip.get("oui-desc?voipOui=7E:40:91", "OuiDescGet " + oui("7E:40:91") + describe + "0 " + oui("7E:40:91") +
                 R"( description=[33]"Desk phones")", R"("ouiDesc":"Desk phones")"),
        voip.get("oui-desc?voipOui=7E:40:92", "OuiDescGet " + oui("7E:40:92") + describe + "-1"),
        voip.get("oui-desc?voipOui=7E%3A40%3A91", "OuiDescGet " + oui("7E%3A40%") + describe + "-22"),
        /* the query itself is the JSON text, and not decoded */
        voip.del(R"(oui?{"voipOui":"7e:40:91"})", echoed("OuiRemove ", oui("7e:40:91"), "0")),
        voip.del(R"(oui?{"voipOui":"7E:40:91"})", echoed("OuiRemove ", oui("7E:40:91"), "-1")),
        voip.del("oui?{}", echoed("OuiRemove ", oui(""), "-22")),
        voip.del("oui?voipOui=2A:5D:01", ""),
        voip.del("oui?%7B%22voipOui%22:%222A:5D:01%22%7D", ""),
        count("4"),
    });
    /* texts that fill all that was offered still end */
    const std::string longText(33, 'd');
    tell("fault " OP "VoipOuiFirstEntryGet code=0 oui=123456789012 description=" + longText + longText);
    expect(voip.get("oui-first-entry", "OuiFirstEntryGet " + blank + " -> 0 " + entry("123456789", longText),
                    entryData("123456789", longText)));
}

TEST_F(Voip, keepsOuisByIndex)
{
    const std::string cut(32, 'd');
    auto add = [](Text index, Text added, Text description, Text code) {
        std::string sent = described(added, description.substr(0, 32));
        return voip.post("index-oui?ouiIndex=" + index, "{" + entryData(added, description) + "}",
                         echoed("IndexOuiAdd ouiIndex=" + index + " ", sent, code));
    };
    auto get = [](Text index, Text outcome, Text data = "") {
        std::string asked = "OuiEntryGet ouiIndex=" + index + " " + blank + " -> " + outcome;
        return voip.get("oui-entry?ouiIndex=" + index, asked, data);
    };
    auto next = [](Text index, Text outcome, Text data = "") {
        std::string asked = "OuiEntryNextGet ouiIndex=" + index + " " + blank + " nextOuiIndex=0 -> " + outcome;
        return voip.get("oui-entry-next?ouiIndex=" + index, asked, data);
    };
    expectAll({
        get("3", "0 " + entry("B6:0C:E3", "Door intercoms"), entryData("B6:0C:E3", "Door intercoms")),
        add("9", "4E:00:01", cut + "xyz", "0"),
        add("9", "4E:00:02", "", "-24"), add("10", "4E:00:01", "", "-24"), add("33", "4E:00:03", "", "-22"),
        voip.post("index-oui", R"({"ouiIndex":10})", "IndexOuiAdd ouiIndex=0 " + described("", "") + " -> -22"),
        voip.post("index-oui?ouiIndex=10", "", ""),
        next("0", "0 " + entry("7E:40:91", "Desk phones") + " nextOuiIndex=1",
             entryData("7E:40:91", "Desk phones") + R"(,"nextOuiIndex":1)"),
        next("3", "0 " + entry("4E:00:01", cut) + " nextOuiIndex=9",
             entryData("4E:00:01", cut) + R"(,"nextOuiIndex":9)"),
        next("9", "-1"),
        voip.del("index-oui?ouiIndex=9", "IndexOuiRemove ouiIndex=9 -> 0"),
        voip.del("index-oui?ouiIndex=9", "IndexOuiRemove ouiIndex=9 -> -1"),
        voip.del("index-oui?index=2", "IndexOuiRemove ouiIndex=0 -> -22"),
        get("9", "-1"), get("33", "-22"),
    });
    /* The table takes 32; the next one gets the index that was left first. */
    for (int i = 4; i <= 32; i++)
        EXPECT_EQ(send("POST", "voip/oui", "{\"voipOui\":\"6E:00:" + std::to_string(10 + i) + "\"}"), successLine());
    EXPECT_EQ(send("POST", "voip/oui", R"({"voipOui":"6E:00:99"})"), failureLine(10000));
    EXPECT_EQ(send("POST", "voip/oui", R"({"voipOui":"6E:00:42"})"), failureLine(10011));
    send("DELETE", "voip/index-oui?ouiIndex=2");
    EXPECT_EQ(send("POST", "voip/oui", R"({"voipOui":"6E:00:99"})"), successLine());
    expect(get("2", "0 " + entry("6E:00:99", ""), entryData("6E:00:99", "")));
    tell("reset");
    expect(get("4", "-1"));
}
