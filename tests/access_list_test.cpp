/*
 * access_list_test.cpp - the management access lists through the real program.
 */
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

/* What is asked about a list: its name is sent, and comes back with an outcome that begins with 0. */
static std::string about(Text list, Text operation, Text more,
                         Text outcome)
{
    std::string name = " macalName=[256]\"" + list + "\"";
    return operation + name + (more.empty() ? "" : " " + more) + " -> " +
           (outcome[0] == '0' ? "0" + name + outcome.substr(1) : outcome);
}

static std::string ofLab(Text operation, Text more, Text outcome)
{
    return about("lab", operation, more, outcome);
}

static std::string ofRule3(Text operation, Text more, Text outcome)
{
    return ofLab(operation, "priority=3" + (more.empty() ? "" : " " + more), outcome);
}

static const std::string query3 = "?macalName=lab&macalRulePrio=3";

static std::string body(Text priority, Text more = "")
{
    return R"({"macalName":"lab","macalRulePrio":)" + priority + (more.empty() ? "" : "," + more) + "}";
}

static std::string named(Text list)
{
    return "{\"macalName\":\"" + list + "\"}";
}

/* The answer to a question: only a flag of 1 is a yes. */
static std::string yes(Text key, Text flag)
{
    return "\"" + key + "\":" + (flag == "1" ? "true" : "false");
}

TEST_F(AccessList, keepsLists)
{
    const std::string longName(300, 'n');
    const std::string nameGet = R"(NameGet macalName=[256]"" -> )";
    const std::string activeGet = R"(ActiveListGet macalName=[256]"" -> )";
    const struct { std::string target, operation, key; } questions[] = {
        {"is-any-list-created", "IsAnyListCreated", "isCreated"},
        {"is-any-list-activated", "IsAnyListActivated", "isActivated"},
        {"is-net-filter-tables-feature-supported", "IsNetFilterTablesFeatureSupported", "isSupported"},
    };
    auto is = [&](int question, Text flag) {
        const auto &[target, operation, key] = questions[question];
        return macal.post(target, "", operation + " flag=0 -> 0 flag=" + flag, yes(key, flag));
    };
    expectAll({
        macal.post("list", R"({"MACALNAME":"attic"})", about("attic", "ListCreate", "", "0")),
        macal.post("list", named("lab"), ofLab("ListCreate", "", "-24")),
        macal.post("list", R"({"macalName":5})", about("", "ListCreate", "", "-22")),
        macal.post("list", named(longName), about(longName.substr(0, 255), "ListCreate", "", "-22")),
        macal.post("list", "macalName=x", ""),
        macal.get("name", nameGet + R"(0 macalName=[256]"attic")", R"("macalName":"attic")"),
        is(0, "1"), is(1, "0"), is(2, "1"),
        macal.get("active-list", activeGet + "-1"),
        macal.post("activate", named("lab"), ofLab("Activate", "", "0")),
        macal.post("activate", named("cellar"), about("cellar", "Activate", "", "-1")),
        macal.post("activate", "", ""),
        is(1, "1"),
        macal.get("active-list", activeGet + R"(0 macalName=[256]"lab")", R"("macalName":"lab")"),
        macal.del("list?macalName=lab", ofLab("ListDelete", "", "-1")), /* it is active */
        macal.post("activate", named("attic"), about("attic", "Activate", "", "0")),
        macal.del("list?mymacalName=lab", ofLab("ListDelete", "", "0")),
        macal.del("list?macalName=lab", ofLab("ListDelete", "", "-1")),
        macal.del("list?macalName=", ""),
        macal.del("list", ""),
        macal.post("deactivate", named("lab"), ofLab("Deactivate", "", "-1")),
        macal.post("deactivate", named("attic"), about("attic", "Deactivate", "", "0")),
        macal.post("deactivate", "[", ""),
        macal.del("list?macalName=attic", about("attic", "ListDelete", "", "0")),
        is(0, "0"),
        macal.get("name", nameGet + "-1"),
    });
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(send("POST", "macal/list", named("list" + std::to_string(i))), successLine());
    EXPECT_EQ(send("POST", "macal/list", named("one more")), failureLine(10000));

    for (int i = 0; i < 3; i++) {
        tell("fault " OP + questions[i].operation + " code=0 flag=2 times=1");
        expect(is(i, "2"));
        tell("fault " OP + questions[i].operation + " code=-28");
        expect(macal.post(questions[i].target, "", questions[i].operation + " flag=0 -> -28"));
    }
    tell("reset");
    expect(is(0, "0"));
}

