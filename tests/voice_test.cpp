/*
 * voice_test.cpp - the voice VLAN and VoIP families through the real program.
 */
#include "tests/support/family_rows.h"

#define OP "rpcclt_openapi"

static const Family voice = {"voice-vlan/", OP "VoiceVlan", "voiceVlan"};
static const Family voip = {"voip/", OP "Voip", "voip"};

class VoiceVlan : public SwitchTest {};

TEST_F(VoiceVlan, readsNumbers)
{
    const struct { std::string target, operation, output, key; } rows[] = {
        {"port-admin-mode", "PortAdminModeGet", "mode=", "mode"},
        {"port-vlan-id", "PortVlanIdGet", "vlanId=", "vlanId"},
        {"port-dot1p-priority", "PortDot1pPriorityGet", "priority=", "priority"},
        {"port-cos-override-mode", "PortCosOverrideModeGet", "mode=", "mode"},
        {"port-auth-state", "PortAuthStateGet", "state=", "state"},
        {"port-dscp", "PortDscpGet", "dscp=", "dscp"},
        {"port-status", "PortStatusGet", "status=", "mode"},
    };
    for (const auto &[target, operation, output, key] : rows) {
        tell("fault " OP "VoiceVlan" + operation + " code=0 times=1 " + output + "4294967294"); /* it is read signed */
        expect(voice.get(target + "?nextifNum=4&ifNum=6", operation + " ifNum=6 " + output + "0 -> 0 " + output +
                         "4294967294", member(key, "-2")));
        expect(voice.get(target, operation + " ifNum=0 " + output + "0 -> -22"));
    }
    tell("fault " OP "VoiceVlanAdminModeGet code=0 times=1 mode=4294967294");
    expect(voice.get("admin-mode", "AdminModeGet mode=0 -> 0 mode=4294967294", R"("mode":-2)"));
    tell("fault " OP "VoiceVlanAdminModeGet code=-1");
    expect(voice.get("admin-mode", "AdminModeGet mode=0 -> -1"));
}

TEST_F(VoiceVlan, setsNumbers)
{
    const struct { std::string target, operation, port, key; } rows[] = {
        {"admin-mode", "AdminModeSet ", "", "mode"},
        {"port-dot1p-priority?nextifNum=4&ifNum=6", "PortDot1pPrioritySet ", "ifNum=6 ", "priority"},
        {"port-cos-override-mode?nextifNum=4&ifNum=6", "PortCosOverrideModeSet ", "ifNum=6 ", "mode"},
        {"port-auth-state?nextifNum=4&ifNum=6", "PortAuthStateSet ", "ifNum=6 ", "state"},
        {"port-dscp?nextifNum=4&ifNum=6", "PortDscpSet ", "ifNum=6 ", "dscp"},
    };
    for (const auto &[target, operation, port, key] : rows) {
        std::string asked = operation + port + key + "=", body = R"({"ifNum":4,)" + member(key, "");
        expectAll({
            voice.put(target, body + "1}", asked + "1 -> 0"),
            voice.put(target, body + "-1}", asked + "4294967295 -> -22"),
            voice.put(target, body + "true}", asked + "0 -> 0"), /* no number */
            voice.put(target, body, ""),
        });
    }
}

TEST_F(VoiceVlan, setsTheModeOfAPort)
{
    const std::string target = "port-admin-mode?nextifNum=4&ifNum=2", set = "PortAdminModeSet ifNum=2 ";
    expectAll({
        voice.put(target, R"({"mode":1,"dataValue":1})", set + "mode=1 value=1 -> 0"),
        voice.put("admin-mode", R"({"mode":1})", "AdminModeSet mode=1 -> 0"),
        voice.get("port-status?ifNum=2", "PortStatusGet ifNum=2 status=0 -> 0 status=1", R"("mode":1)"),
        voice.put(target, R"({"mode":-1,"dataValue":-2})", set + "mode=4294967295 value=4294967294 -> -22"),
        voice.put(target, R"({"mode":true,"dataValue":true})", set + "mode=0 value=0 -> 0"),
        voice.put(target, "", ""),
        voice.put("port-vlan-id?nextifNum=3&ifNum=2&xvlanId=2&vlanId=1", "", "PortVlanIdSet ifNum=2 vlanId=1 -> 0"),
        voice.put("port-vlan-id", R"({"ifNum":2,"vlanId":1})", "PortVlanIdSet ifNum=0 vlanId=0 -> -22"),
    });
}

