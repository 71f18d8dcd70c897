/*
 * access_list_test.cpp - the management access lists through the real program.
 */
#include <regex>

#include "tests/support/family_rows.h"

#define OP "rpcclt_openapiMacal"

static const Family macal = {"macal/", OP, "macal"};

class AccessList : public SwitchTest {
protected:
    /* A list "lab" with a rule of priority 3. */
    void SetUp() override
    {
        SwitchTest::SetUp();
        send("POST", "macal/list", R"({"macalName":"lab"})");
        send("POST", "macal/rule-entry", R"({"macalName":"lab","macalRulePrio":3})");
    }
};

/* A list's name or a VRF's as it travels. */
static std::string text(Text key, Text value)
{
    return " " + key + "=[256]\"" + value + "\"";
}

/* What is asked about a list: its name is sent, and comes back with an outcome that begins with 0. */
static std::string about(Text list, Text operation, Text more, Text outcome)
{
    std::string name = text("macalName", list);
    return operation + name + (more.empty() ? "" : " " + more) + " -> " +
           (outcome[0] == '0' ? "0" + name + outcome.substr(1) : outcome);
}

static std::string ofLab(Text operation, Text more, Text outcome)
{
    return about("lab", operation, more, outcome);
}

static std::string body(Text priority, Text more = "")
{
    return R"({"macalName":"lab","macalRulePrio":)" + priority + (more.empty() ? "" : "," + more) + "}";
}

static std::string named(Text list)
{
    return "{\"macalName\":\"" + list + "\"}";
}

static const std::string query3 = "?xmacalName=lab&xmacalRulePrio=3"; /* loose keys */

TEST_F(AccessList, keepsLists)
{
    const std::string longName(300, 'n'), none = text("macalName", "") + " -> ";
    expectAll({
        macal.post("list", named("attic"), about("attic", "ListCreate", "", "0")),
        macal.post("list", named("lab"), ofLab("ListCreate", "", "-24")),
        macal.post("list", named(longName), about(longName.substr(0, 255), "ListCreate", "", "-22")),
        macal.get("name", "NameGet" + none + "0" + text("macalName", "attic"), R"("macalName":"attic")"),
        macal.get("active-list", "ActiveListGet" + none + "-1"),
        macal.post("activate", named("lab"), ofLab("Activate", "", "0")),
        macal.get("active-list", "ActiveListGet" + none + "0" + text("macalName", "lab"), R"("macalName":"lab")"),
        macal.del("list?macalName=lab", ofLab("ListDelete", "", "-1")), /* it is active */
        macal.post("deactivate", named("lab"), ofLab("Deactivate", "", "0")),
        macal.del("list?mymacalName=lab", ofLab("ListDelete", "", "0")),
        macal.del("list?macalName=", ""),
        macal.del("list", ""),
        macal.del("list?macalName=attic", about("attic", "ListDelete", "", "0")),
        macal.get("name", "NameGet" + none + "-1"),
        macal.post("list", "{}", about("", "ListCreate", "", "-22")),
        macal.post("list", "macalName=lab", ""),
        macal.post("activate", "{}", about("", "Activate", "", "-1")),
        macal.post("activate", "macalName=lab", ""),
        macal.post("deactivate", "{}", about("", "Deactivate", "", "-1")),
        macal.post("deactivate", "macalName=lab", ""),
    });
}

TEST_F(AccessList, keepsTheVrfAndTheInterval)
{
    const std::string get = "ListVrfGet" + text("vrfName", "") + " -> 0", guest = text("vrfName", "guest");
    const std::string getInterval = "DenyCounterIntervalGet interval=0 -> ", set = "DenyCounterIntervalSet interval=";
    expectAll({
        macal.put("list-vrf", R"({"vrfName":"guest"})", "ListVrfSet" + guest + " -> 0" + guest),
        macal.put("list-vrf", R"({"vrfName":"guests"})", "ListVrfSet" + text("vrfName", "guests") + " -> -22"),
        macal.put("list-vrf", "", ""),
        macal.get("list-vrf", get + guest, R"("vrfName":"guest")"),
        macal.put("deny-counter-interval", R"({"interval":90})", set + "90 -> 0"),
        macal.put("deny-counter-interval", R"({"interval":4294967297})", set + "4294967295 -> -22"),
        macal.get("deny-counter-interval", getInterval + "0 interval=90", R"("interval":90)"),
        macal.put("deny-counter-interval", "{}", set + "0 -> 0"),
        macal.put("deny-counter-interval", "", ""),
    });
    tell("fault " OP "DenyCounterIntervalGet code=-28");
    expect(macal.get("deny-counter-interval", getInterval + "-28"));
}