TEST_F(AccessList, keepsTheVrfAndTheInterval)
{
    auto vrf = [](Text name) { return "vrfName=[256]\"" + name + "\""; };
    auto valid = [&](Text name, Text flag) {
        std::string asked = "VrfNameValid " + vrf(name) + " flag=0 -> 0 " + vrf(name) + " flag=" + flag;
        return macal.post("vrf-name-valid", "{\"vrfName\":\"" + name + "\"}", asked, yes("isValid", flag));
    };
    auto interval = [](Text value) {
        return macal.get("deny-counter-interval", "DenyCounterIntervalGet interval=0 -> 0 interval=" + value,
                         member("interval", value));
    };
    const std::string set = "DenyCounterIntervalSet interval=";
    tell("fault " OP "VrfNameValid code=-22 times=1");
    expect(macal.post("vrf-name-valid", R"({"vrfName":"lab"})", "VrfNameValid " + vrf("lab") + " flag=0 -> -22"));
    expectAll({
        macal.get("list-vrf", "ListVrfGet " + vrf("") + " -> 0 " + vrf(""), R"("vrfName":"")"),
        macal.put("list-vrf", R"({"vrfName":"guest"})", "ListVrfSet " + vrf("guest") + " -> 0 " + vrf("guest")),
        macal.put("list-vrf", R"({"vrfName":"guests"})", "ListVrfSet " + vrf("guests") + " -> -22"),
        macal.put("list-vrf", "", ""),
        macal.get("list-vrf", "ListVrfGet " + vrf("") + " -> 0 " + vrf("guest"), R"("vrfName":"guest")"),
        valid("management", "1"), valid("guests", "0"),
        macal.post("vrf-name-valid", "vrfName=guest", ""),
        interval("60"),
        macal.put("deny-counter-interval", R"({"interval":90.9})", set + "90 -> 0"),
        macal.put("deny-counter-interval", R"({"interval":1e20})", set + "4294967295 -> -22"),
        interval("90"),
        macal.put("deny-counter-interval", R"({"interval":-7})", set + "0 -> 0"),
        macal.put("deny-counter-interval", R"({"interval":"7"})", set + "0 -> 0"),
        macal.put("deny-counter-interval", "{}", set + "0 -> 0"),
        macal.put("deny-counter-interval", "", ""),
    });
}

