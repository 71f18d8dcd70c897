/*
 * macal.cpp - /api/v2/switching/macal: the management access lists. A name identifies a list; its list and its priority
 * identify a rule. POST and PUT read a JSON body, GET and DELETE the parameter list; exceptions have a comment.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

/* The name of a list or a VRF. */
using Name = OpenText<256>;

enum : uint32_t { PRIORITY_UNSTATED = 65535 }; /* the client gives a new rule no priority */

static constexpr NamedCode actionRows[] = {{0, "deny"}, {1, "permit"}};
static constexpr NameTable actionNames = nameTable(actionRows);

static constexpr NamedCode serviceRows[] = {
    {0, "none"}, {1, "telnet"}, {2, "http"}, {3, "https"}, {4, "snmp"}, {5, "ssh"},
    {6, "tftp"}, {7, "sntp"},   {8, "java"}, {9, "ntp"},   {10, "custom_port"},
};
static constexpr NameTable serviceNames = nameTable(serviceRows);

enum : uint32_t { FIELD_SERVICE = 1 };

static constexpr NamedCode fieldRows[] = {
    {FIELD_SERVICE, "service"}, {2, "srcip"},         {4, "srcip_mask"},    {8, "vlan"},
    {16, "interface"},          {32, "service_port"}, {64, "tcp_udp_port"},
};
static constexpr NameTable fieldNames = nameTable(fieldRows);

/* The rule a request is about. */
struct Rule {
    Name list;
    uint32_t priority = 0;
};

static Rule ruleOfParams()
{
    Rule rule;
    readParams({textParam("macalName", rule.list), uintParam("macalRulePrio", &rule.priority)});
    return rule;
}

/* As readBody, for a body that has only the rule. */
static bool readRuleBody(Rule &rule)
{
    return readBody({textMember("macalName", rule.list), saturatedMember("macalRulePrio", &rule.priority)});
}

static void answerMacal(int rc, Data data)
{
    answerData("macal", openResult(rc), data);
}

/* Answers JSON true for a flag of exactly 1, else false. With a line end after a failure. */
static void answerQuestion(int rc, const char *key, uint32_t flag)
{
    answerDataOrOutcome("macal", openResult(rc), {boolean(key, flag == 1)});
}

/* Lists */

static void listCreate()
{
    Name list;
    if (!readBody({textMember("macalName", list)}))
        return;
    answerResult(rpcclt_openapiMacalListCreate(&openClient, bufferSized(list)));
}

static void listDelete()
{
    Name list;
    if (!readParams({textParam("macalName", list)}) || !list.bytes[0])
        return answerOutcome(ResultCode::INVALID_ARGUMENT);
    answerResult(rpcclt_openapiMacalListDelete(&openClient, bufferSized(list)));
}

/* The operation takes the VRF alone, without a list. */
static void listVrfSet()
{
    Name vrf;
    if (!readBody({textMember("vrfName", vrf)}))
        return;
    answerResult(rpcclt_openapiMacalListVrfSet(&openClient, bufferSized(vrf)));
}

static void listVrfGet()
{
    Name vrf;
    int rc = rpcclt_openapiMacalListVrfGet(&openClient, bufferSized(vrf));
    answerMacal(rc, {string("vrfName", vrf.bytes)});
}

static void activate()
{
    Name list;
    if (!readBody({textMember("macalName", list)}))
        return;
    answerResult(rpcclt_openapiMacalActivate(&openClient, bufferSized(list)));
}

static void deactivate()
{
    Name list;
    if (!readBody({textMember("macalName", list)}))
        return;
    answerResult(rpcclt_openapiMacalDeactivate(&openClient, bufferSized(list)));
}

/* Rules */

/* OpEN can change the priority that the client asked for. */
static void ruleEntryAdd()
{
    Rule rule;
    rule.priority = PRIORITY_UNSTATED;
    if (!readRuleBody(rule))
        return;
    int rc = rpcclt_openapiMacalRuleEntryAdd(&openClient, bufferSized(rule.list), &rule.priority);
    answerDataOrOutcome("macal", openResult(rc), {number("macalRulePrio", rule.priority)});
}

static void ruleRemove()
{
    Rule rule = ruleOfParams();
    if (!rule.list.bytes[0] || rule.priority == 0)
        return answerOutcome(ResultCode::INVALID_ARGUMENT);
    answerResult(rpcclt_openapiMacalRuleRemove(&openClient, bufferSized(rule.list), rule.priority));
}