TEST_F(AccessList, answersQuestions)
{
    const std::string lab = text("macalName", "lab"), field = R"("ruleField":)";
    const struct { const char *method; std::string target, body, operation, sent, key; } rows[] = {
        {"POST", "is-any-list-created", "", "IsAnyListCreated", "", "isCreated"},
        {"POST", "is-any-list-activated", "", "IsAnyListActivated", "", "isActivated"},
        {"POST", "is-net-filter-tables-feature-supported", "", "IsNetFilterTablesFeatureSupported", "", "isSupported"},
        {"POST", "vrf-name-valid", R"({"vrfName":"lab"})", "VrfNameValid", text("vrfName", "lab"), "isValid"},
        {"POST", "rule-exists", body("4294967297"), "RuleExists", lab + " priority=4294967295", "isIndexExists"},
        {"POST", "is-field-configured", body("4294967297", field + "\"vlan\""), "IsFieldConfigured",
         lab + " priority=4294967295 field=8", "isConfigured"},
        {"PUT", "rule-is-service-port", query3.substr(1), "RuleIsServicePortSet", lab + " priority=3",
         "isRuleForServicePort"}, /* with a form-encoded body */
    };
    for (const auto &[method, target, sentBody, operation, sent, key] : rows) {
        std::string asked = operation + sent + " flag=0 -> ", name = sent.substr(0, sent.find(" priority"));
        for (auto [flag, answer] : {std::pair("1", "true"), {"2", "false"}}) { /* only 1 is yes */
            tell("fault " OP + operation + " code=0 times=1 flag=" + flag);
            expect(macal.row(method, target, sentBody, asked + "0" + name + " flag=" + flag, member(key, answer)));
        }
        tell("fault " OP + operation + " code=-28 times=1");
        expect(macal.row(method, target, sentBody, asked + "-28", ""));
    }
    expectAll({
        macal.post("vrf-name-valid", "vrfName=guest", ""),
        macal.post("rule-exists", "{}", about("", "RuleExists", "priority=0 flag=0", "-1")),
        macal.post("rule-exists", "", ""),
        macal.post("is-field-configured", R"({"ruleField":"Vlan"})",
                   about("", "IsFieldConfigured", "priority=0 field=1 flag=0", "-1")),
        macal.post("is-field-configured", "", ""),
        macal.put("rule-is-service-port" + query3, "{}", about("", "RuleIsServicePortSet", "priority=0 flag=0", "-1")),
    });
    const char *fields[] = {"service", "srcip", "srcip_mask", "vlan", "interface", "service_port", "tcp_udp_port"};
    for (int i = 0; i < 7; i++)
        expect(macal.post("is-field-configured", body("3", field + "\"" + fields[i] + "\""), "IsFieldConfigured" + lab +
                          " priority=3 field=" + std::to_string(1 << i) + " flag=0 -> 0" + lab + " flag=0",
                          R"("isConfigured":false)"));
}

TEST_F(AccessList, writesRules)
{
    const struct { const char *method; std::string target, query, more, operation, sent; } rows[] = {
        {"POST", "rule-action", "", R"("action":"permit")", "RuleActionAdd", " action=1"},
        {"POST", "rule-service", "", R"("service":"ssh")", "RuleServiceAdd", " service=5"},
        {"POST", "rule-src-ip-mask", "", R"("ipAddr":"192.168.1.2","mask":"255.255.255.0")", "RuleSrcIpMaskAdd",
         " ipAddr=192.168.1.2 mask=255.255.255.0"},
        {"POST", "rule-vlan", "?xvlanId=9&vlanId=1", "", "RuleVlanAdd", " vlanId=1"},
        {"POST", "rule-interface", "?xifNum=9&ifNum=7", "", "RuleInterfaceAdd", " ifNum=7"},
        {"POST", "rule-tcp-udp-port-number", "?xportNum=9&portNum=443", "", "RuleTcpUdpPortNumberAdd", " portNum=443"},
        {"PUT", "rule-service-port", "", R"("isServicePort":true)", "RuleServicePortSet", " isServicePort=1"},
    };
    for (const auto &[method, target, query, more, operation, sent] : rows) {
        std::string blank = std::regex_replace(sent, std::regex("[0-9]+"), "0");
        tell("fault " OP + operation + " code=0 times=1");
        expect(macal.row(method, target + query, body("4294967297", more),
                         ofLab(operation, "priority=4294967295" + sent, "0"), ""));
        expect(macal.row(method, target, "{}", about("", operation, "priority=0" + blank, "-1"), ""));
        expect(macal.row(method, target + query, "macalName=lab", "", ""));
    }
    expectAll({ /* what is no address is 0 */
        macal.post("rule-src-ip-mask", body("3", R"("ipAddr":"10.0.0.1.5","mask":"255.255.255.255")"),
                   ofLab("RuleSrcIpMaskAdd", "priority=3 ipAddr=0.0.0.0 mask=255.255.255.255", "0")),
        macal.post("rule-src-ip-mask", body("3", R"("ipAddr":17,"mask":"255.255.255.255 ")"),
                   ofLab("RuleSrcIpMaskAdd", "priority=3 ipAddr=0.0.0.0 mask=0.0.0.0", "0")),
        macal.put("rule-service-port", body("3", R"("isServicePort":1)"),
                  ofLab("RuleServicePortSet", "priority=3 isServicePort=0", "0")),
    });
}