class Voip : public SwitchTest {};

TEST_F(Voip, setsThePrioritisation)
{
    const std::string cosGet = "ProfileCosQueueGet scheme=0 value=0 -> 0 ", cosSet = "ProfileCosQueueSet ";
    expectAll({
        voip.get("profile-cos-queue", cosGet + "scheme=2 value=6", R"("pType":"trafficClass","pTypeVal":6)"),
        voip.put("profile-cos-queue", R"({"priScheme":"remark","value":5})", cosSet + "scheme=1 value=5 -> 0"),
        voip.get("profile-cos-queue", cosGet + "scheme=1 value=5", R"("pType":"remark","pTypeVal":5)"),
        voip.put("profile-cos-queue", R"({"priScheme":"trafficClass","value":true})", cosSet + "scheme=2 value=1 -> 0"),
        voip.put("profile-cos-queue", R"({"priScheme":"Remark","value":"3"})", cosSet + "scheme=2 value=0 -> 0"),
        voip.put("profile-cos-queue", R"({"value":-1})", cosSet + "scheme=2 value=4294967295 -> -22"),
        voip.put("profile-cos-queue", "value=8", ""),
        voip.put("oui-priority", R"({"priority":4})", "OUIPrioritySet priority=4 -> 0"),
        voip.put("oui-priority", R"({"priority":-1})", "OUIPrioritySet priority=4294967295 -> -22"),
        voip.put("oui-priority", R"({"priority":true})", "OUIPrioritySet priority=1 -> 0"),
        voip.put("oui-priority", "", ""),
        voip.put("global-vlan-id?xvlanId=3&vlanId=1", "", "GlobalVlanIdSet vlanId=1 -> 0"),
        voip.put("global-vlan-id", R"({"vlanId":9})", "GlobalVlanIdSet vlanId=0 -> -22"),
        voip.get("global-vlan-id", "GlobalVlanIdGet vlanId=0 -> 0 vlanId=1", R"("vlanId":1)"),
        voip.post("global-vlan-id-reset", "no JSON", "GlobalVlanIdReset -> 0"),
    });
    tell("fault " OP "VoipGlobalVlanIdReset code=-3");
    tell("fault " OP "VoipProfileCosQueueGet code=0 times=1 scheme=3 value=4294967295");
    expect(voip.post("global-vlan-id-reset", "", "GlobalVlanIdReset -> -3"));
    expect(voip.get("profile-cos-queue", cosGet + "scheme=3 value=4294967295",
                    R"("pType":"unknown","pTypeVal":4294967295)"));
    tell("fault " OP "VoipProfileCosQueueGet code=-28");
    expect(voip.get("profile-cos-queue", "ProfileCosQueueGet scheme=0 value=0 -> -28"));
}

TEST_F(Voip, readsNumbers)
{
    const struct { std::string target, operation, output, key; } rows[] = {
        {"max-calls", "MaxCallsGet", "count=", "maxCalls"},
        {"num-active-protocol-sessions", "NumActiveProtocolSessionsGet", "count=", "sessions"},
        {"oui-count", "OuiCountGet", "count=", "ouiCount"},
        {"oui-priority", "OUIPriorityGet", "priority=", "priority"},
        {"global-vlan-id", "GlobalVlanIdGet", "vlanId=", "vlanId"},
    };
    for (const auto &[target, operation, output, key] : rows) {
        std::string asked = operation + " " + output + "0 -> ";
        tell("fault " OP "Voip" + operation + " code=0 times=1 " + output + "4294967295"); /* it is read unsigned */
        expect(voip.get(target, asked + "0 " + output + "4294967295", member(key, "4294967295")));
        tell("fault " OP "Voip" + operation + " code=-28");
        expect(voip.get(target, asked + "-28"));
    }
}

