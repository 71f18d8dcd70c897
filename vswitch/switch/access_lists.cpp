/*
 * access_lists.cpp - management access lists: which packets to the switch itself are permitted, which denied?
 */
#include <arpa/inet.h>

#include <algorithm>
#include <map>

#include "vswitch/base/operations.h"
#include "vswitch/switch/families.h"
#include "vswitch/switch/settings.h"
#include "vswitch/switch/state.h"

enum : uint32_t { LISTS = 8, LIST_NAME_LENGTH = 32, ANY_PRIORITY = 65535 };

/* A rule matches packets that match all its fields. */
struct Rule {
    uint32_t action = DENY;
    std::map<uint32_t, uint32_t> fields; /* values by RuleField */
    uint64_t packets = 0, bytes = 0;
};
using Rules = std::map<uint32_t, Rule>; /* by priority, from 1 */

static std::map<std::string, Rules> lists;
static std::string activeList, vrf; /* empty: none, the default VRF */
static uint64_t denied, reported;   /* packets: until now, at the last report */
static uint64_t countedUntil, nextReport; /* uptime in seconds */

/* Seconds between two reports of the denied packets; 0: no reports. */
static Setting denyInterval = {.name = "MacalDenyCounterInterval", .initial = 60, .settable = true};
static uint64_t intervalInForce;

static Rules *rulesOf(const OpenBufferDesc *name)
{
    auto found = lists.find(textOf(name));
    return found == lists.end() ? nullptr : &found->second;
}

static Rule *ruleOf(const OpenBufferDesc *name, uint32_t priority)
{
    Rules *rules = rulesOf(name);
    if (!rules || !rules->contains(priority))
        return nullptr;
    return &rules->at(priority);
}

/* Lists */

static int createList(OpenBufferDesc *name)
{
    std::string text = textOf(name);
    if (text.empty() || text.size() > LIST_NAME_LENGTH)
        return OPEN_BAD_ARGUMENT;
    if (lists.contains(text))
        return OPEN_EXISTS;
    if (lists.size() == LISTS)
        return OPEN_FAILED;
    lists[text] = {};
    return OPEN_OK;
}

/* The active list cannot be deleted. */
static int deleteList(OpenBufferDesc *name)
{
    return textOf(name) != activeList && lists.erase(textOf(name)) ? OPEN_OK : OPEN_FAILED;
}

/* Replaces the active list. */
static int activateList(OpenBufferDesc *name)
{
    if (!rulesOf(name))
        return OPEN_FAILED;
    activeList = textOf(name);
    return OPEN_OK;
}

static int deactivateList(OpenBufferDesc *name)
{
    if (activeList.empty() || textOf(name) != activeList)
        return OPEN_FAILED;
    activeList.clear();
    return OPEN_OK;
}

/* Rules */

/* The priority after the last rule, else the lowest that is free; 0 when all are taken. */
static uint32_t nextFreePriority(const Rules &rules)
{
    uint32_t priority = rules.empty() ? 1 : rules.rbegin()->first + 1;
    if (RULE_PRIORITY.contains(priority))
        return priority;
    priority = 1;
    while (rules.contains(priority))
        priority++;
    return RULE_PRIORITY.contains(priority) ? priority : 0;
}

static int addRule(OpenBufferDesc *name, uint32_t *priority)
{
    Rules *rules = rulesOf(name);
    if (!rules)
        return OPEN_FAILED;
    if (*priority == ANY_PRIORITY) {
        *priority = nextFreePriority(*rules);
        if (!*priority)
            return OPEN_FAILED;
    }
    if (!RULE_PRIORITY.contains(*priority))
        return OPEN_BAD_ARGUMENT;
    if (rules->contains(*priority))
        return OPEN_EXISTS;
    (*rules)[*priority] = {};
    return OPEN_OK;
}

static int removeRule(OpenBufferDesc *name, uint32_t priority)
{
    Rules *rules = rulesOf(name);
    return rules && rules->erase(priority) ? OPEN_OK : OPEN_FAILED;
}