static void ruleActionAdd()
{
    Rule rule;
    uint32_t action = 0;
    if (!readBody({textMember("macalName", rule.list), saturatedMember("macalRulePrio", &rule.priority),
                   codeMember("action", actionNames, &action)}))
        return;
    answerResult(rpcclt_openapiMacalRuleActionAdd(&openClient, bufferSized(rule.list), rule.priority, action));
}

static void ruleSrcIpMaskAdd()
{
    Rule rule;
    uint32_t address = 0;
    uint32_t mask = 0;
    if (!readBody({textMember("macalName", rule.list), saturatedMember("macalRulePrio", &rule.priority),
                   ipv4Member("ipAddr", &address), ipv4Member("mask", &mask)}))
        return;
    answerResult(
        rpcclt_openapiMacalRuleSrcIpMaskAdd(&openClient, bufferSized(rule.list), rule.priority, address, mask));
}

static void ruleServicePortSet()
{
    Rule rule;
    uint32_t flag = 0;
    if (!readBody({textMember("macalName", rule.list), saturatedMember("macalRulePrio", &rule.priority),
                   trueMember("isServicePort", &flag)}))
        return;
    answerResult(rpcclt_openapiMacalRuleServicePortSet(&openClient, bufferSized(rule.list), rule.priority, flag));
}

/* Only reads, although it is a PUT named "set", and reads a form-encoded body: established behaviour. */
static void ruleIsServicePortSet()
{
    Rule rule = ruleOfParams();
    uint32_t flag = 0;
    int rc = rpcclt_openapiMacalRuleIsServicePortSet(&openClient, bufferSized(rule.list), rule.priority, &flag);
    answerQuestion(rc, "isRuleForServicePort", flag);
}

static void ruleServiceAdd()
{
    Rule rule;
    uint32_t service = 0;
    if (!readBody({textMember("macalName", rule.list), saturatedMember("macalRulePrio", &rule.priority),
                   codeMember("service", serviceNames, &service)}))
        return;
    answerResult(rpcclt_openapiMacalRuleServiceAdd(&openClient, bufferSized(rule.list), rule.priority, service));
}

/* Readers and questions */

static void nameGet()
{
    Name list;
    int rc = rpcclt_openapiMacalNameGet(&openClient, bufferSized(list));
    answerMacal(rc, {string("macalName", list.bytes)});
}

static void activeListGet()
{
    Name list;
    int rc = rpcclt_openapiMacalActiveListGet(&openClient, bufferSized(list));
    answerMacal(rc, {string("macalName", list.bytes)});
}

static void ruleFirstGet()
{
    Name list;
    readParams({textParam("macalName", list)});
    uint32_t priority = 0;
    int rc = rpcclt_openapiMacalRuleFirstGet(&openClient, bufferSized(list), &priority);
    answerMacal(rc, {number("macalRulePrio", priority)});
}

static void ruleNextGet()
{
    Rule rule = ruleOfParams();
    uint32_t next = 0;
    int rc = rpcclt_openapiMacalRuleNextGet(&openClient, bufferSized(rule.list), rule.priority, &next);
    answerMacal(rc, {number("nextMacalRulePrio", next)});
}

static void ruleExists()
{
    Rule rule;
    if (!readRuleBody(rule))
        return;
    uint32_t flag = 0;
    int rc = rpcclt_openapiMacalRuleExists(&openClient, bufferSized(rule.list), rule.priority, &flag);
    answerQuestion(rc, "isIndexExists", flag);
}

static void ruleActionGet()
{
    Rule rule = ruleOfParams();
    uint32_t action = 0;
    int rc = rpcclt_openapiMacalRuleActionGet(&openClient, bufferSized(rule.list), rule.priority, &action);
    answerMacal(rc, {codeName("action", actionNames, action, "unknown")});
}

static void ruleSrcIpMaskGet()
{
    Rule rule = ruleOfParams();
    uint32_t address = 0;
    uint32_t mask = 0;
    int rc = rpcclt_openapiMacalRuleSrcIpMaskGet(&openClient, bufferSized(rule.list), rule.priority, &address, &mask);
    answerMacal(rc, {ipv4("ipAddr", address), ipv4("mask", mask)});
}