TEST_F(Voip, detectsOnAPort)
{
    const std::string at3 = "intf-mode?xifNum=4&ifNum=3", set = "IntfModeSet ifNum=3 ";
    const std::string first = "IntfModeGet ifNum=3 type=1 flag=0 -> ";
    const std::string second = "\n" OP "VoipIntfModeGet ifNum=3 type=2 flag=0 -> ";
    auto status = [](Text port, Text protocol, Text oui) {
        auto asked = [&](Text value) { return "StatusGet ifNum=" + port + " status=1 -> 0 status=" + value; };
        auto word = [](Text value) { return value == "0" ? R"("status":"up")" : R"("status":"down")"; };
        return std::vector{
            voip.get("intf-protocol-status?xifNum=4&ifNum=" + port, "IntfProtocol" + asked(protocol), word(protocol)),
            voip.get("intf-oui-status?xifNum=4&ifNum=" + port, "IntfOUI" + asked(oui), word(oui))};
    };
    expectAll({
        voip.put(at3, R"({"type":"protocol","mode":"enable"})", set + "type=1 flag=1 -> 0"),
        voip.get(at3, first + "0 flag=1" + second + "0 flag=0", R"("protocolMode":"enable","ouiMode":"disable")"),
    });
    expectAll(status("3", "0", "1"));
    EXPECT_EQ(send("GET", "voip/num-active-protocol-sessions"), success(R"("voip":{"sessions":1})"));
    expectAll({
        voip.put(at3, R"({"type":"protocol","mode":"Enable"})", set + "type=1 flag=0 -> 0"),
        voip.put(at3, R"({"type":"Protocol","mode":"enable"})", set + "type=2 flag=1 -> 0"),
        voip.get(at3, first + "0 flag=0" + second + "0 flag=1", R"("protocolMode":"disable","ouiMode":"enable")"),
        voip.put("intf-mode", R"({"ifNum":3})", "IntfModeSet ifNum=0 type=2 flag=0 -> -22"),
        voip.put(at3, "", ""),
        voip.get("intf-protocol-status", "IntfProtocolStatusGet ifNum=0 status=1 -> -22"),
        voip.get("intf-oui-status", "IntfOUIStatusGet ifNum=0 status=1 -> -22"),
    });
    expectAll(status("3", "1", "0"));
    tell("fault " OP "VoipIntfProtocolStatusGet code=0 status=2");
    tell("fault " OP "VoipIntfOUIStatusGet code=0 status=2");
    tell("fault " OP "VoipIntfModeGet code=0 times=2 flag=2");
    expectAll(status("3", "2", "2"));
    expect(voip.get(at3, first + "0 flag=2" + second + "0 flag=2", R"("protocolMode":"disable","ouiMode":"disable")"));

    /* Both modes are asked for whatever becomes of the first; the first failure is the answer. */
    tell("fault " OP "VoipIntfModeGet code=-24 times=1");
    expect(voip.get(at3, first + "-24" + second + "0 flag=1"));
    tell("fault " OP "VoipIntfModeGet code=0 times=1");
    tell("fault * code=-28"); /* what comes after it */
    Exchange secondFails = voip.get(at3, first + "0 flag=0" + second + "-28");
    secondFails.answered = failure(17002);
    expect(secondFails);
}

/* A text as it is sent: its length, then the text. */
static std::string sized(Text name, Text text)
{
    return " " + name + "=[" + std::to_string(text.size()) + "]\"" + text + "\"";
}

/* An entry as it is asked for, when it is blank, and as it comes back, and the data that is made of it. */
static std::string entry(Text oui, Text description)
{
    return " oui=[9]\"" + oui + "\" description=[33]\"" + description + "\"";
}

static std::string entryData(Text oui, Text description)
{
    return R"("voipOui":")" + oui + R"(","ouiDesc":")" + description + "\"";
}