TEST_F(AccessList, keepsRulesByPriority)
{
    auto add = [](Text sent, Text asked, Text chosen) {
        return macal.post("rule-entry", sent, ofLab("RuleEntryAdd", "priority=" + asked, "0 priority=" + chosen),
                          member("macalRulePrio", chosen));
    };
    auto exists = [](Text priority, Text flag) {
        std::string asked = ofLab("RuleExists", "priority=" + priority + " flag=0", "0 flag=" + flag);
        return macal.post("rule-exists", body(priority), asked, yes("isIndexExists", flag));
    };
    auto next = [](Text priority, Text found) {
        return macal.get("rule-next?macalName=lab&macalRulePrio=" + priority,
                         ofLab("RuleNextGet", "priority=" + priority + " next=0", "0 next=" + found),
                         member("nextMacalRulePrio", found));
    };
    auto free = [](Text found) {
        std::string asked = ofLab("RulePriorityIndexGet", "priority=0", "0 priority=" + found);
        return macal.get("rule-priority-index?macalName=lab", asked, member("macalRulePrio", found));
    };
    expectAll({
        free("4"), add(named("lab"), "65535", "4"), add(body("64"), "64", "64"),
        free("1"), add(body("65535"), "65535", "1"), free("2"),
        macal.post("rule-entry", body("3"), ofLab("RuleEntryAdd", "priority=3", "-24")),
        macal.post("rule-entry", body("65"), ofLab("RuleEntryAdd", "priority=65", "-22")),
        macal.post("rule-entry", body("\"2\""), ofLab("RuleEntryAdd", "priority=0", "-22")),
        macal.post("rule-entry", "{}", about("", "RuleEntryAdd", "priority=65535", "-1")),
        macal.post("rule-entry", "", ""),
        macal.get("rule-first?macalName=lab", ofLab("RuleFirstGet", "priority=0", "0 priority=1"),
                  R"("macalRulePrio":1)"),
        next("1", "3"), next("3", "4"), next("4", "64"), next("0", "1"),
        macal.get("rule-next?macalName=lab&macalRulePrio=64", ofLab("RuleNextGet", "priority=64 next=0", "-1")),
        exists("4", "1"), exists("5", "0"),
        macal.post("rule-exists", named("attic"), about("attic", "RuleExists", "priority=0 flag=0", "-1")),
        macal.post("rule-exists", "", ""),
        macal.del("rule?macalRulePrio=4&macalName=lab", ofLab("RuleRemove", "priority=4", "0")),
        macal.del("rule?macalRulePrio=4&macalName=lab", ofLab("RuleRemove", "priority=4", "-1")),
        exists("4", "0"), next("3", "64"),
        macal.del("rule?macalName=lab&macalRulePrio=0", ""),
        macal.del("rule?macalName=lab", ""),
        macal.del("rule?macalName=&macalRulePrio=3", ""),
        macal.get("rule-first", about("", "RuleFirstGet", "priority=0", "-1")),
        macal.get("rule-priority-index", about("", "RulePriorityIndexGet", "priority=0", "-1")),
    });
    for (int i = 3; i <= 63; i++) /* 2 and 4 to 63 are left */
        EXPECT_EQ(send("POST", "macal/rule-entry", named("lab")),
                  success("\"macal\":{\"macalRulePrio\":" + std::to_string(i == 3 ? 2 : i) + "}"));
    EXPECT_EQ(send("POST", "macal/rule-entry", named("lab")), failureLine(10000));
    EXPECT_EQ(send("GET", "macal/rule-priority-index?macalName=lab"), failure(10000));
    send("DELETE", "macal/list?macalName=lab");
    send("POST", "macal/list", named("lab"));
    EXPECT_EQ(send("GET", "macal/rule-first?macalName=lab"), failure(10000));
}