/* The first rule after `priority`; 0 starts a walk. */
static int ruleAfter(OpenBufferDesc *name, uint32_t priority, uint32_t *next)
{
    Rules *rules = rulesOf(name);
    if (!rules || rules->upper_bound(priority) == rules->end())
        return OPEN_FAILED;
    return store(rules->upper_bound(priority)->first, next);
}

/* Fields of a rule; a second value replaces the first */

static int setField(OpenBufferDesc *name, uint32_t priority, RuleField field, bool valid, uint32_t value)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule)
        return OPEN_FAILED;
    if (!valid)
        return OPEN_BAD_ARGUMENT;
    rule->fields[field] = value;
    return OPEN_OK;
}

static int readField(OpenBufferDesc *name, uint32_t priority, RuleField field, uint32_t *value)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule || !rule->fields.contains(field))
        return OPEN_FAILED;
    return store(rule->fields.at(field), value);
}

template <RuleField F> static int fieldGet(OpenBufferDesc *name, uint32_t priority, uint32_t *value)
{
    return readField(name, priority, F, value);
}

/* In network order: one bits, then zero bits. */
static bool isMask(uint32_t mask)
{
    uint32_t hostBits = ~ntohl(mask);
    return (hostBits & (hostBits + 1)) == 0;
}

static int addSource(OpenBufferDesc *name, uint32_t priority, uint32_t address, uint32_t mask)
{
    int rc = setField(name, priority, FIELD_SOURCE, isMask(mask), address);
    return rc == OPEN_OK ? setField(name, priority, FIELD_SOURCE_MASK, true, mask) : rc;
}

static int getSource(OpenBufferDesc *name, uint32_t priority, uint32_t *address, uint32_t *mask)
{
    int rc = readField(name, priority, FIELD_SOURCE, address);
    return rc == OPEN_OK ? readField(name, priority, FIELD_SOURCE_MASK, mask) : rc;
}

/* Flag 0 removes the field. */
static int setServicePort(OpenBufferDesc *name, uint32_t priority, uint32_t flag)
{
    int rc = setField(name, priority, FIELD_SERVICE_PORT, flag <= 1, flag);
    if (rc == OPEN_OK && !flag)
        ruleOf(name, priority)->fields.erase(FIELD_SERVICE_PORT);
    return rc;
}

static int isFieldConfigured(OpenBufferDesc *name, uint32_t priority, uint32_t field, uint32_t *flag)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule)
        return OPEN_FAILED;
    if (field < FIELD_SERVICE || field > FIELD_TCP_UDP_PORT || (field & (field - 1)))
        return OPEN_BAD_ARGUMENT;
    return store(rule->fields.contains(field), flag);
}

static void registerFields()
{
    DO(rpcclt_openapiMacalRuleActionAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t action) -> int {
        Rule *rule = ruleOf(name, priority);
        if (!rule)
            return OPEN_FAILED;
        if (action > PERMIT)
            return OPEN_BAD_ARGUMENT;
        rule->action = action;
        return OPEN_OK;
    });
    ASK(rpcclt_openapiMacalRuleActionGet, [](OpenBufferDesc *name, uint32_t priority, uint32_t *action) -> int {
        Rule *rule = ruleOf(name, priority);
        return rule ? store(rule->action, action) : (int)OPEN_FAILED;
    });
    DO(rpcclt_openapiMacalRuleServiceAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t service) {
        return setField(name, priority, FIELD_SERVICE, service >= TELNET && service <= CUSTOM_PORT, service);
    });
    ASK(rpcclt_openapiMacalRuleServiceGet, fieldGet<FIELD_SERVICE>);
    DO(rpcclt_openapiMacalRuleSrcIpMaskAdd, addSource);
    ASK(rpcclt_openapiMacalRuleSrcIpMaskGet, getSource);
    DO(rpcclt_openapiMacalRuleVlanAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t vlan) {
        return setField(name, priority, FIELD_VLAN, vlanIsConfigured(vlan), vlan);
    });
    ASK(rpcclt_openapiMacalRuleVlanGet, fieldGet<FIELD_VLAN>);
    DO(rpcclt_openapiMacalRuleInterfaceAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t port) {
        return setField(name, priority, FIELD_INTERFACE, portExists(port), port);
    });
    ASK(rpcclt_openapiMacalRuleInterfaceGet, fieldGet<FIELD_INTERFACE>);
    DO(rpcclt_openapiMacalRuleTcpUdpPortNumberAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t port) {
        return setField(name, priority, FIELD_TCP_UDP_PORT, TRANSPORT_PORT.contains(port), port);
    });
    ASK(rpcclt_openapiMacalRuleTcpUdpPortNumberGet, fieldGet<FIELD_TCP_UDP_PORT>);
    DO(rpcclt_openapiMacalRuleServicePortSet, setServicePort);
    ASK(rpcclt_openapiMacalRuleIsServicePortSet, [](OpenBufferDesc *name, uint32_t priority, uint32_t *flag) {
        return isFieldConfigured(name, priority, FIELD_SERVICE_PORT, flag);
    });
    ASK(rpcclt_openapiMacalIsFieldConfigured, isFieldConfigured);
}