TEST_F(Voip, writesOuis)
{
    const std::string cut(32, 'd'), none = sized("oui", "") + sized("description", "") + " -> -22";
    const std::string index = "index-oui?xouiIndex=8&ouiIndex=9", oui = sized("oui", "9E:10:20");
    const std::string sent = oui + sized("description", cut);
    const std::string body = "{" + entryData("9E:10:20:30", cut + "xyz") + R"(,"ouiIndex":7})";
    expectAll({
        voip.post("oui", body, "OuiAdd" + sent + " -> 0" + sent),
        voip.post("oui", body, "OuiAdd" + sent + " -> -24"),
        voip.post("oui", R"({"voipOui":3,"ouiDesc":4})", "OuiAdd" + none),
        voip.post("oui", "voipOui=3A:00:01", ""),
        /* the query itself is the JSON text, and not decoded */
        voip.del(R"(oui?{"voipOui":"9E:10:20:30"})", "OuiRemove" + oui + " -> 0" + oui),
        voip.del("oui?{}", "OuiRemove" + sized("oui", "") + " -> -22"),
        voip.del("oui?%7B%22voipOui%22:%222A:5D:01%22%7D", ""),
        voip.post(index, body, "IndexOuiAdd ouiIndex=9" + sent + " -> 0" + sent),
        voip.post("index-oui", R"({"ouiIndex":9})", "IndexOuiAdd ouiIndex=0" + none),
        voip.post(index, "", ""),
        voip.del(index, "IndexOuiRemove ouiIndex=9 -> 0"),
        voip.del(index, "IndexOuiRemove ouiIndex=9 -> -1"),
    });
}

TEST_F(Voip, readsOuis)
{
    const std::string blank = entry("", "") + " -> ", a = "2A:5D:01", b = "7E:40:91", longText(33, 'd');
    const std::string nextBlank = R"( nextOui=[9]"" nextDescription=[33]"" -> )";
    const std::string describe = R"( description=[33]"" -> )";
    expectAll({
        voip.get("oui-first-entry", "OuiFirstEntryGet" + blank + "0" + entry(a, "Conference phones"),
                 entryData(a, "Conference phones")),
        voip.get("oui-next-entry?xvoipOui=2A:5D:01cut", "OuiNextEntryGet" + sized("oui", a) + nextBlank + "0" +
                 sized("oui", a) + R"( nextOui=[9]"7E:40:91" nextDescription=[33]"Desk phones")",
                 R"("nextVoipOui":"7E:40:91","nextOuiDesc":"Desk phones")"),
        voip.get("oui-next-entry", "OuiNextEntryGet" + sized("oui", "") + nextBlank + "-22"),
        voip.get("oui-desc?xvoipOui=7E:40:91cut", "OuiDescGet" + sized("oui", b) + describe + "0" + sized("oui", b) +
                 R"( description=[33]"Desk phones")", R"("ouiDesc":"Desk phones")"),
        voip.get("oui-desc?voipOui=7E%3A40%3A91", "OuiDescGet" + sized("oui", "7E%3A40%") + describe + "-22"),
        voip.get("oui-entry?xouiIndex=2&ouiIndex=1", "OuiEntryGet ouiIndex=1" + blank + "0" + entry(b, "Desk phones"),
                 entryData(b, "Desk phones")),
        voip.get("oui-entry", "OuiEntryGet ouiIndex=0" + blank + "-22"),
    });
    const std::string entryNext = "OuiEntryNextGet ouiIndex=1" + entry("", "") + " nextOuiIndex=0 -> ";
    expect(voip.get("oui-entry-next?xouiIndex=2&ouiIndex=1", entryNext + "0" + entry(a, "Conference phones") +
                    " nextOuiIndex=2", entryData(a, "Conference phones") + R"(,"nextOuiIndex":2)"));
    tell("fault " OP "VoipOuiEntryNextGet code=-1");
    expect(voip.get("oui-entry-next?ouiIndex=1", entryNext + "-1"));
    /* texts that fill all that was offered still end */
    tell("fault " OP "VoipOuiFirstEntryGet code=0 times=1 oui=123456789012 description=" + longText + longText);
    expect(voip.get("oui-first-entry", "OuiFirstEntryGet" + blank + "0" + entry("123456789", longText),
                    entryData("123456789", longText)));
    tell("fault " OP "VoipOuiFirstEntryGet code=-1");
    expect(voip.get("oui-first-entry", "OuiFirstEntryGet" + blank + "-1"));
}