static void ruleInterfaceGet()
{
    Rule rule = ruleOfParams();
    uint32_t ifNum = 0;
    int rc = rpcclt_openapiMacalRuleInterfaceGet(&openClient, bufferSized(rule.list), rule.priority, &ifNum);
    answerMacal(rc, {number("ifNum", ifNum)});
}

static void ruleVlanGet()
{
    Rule rule = ruleOfParams();
    uint32_t vlanId = 0;
    int rc = rpcclt_openapiMacalRuleVlanGet(&openClient, bufferSized(rule.list), rule.priority, &vlanId);
    answerMacal(rc, {number("vlanId", vlanId)});
}

static void ruleServiceGet()
{
    Rule rule = ruleOfParams();
    uint32_t service = 0;
    int rc = rpcclt_openapiMacalRuleServiceGet(&openClient, bufferSized(rule.list), rule.priority, &service);
    answerMacal(rc, {codeName("service", serviceNames, service, "unknown")});
}

static void servicePortRuleStatisticsGet()
{
    Rule rule = ruleOfParams();
    uint32_t packets = 0;
    uint32_t bytes = 0;
    int rc = rpcclt_openapiMacalServicePortRuleStatisticsGet(&openClient, bufferSized(rule.list), rule.priority,
                                                             &packets, &bytes);
    answerMacal(rc, {number("packets", packets), number("bytes", bytes)});
}

static void ruleTcpUdpPortNumberGet()
{
    Rule rule = ruleOfParams();
    uint32_t portNum = 0;
    int rc = rpcclt_openapiMacalRuleTcpUdpPortNumberGet(&openClient, bufferSized(rule.list), rule.priority, &portNum);
    answerMacal(rc, {number("portNum", portNum)});
}

static void isFieldConfigured()
{
    Rule rule;
    uint32_t field = FIELD_SERVICE;
    if (!readBody({textMember("macalName", rule.list), saturatedMember("macalRulePrio", &rule.priority),
                   codeMember("ruleField", fieldNames, &field)}))
        return;
    uint32_t flag = 0;
    int rc = rpcclt_openapiMacalIsFieldConfigured(&openClient, bufferSized(rule.list), rule.priority, field, &flag);
    answerQuestion(rc, "isConfigured", flag);
}

static void isAnyListCreated()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMacalIsAnyListCreated(&openClient, &flag);
    answerQuestion(rc, "isCreated", flag);
}

static void isAnyListActivated()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMacalIsAnyListActivated(&openClient, &flag);
    answerQuestion(rc, "isActivated", flag);
}

static void statsPacketsFilteredGet()
{
    uint32_t count = 0;
    int rc = rpcclt_openapiMacalStatsPacketsFilteredGet(&openClient, &count);
    answerMacal(rc, {number("filtPackets", count)});
}

static void denyCounterIntervalGet()
{
    uint32_t interval = 0;
    int rc = rpcclt_openapiMacalDenyCounterIntervalGet(&openClient, &interval);
    answerMacal(rc, {number("interval", interval)});
}

static void denyCounterIntervalSet()
{
    uint32_t interval = 0;
    if (!readBody({saturatedMember("interval", &interval)}))
        return;
    answerResult(rpcclt_openapiMacalDenyCounterIntervalSet(&openClient, interval));
}

static void rulePriorityIndexGet()
{
    Name list;
    readParams({textParam("macalName", list)});
    uint32_t priority = 0;
    int rc = rpcclt_openapiMacalRulePriorityIndexGet(&openClient, bufferSized(list), &priority);
    answerMacal(rc, {number("macalRulePrio", priority)});
}

static void vrfNameValid()
{
    Name vrf;
    if (!readBody({textMember("vrfName", vrf)}))
        return;
    uint32_t flag = 0;
    int rc = rpcclt_openapiMacalVrfNameValid(&openClient, bufferSized(vrf), &flag);
    answerQuestion(rc, "isValid", flag);
}

static void clearServicePortStatistics()
{
    answerResult(rpcclt_openapiMacalClearServicePortStatistics(&openClient));
}

static void isNetFilterTablesFeatureSupported()
{
    uint32_t flag = 0;
    int rc = rpcclt_openapiMacalIsNetFilterTablesFeatureSupported(&openClient, &flag);
    answerQuestion(rc, "isSupported", flag);
}

/* Match fields: the query string has the value, the body the rule */