/* Packets */

/* The TCP or UDP port of a service. */
static uint32_t portOfService(uint32_t service)
{
    static const uint32_t ports[] = {0, 23, 80, 443, 161, 22, 69, 123, 4242, 123, 0};
    return ports[service];
}

static bool fieldMatches(RuleField field, uint32_t value, const Rule &rule, const ManagementPacket &packet)
{
    switch (field) {
    case FIELD_SERVICE:
        return value == CUSTOM_PORT || (packet.tcpOrUdp && packet.destinationPort == portOfService(value));
    case FIELD_SOURCE:
        return ((packet.source ^ value) & rule.fields.at(FIELD_SOURCE_MASK)) == 0;
    case FIELD_VLAN:
        return packet.vlan == value;
    case FIELD_INTERFACE:
        return packet.port == value;
    case FIELD_SERVICE_PORT:
        return packet.port == 0;
    case FIELD_TCP_UDP_PORT:
        return packet.tcpOrUdp && packet.destinationPort == value;
    case FIELD_SOURCE_MASK:
        break;
    }
    return true;
}

static bool matches(const Rule &rule, const ManagementPacket &packet)
{
    return std::all_of(rule.fields.begin(), rule.fields.end(), [&](const auto &field) {
        return fieldMatches((RuleField)field.first, field.second, rule, packet);
    });
}

bool managementPermits(const ManagementPacket &packet, uint64_t count)
{
    if (activeList.empty())
        return true;
    for (auto &[priority, rule] : lists.at(activeList)) {
        if (!matches(rule, packet))
            continue;
        rule.packets += count;
        rule.bytes += count * packet.bytes;
        denied += rule.action == DENY ? count : 0;
        return rule.action == PERMIT;
    }
    denied += count;
    return false;
}

/* Simulated: one packet a second from each of four clients. */
static void countSimulated(uint64_t until)
{
    const ManagementPacket packets[] = {
        {0, 0, htonl(0xC000020A), true, 22, 64},  /* 192.0.2.10 by SSH */
        {0, 0, htonl(0xC0000214), true, 443, 64}, /* 192.0.2.20 by HTTPS */
        {0, 0, htonl(0xC6336407), true, 161, 64}, /* 198.51.100.7 by SNMP */
        {0, 0, htonl(0xCB007109), true, 23, 64},  /* 203.0.113.9 by Telnet */
    };
    if (trafficIsSimulated() && until > countedUntil)
        for (const ManagementPacket &packet : packets)
            managementPermits(packet, until - countedUntil);
    countedUntil = until;
}

void advanceAccessLists(uint64_t now)
{
    uint64_t interval = denyInterval.value();
    if (interval != intervalInForce)
        nextReport = now + interval;
    intervalInForce = interval;
    if (interval && nextReport <= now) {
        uint64_t last = nextReport + (now - nextReport) / interval * interval;
        countSimulated(last);
        reported = denied;
        nextReport = last + interval;
    }
    countSimulated(now);
}

/* Only rules for the service port have statistics. */
static int statistics(OpenBufferDesc *name, uint32_t priority, uint32_t *packets, uint32_t *bytes)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule || !rule->fields.contains(FIELD_SERVICE_PORT))
        return OPEN_FAILED;
    *packets = (uint32_t)rule->packets;
    return store((uint32_t)rule->bytes, bytes);
}