TEST_F(AccessList, readsRules)
{
    auto expectReading = [&](Text target, Text operation, Text rule, Text blank, Text found, Text data) {
        tell("fault " OP + operation + " code=0 times=1 " + found);
        expect(macal.get(target + query3, ofLab(operation, rule + blank, "0 " + found), data));
        expect(macal.get(target, about("", operation, (rule.empty() ? "" : "priority=0 ") + blank, "-1")));
    };
    const std::string rule3 = "priority=3 ";
    const struct { std::string target, operation, rule, output, key, value; } rows[] = {
        {"rule-first", "RuleFirstGet", "", "priority=", "macalRulePrio", "4294967295"},
        {"rule-priority-index", "RulePriorityIndexGet", "", "priority=", "macalRulePrio", "4294967294"},
        {"rule-next", "RuleNextGet", rule3, "next=", "nextMacalRulePrio", "4294967293"},
        {"rule-vlan", "RuleVlanGet", rule3, "vlanId=", "vlanId", "4294967292"},
        {"rule-interface", "RuleInterfaceGet", rule3, "ifNum=", "ifNum", "4294967291"},
        {"rule-tcp-udp-port-number", "RuleTcpUdpPortNumberGet", rule3, "portNum=", "portNum", "4294967290"},
    };
    for (const auto &[target, operation, rule, output, key, value] : rows)
        expectReading(target, operation, rule, output + "0", output + value, member(key, value));
    expectReading("rule-src-ip-mask", "RuleSrcIpMaskGet", rule3, "ipAddr=0.0.0.0 mask=0.0.0.0", "ipAddr=192.168.1.2 mask=255.255.255.0",
                  R"("ipAddr":"192.168.1.2","mask":"255.255.255.0")");
    expectReading("service-port-rule-statistics", "ServicePortRuleStatisticsGet", rule3, "packets=0 bytes=0",
                  "packets=4294967289 bytes=4294967288", R"("packets":4294967289,"bytes":4294967288)");
    for (auto [code, word] : {std::pair("0", "\"deny\""), {"1", "\"permit\""}, {"2", "\"unknown\""}})
        expectReading("rule-action", "RuleActionGet", rule3, "action=0", std::string("action=") + code,
                      member("action", word));

    const char *services[] = {"none", "telnet", "http", "https", "snmp",        "ssh",
                              "tftp", "sntp",   "java", "ntp",   "custom_port", "unknown"};
    for (int code = 0; code < 12; code++) {
        std::string word = "\"service\":\"" + std::string(services[code]) + "\"", number = std::to_string(code);
        std::string sent = code >= 1 && code <= 10 ? number : "0"; /* what is no service is sent as 0, and refused */
        expectReading("rule-service", "RuleServiceGet", rule3, "service=0", "service=" + number, word);
        expect(macal.post("rule-service", body("3", word),
                          ofLab("RuleServiceAdd", "priority=3 service=" + sent, sent == "0" ? "-22" : "0")));
    }
}

TEST_F(AccessList, keepsRulesByPriority)
{
    auto add = [](Text sent, Text asked, Text chosen) {
        return macal.post("rule-entry", sent, ofLab("RuleEntryAdd", "priority=" + asked, "0 priority=" + chosen),
                          member("macalRulePrio", chosen));
    };
    expectAll({
        add(named("lab"), "65535", "4"), add(body("64"), "64", "64"), add(body("65535"), "65535", "1"),
        macal.post("rule-entry", body("3"), ofLab("RuleEntryAdd", "priority=3", "-24")),
        macal.post("rule-entry", body("4294967297"), ofLab("RuleEntryAdd", "priority=4294967295", "-22")),
        macal.post("rule-entry", "", ""),
        macal.del("rule?xmacalRulePrio=4&xmacalName=lab", ofLab("RuleRemove", "priority=4", "0")),
        macal.del("rule?macalRulePrio=4&macalName=lab", ofLab("RuleRemove", "priority=4", "-1")),
        macal.del("rule?macalName=lab", ""),
        macal.del("rule?macalName=&macalRulePrio=3", ""),
    });
}

TEST_F(AccessList, countsWhatRulesMeet)
{
    const std::string filtered = "StatsPacketsFilteredGet count=0 -> ";
    expect(macal.post("clear-service-port-statistics", "no JSON", "ClearServicePortStatistics -> 0"));
    tell("fault " OP "StatsPacketsFilteredGet code=0 times=1 count=4294967295");
    expect(macal.get("stats-packets-filtered", filtered + "0 count=4294967295", R"("filtPackets":4294967295)"));
    tell("fault * code=-28");
    expect(macal.get("stats-packets-filtered", filtered + "-28"));
    expect(macal.post("clear-service-port-statistics", "", "ClearServicePortStatistics -> -28"));
}