static void ruleInterfaceAdd()
{
    uint32_t ifNum = queryUintExact("ifNum");
    Rule rule;
    if (!readRuleBody(rule))
        return;
    answerResult(rpcclt_openapiMacalRuleInterfaceAdd(&openClient, bufferSized(rule.list), rule.priority, ifNum));
}

static void ruleVlanAdd()
{
    uint32_t vlanId = queryUintExact("vlanId");
    Rule rule;
    if (!readRuleBody(rule))
        return;
    answerResult(rpcclt_openapiMacalRuleVlanAdd(&openClient, bufferSized(rule.list), rule.priority, vlanId));
}

static void ruleTcpUdpPortNumberAdd()
{
    uint32_t portNum = queryUintExact("portNum");
    Rule rule;
    if (!readRuleBody(rule))
        return;
    answerResult(
        rpcclt_openapiMacalRuleTcpUdpPortNumberAdd(&openClient, bufferSized(rule.list), rule.priority, portNum));
}

void addMacalRoutes(RouteDir *dir)
{
    addRoute(dir, "list", HTTP_POST, listCreate);
    addRoute(dir, "list", HTTP_DELETE, listDelete);
    addRoute(dir, "list-vrf", HTTP_PUT, listVrfSet);
    addRoute(dir, "list-vrf", HTTP_GET, listVrfGet);
    addRoute(dir, "activate", HTTP_POST, activate);
    addRoute(dir, "deactivate", HTTP_POST, deactivate);
    addRoute(dir, "rule-entry", HTTP_POST, ruleEntryAdd);
    addRoute(dir, "rule", HTTP_DELETE, ruleRemove);
    addRoute(dir, "rule-action", HTTP_POST, ruleActionAdd);
    addRoute(dir, "rule-src-ip-mask", HTTP_POST, ruleSrcIpMaskAdd);
    addRoute(dir, "rule-service-port", HTTP_PUT, ruleServicePortSet);
    addRoute(dir, "rule-is-service-port", HTTP_PUT, ruleIsServicePortSet);
    addRoute(dir, "rule-service", HTTP_POST, ruleServiceAdd);
    addRoute(dir, "name", HTTP_GET, nameGet);
    addRoute(dir, "active-list", HTTP_GET, activeListGet);
    addRoute(dir, "rule-first", HTTP_GET, ruleFirstGet);
    addRoute(dir, "rule-next", HTTP_GET, ruleNextGet);
    addRoute(dir, "rule-exists", HTTP_POST, ruleExists);
    addRoute(dir, "rule-action", HTTP_GET, ruleActionGet);
    addRoute(dir, "rule-src-ip-mask", HTTP_GET, ruleSrcIpMaskGet);
    addRoute(dir, "rule-interface", HTTP_GET, ruleInterfaceGet);
    addRoute(dir, "rule-vlan", HTTP_GET, ruleVlanGet);
    addRoute(dir, "rule-service", HTTP_GET, ruleServiceGet);
    addRoute(dir, "service-port-rule-statistics", HTTP_GET, servicePortRuleStatisticsGet);
    addRoute(dir, "rule-tcp-udp-port-number", HTTP_GET, ruleTcpUdpPortNumberGet);
    addRoute(dir, "is-field-configured", HTTP_POST, isFieldConfigured);
    addRoute(dir, "is-any-list-created", HTTP_POST, isAnyListCreated);
    addRoute(dir, "is-any-list-activated", HTTP_POST, isAnyListActivated);
    addRoute(dir, "stats-packets-filtered", HTTP_GET, statsPacketsFilteredGet);
    addRoute(dir, "deny-counter-interval", HTTP_GET, denyCounterIntervalGet);
    addRoute(dir, "deny-counter-interval", HTTP_PUT, denyCounterIntervalSet);
    addRoute(dir, "rule-priority-index", HTTP_GET, rulePriorityIndexGet);
    addRoute(dir, "vrf-name-valid", HTTP_POST, vrfNameValid);
    addRoute(dir, "clear-service-port-statistics", HTTP_POST, clearServicePortStatistics);
    addRoute(dir, "is-net-filter-tables-feature-supported", HTTP_POST, isNetFilterTablesFeatureSupported);
    addRoute(dir, "rule-interface", HTTP_POST, ruleInterfaceAdd);
    addRoute(dir, "rule-vlan", HTTP_POST, ruleVlanAdd);
    addRoute(dir, "rule-tcp-udp-port-number", HTTP_POST, ruleTcpUdpPortNumberAdd);
}