/* Clears the counters of the rules; `denied` and `reported` stay. */
static int clearStatistics()
{
    for (auto &[name, rules] : lists)
        for (auto &[priority, rule] : rules)
            rule.packets = rule.bytes = 0;
    return OPEN_OK;
}

/* Deletes whole rules: without the field VLAN, they would match packets of other VLANs. */
static void forgetVlan(uint32_t vlan)
{
    for (auto &[name, rules] : lists)
        std::erase_if(rules, [=](const auto &rule) {
            auto field = rule.second.fields.find(FIELD_VLAN);
            return field != rule.second.fields.end() && field->second == vlan;
        });
}

static bool isVrf(const std::string &name)
{
    return name == "" || name == "management" || name == "guest";
}

void registerAccessLists()
{
    onVlanEnd(forgetVlan);
    registerSettings({&denyInterval});
    registerFields();

    DO(rpcclt_openapiMacalListCreate, createList);
    DO(rpcclt_openapiMacalListDelete, deleteList);
    DO(rpcclt_openapiMacalActivate, activateList);
    DO(rpcclt_openapiMacalDeactivate, deactivateList);
    ASK(rpcclt_openapiMacalActiveListGet, [](OpenBufferDesc *name) -> int {
        return activeList.empty() ? (int)OPEN_FAILED : setText(name, activeList);
    });
    /* There is no walk over lists: always the first name. */
    ASK(rpcclt_openapiMacalNameGet, [](OpenBufferDesc *name) -> int {
        return lists.empty() ? (int)OPEN_FAILED : setText(name, lists.begin()->first);
    });
    ASK(rpcclt_openapiMacalIsAnyListCreated, [](uint32_t *flag) { return store(!lists.empty(), flag); });
    ASK(rpcclt_openapiMacalIsAnyListActivated, [](uint32_t *flag) { return store(!activeList.empty(), flag); });

    DO(rpcclt_openapiMacalRuleEntryAdd, addRule);
    DO(rpcclt_openapiMacalRuleRemove, removeRule);
    ASK(rpcclt_openapiMacalRuleFirstGet,
        [](OpenBufferDesc *name, uint32_t *first) { return ruleAfter(name, 0, first); });
    ASK(rpcclt_openapiMacalRuleNextGet, ruleAfter);
    ASK(rpcclt_openapiMacalRuleExists, [](OpenBufferDesc *name, uint32_t priority, uint32_t *flag) -> int {
        *flag = ruleOf(name, priority) != nullptr;
        return rulesOf(name) ? OPEN_OK : OPEN_FAILED;
    });
    /* The priority that addRule() gives for ANY_PRIORITY. */
    ASK(rpcclt_openapiMacalRulePriorityIndexGet, [](OpenBufferDesc *name, uint32_t *priority) -> int {
        Rules *rules = rulesOf(name);
        *priority = rules ? nextFreePriority(*rules) : 0;
        return *priority ? OPEN_OK : OPEN_FAILED;
    });

    ASK(rpcclt_openapiMacalServicePortRuleStatisticsGet, statistics);
    DO(rpcclt_openapiMacalClearServicePortStatistics, clearStatistics);
    ASK(rpcclt_openapiMacalStatsPacketsFilteredGet, [](uint32_t *count) { return store((uint32_t)reported, count); });

    DO(rpcclt_openapiMacalListVrfSet, [](OpenBufferDesc *name) -> int {
        if (!isVrf(textOf(name)))
            return OPEN_BAD_ARGUMENT;
        vrf = textOf(name);
        return OPEN_OK;
    });
    ASK(rpcclt_openapiMacalListVrfGet, [](OpenBufferDesc *name) { return setText(name, vrf); });
    ASK(rpcclt_openapiMacalVrfNameValid,
        [](OpenBufferDesc *name, uint32_t *flag) { return store(isVrf(textOf(name)), flag); });
    ASK(rpcclt_openapiMacalIsNetFilterTablesFeatureSupported, [](uint32_t *flag) { return store(1, flag); });
}

void resetAccessLists()
{
    lists.clear();
    activeList.clear();
    vrf.clear();
    denied = reported = countedUntil = 0;
    intervalInForce = denyInterval.value();
    nextReport = intervalInForce;
}