TEST_F(AccessList, matchesByFields)
{
    /* A field: how it is added, what is sent then and read later, and how it is asked for. */
    const struct { std::string target, more, operation, sent, unread, data, word, bit; } rows[] = {
        {"rule-service", R"("service":"ssh")", "RuleService", "service=5", "service=0", R"("service":"ssh")", "service",
         "1"},
        {"rule-src-ip-mask", R"("ipAddr":"192.168.1.2","mask":"255.255.255.0")", "RuleSrcIpMask",
         "ipAddr=33663168 mask=16777215", "ipAddr=0 mask=0", R"("ipAddr":"192.168.1.2","mask":"255.255.255.0")",
         "srcip_mask", "4"},
        {"rule-vlan?xvlanId=9&vlanId=1", "", "RuleVlan", "vlanId=1", "vlanId=0", R"("vlanId":1)", "vlan", "8"},
        {"rule-interface?a=1&ifNum=7", "", "RuleInterface", "ifNum=7", "ifNum=0", R"("ifNum":7)", "interface", "16"},
        {"rule-tcp-udp-port-number?portNum=8443", "", "RuleTcpUdpPortNumber", "portNum=8443", "portNum=0",
         R"("portNum":8443)", "tcp_udp_port", "64"},
    };
    auto configured = [](Text word, Text bit, Text flag) {
        std::string asked = ofRule3("IsFieldConfigured", "field=" + bit + " flag=0", "0 flag=" + flag);
        return macal.post("is-field-configured", body("3", "\"ruleField\":" + word), asked, yes("isConfigured", flag));
    };
    for (const auto &[target, more, operation, sent, unread, data, word, bit] : rows) {
        std::string endpoint = target.substr(0, target.find('?')), quoted = "\"" + word + "\"";
        expectAll({
            configured(quoted, bit, "0"),
            macal.get(endpoint + query3, ofRule3(operation + "Get", unread, "-1")),
            macal.post(target, body("3", more), ofRule3(operation + "Add", sent, "0")),
            macal.get(endpoint + query3, ofRule3(operation + "Get", unread, "0 " + sent), data),
            configured(quoted, bit, "1"),
            macal.post(target, "", ""),
            macal.get(endpoint, about("", operation + "Get", "priority=0 " + unread, "-1")),
        });
    }
    /* one is asked with a form-encoded body */
    auto isServicePort = [](Text flag) {
        std::string asked = ofRule3("RuleIsServicePortSet", "flag=0", "0 flag=" + flag);
        return macal.put("rule-is-service-port", query3.substr(1), asked, yes("isRuleForServicePort", flag));
    };
    auto setServicePort = [](Text value, Text flag) {
        return macal.put("rule-service-port", body("3", member("isServicePort", value)),
                         ofRule3("RuleServicePortSet", "isServicePort=" + flag, "0"));
    };
    expectAll({
        configured("\"srcip\"", "2", "1"), configured("\"service_port\"", "32", "0"),
        configured("\"Vlan\"", "1", "1"), configured("8", "1", "1"),
        macal.post("is-field-configured", named("lab"), ofLab("IsFieldConfigured", "priority=0 field=1 flag=0", "-1")),
        macal.post("is-field-configured", "", ""),
        setServicePort("true", "1"), configured("\"service_port\"", "32", "1"), isServicePort("1"),
        setServicePort("1", "0"), isServicePort("0"),
        macal.put("rule-is-service-port" + query3, body("3"),
                  about("", "RuleIsServicePortSet", "priority=0 flag=0", "-1")),
        macal.put("rule-service-port", "{}", about("", "RuleServicePortSet", "priority=0 isServicePort=0", "-1")),
        macal.put("rule-service-port", "macalName=lab", ""),
    });
    tell("fault " OP "RuleIsServicePortSet code=0 flag=2");
    tell("fault " OP "RuleExists code=0 flag=2");
    tell("fault " OP "IsFieldConfigured code=0 flag=2");
    expectAll({
        isServicePort("2"), configured("\"vlan\"", "8", "2"),
        macal.post("rule-exists", body("3"), ofRule3("RuleExists", "flag=0", "0 flag=2"), yes("isIndexExists", "2")),
    });
}

TEST_F(AccessList, permitsServices)
{
    auto action = [](Text code, Text word) {
        return macal.get("rule-action" + query3, ofRule3("RuleActionGet", "action=0", "0 action=" + code),
                         "\"action\":\"" + word + "\"");
    };
    expectAll({
        action("0", "deny"),
        macal.post("rule-action", body("3", R"("ACTION":"permit")"), ofRule3("RuleActionAdd", "action=1", "0")),
        action("1", "permit"),
        macal.post("rule-action", body("3", R"("action":"PERMIT")"), ofRule3("RuleActionAdd", "action=0", "0")),
        macal.post("rule-action", body("3", R"("action":1)"), ofRule3("RuleActionAdd", "action=0", "0")),
        macal.post("rule-action", "{}", about("", "RuleActionAdd", "priority=0 action=0", "-1")),
        macal.post("rule-action", "", ""),
        macal.get("rule-action?macalName=lab", ofLab("RuleActionGet", "priority=0 action=0", "-1")),
    });
    tell("fault " OP "RuleActionGet code=0 action=2");
    expect(action("2", "unknown"));

    const char *services[] = {"none", "telnet", "http", "https", "snmp",        "ssh",
                              "tftp", "sntp",   "java", "ntp",   "custom_port", "unknown"};
    for (int code = 0; code < 12; code++) {
        std::string word = "\"service\":\"" + std::string(services[code]) + "\"", number = std::to_string(code);
        bool known = code >= 1 && code <= 10; /* what is no service is sent as 0, and refused */
        expect(macal.post("rule-service", body("3", word),
                          ofRule3("RuleServiceAdd", "service=" + (known ? number : "0"), known ? "0" : "-22")));
        tell("fault " OP "RuleServiceGet code=0 service=" + number);
        expect(macal.get("rule-service" + query3, ofRule3("RuleServiceGet", "service=0", "0 service=" + number), word));
    }
}

TEST_F(AccessList, refusesWhatNoFieldCanBe)
{
    auto source = [](Text members, Text sent, Text outcome) {
        return macal.post("rule-src-ip-mask", body("3", members), ofRule3("RuleSrcIpMaskAdd", sent, outcome));
    };
    expectAll({
        source(R"("ipAddr":"10.0.0.1","mask":"255.0.255.0")", "ipAddr=16777226 mask=16711935", "-22"),
        source(R"("ipAddr":"10.0.0.1.5","mask":"255.255.255.255 ")", "ipAddr=0 mask=0", "0"),
        source(R"("ipAddr":17,"mask":"255.255.255.255")", "ipAddr=0 mask=4294967295", "0"),
        source("", "ipAddr=0 mask=0", "0"),
        macal.get("rule-src-ip-mask" + query3, ofRule3("RuleSrcIpMaskGet", "ipAddr=0 mask=0", "0 ipAddr=0 mask=0"),
                  R"("ipAddr":"0.0.0.0","mask":"0.0.0.0")"),
        macal.post("rule-interface?xifNum=5", body("3", R"("ifNum":5)"), ofRule3("RuleInterfaceAdd", "ifNum=0", "-22")),
        macal.post("rule-vlan?vlanId=4095", body("3"), ofRule3("RuleVlanAdd", "vlanId=4095", "-22")),
        macal.post("rule-tcp-udp-port-number?portNum=65536", body("3"),
                   ofRule3("RuleTcpUdpPortNumberAdd", "portNum=65536", "-22")),
        macal.post("rule-vlan?vlanId=1", body("4294967297"),
                   ofLab("RuleVlanAdd", "priority=4294967295 vlanId=1", "-1")),
    });
}

TEST_F(AccessList, countsWhatRulesMeet)
{
    auto filtered = [](Text count) {
        return macal.get("stats-packets-filtered", "StatsPacketsFilteredGet count=0 -> 0 count=" + count,
                         member("filtPackets", count));
    };
    auto statistics = [](Text packets, Text bytes) {
        std::string counted = "0 packets=" + packets + " bytes=" + bytes;
        return macal.get("service-port-rule-statistics" + query3,
                         ofRule3("ServicePortRuleStatisticsGet", "packets=0 bytes=0", counted),
                         member("packets", packets) + "," + member("bytes", bytes));
    };
    send("POST", "macal/rule-entry", body("5"));
    send("POST", "macal/rule-action", body("5", R"("action":"permit")"));
    expect(filtered("0"));
    send("POST", "macal/activate", named("lab"));
    expect(filtered("13")); /* what rule 3 denied, not what rule 5 let in */
    expect(macal.get("service-port-rule-statistics" + query3,
                     ofRule3("ServicePortRuleStatisticsGet", "packets=0 bytes=0", "-1")));
    send("PUT", "macal/rule-service-port", body("3", R"("isServicePort":true)"));
    expectAll({
        statistics("13", "832"),
        macal.post("clear-service-port-statistics", "no JSON", "ClearServicePortStatistics -> 0"),
        statistics("0", "0"), filtered("13"),
    });
    tell("fault " OP "ServicePortRuleStatisticsGet code=0 packets=4294967295 bytes=4294967294");
    tell("fault " OP "StatsPacketsFilteredGet code=0 count=4294967293");
    expectAll({statistics("4294967295", "4294967294"), filtered("4294967293")});
}
