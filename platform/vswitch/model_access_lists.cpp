/*
 * model_access_lists.cpp - the virtual switch's management access lists: who may manage it, from where and with what.
 *
 * Up to eight lists have rules by priority; one list at a time is active. When a list is activated, somebody tries the
 * door once: each of its rules meets a few packets, and counters stand still until the next activation.
 */
#include <arpa/inet.h>

#include <map>

#include "model.h"
#include "operations.h"
#include "settings.h"

enum : uint32_t { LISTS = 8, LIST_NAME_LENGTH = 32, PRIORITIES = 64, ANY_PRIORITY = 65535 };
enum : uint32_t { DENY, PERMIT };
enum : uint32_t { SERVICES = 10 }; /* known by 1 to 10; 0 is none */

enum Field : uint32_t {
    SERVICE = 1,
    SOURCE = 2,
    SOURCE_MASK = 4,
    VLAN = 8,
    INTERFACE = 16,
    SERVICE_PORT = 32,
    TCP_UDP_PORT = 64
};

/* A rule matches by the fields that it was given, and denies until it is told to permit. */
struct Rule {
    uint32_t action = DENY;
    std::map<uint32_t, uint32_t> fields; /* values by Field */
    uint32_t packets = 0, bytes = 0;
};
using Rules = std::map<uint32_t, Rule>; /* by priority, from 1 */

static std::map<std::string, Rules> lists;
static std::string activeList, vrf; /* empty for none, and for the VRF that every switch has */
static uint32_t packetsFiltered;

static const Setting settings[] = {
    /* seconds between two reports of what was denied; 0 for no reports */
    {"rpcclt_openapiMacalDenyCounterIntervalGet", "rpcclt_openapiMacalDenyCounterIntervalSet", FOR_SWITCH, 60, 0, 3600},
};

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

/* The active list stays until it is deactivated. */
static int deleteList(OpenBufferDesc *name)
{
    return textOf(name) != activeList && lists.erase(textOf(name)) ? OPEN_OK : OPEN_FAILED;
}

/* Takes the place of the list that is active. */
static int activateList(OpenBufferDesc *name)
{
    Rules *rules = rulesOf(name);
    if (!rules)
        return OPEN_FAILED;
    activeList = textOf(name);
    for (auto &[priority, rule] : *rules) {
        uint32_t packets = 10 + priority;
        rule.packets += packets;
        rule.bytes += 64 * packets;
        if (rule.action == DENY)
            packetsFiltered += packets;
    }
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

/* The priority behind the last rule, or the first that is free; 0 when all are taken. */
static uint32_t nextFreePriority(const Rules &rules)
{
    uint32_t priority = rules.empty() ? 1 : rules.rbegin()->first + 1;
    if (priority <= PRIORITIES)
        return priority;
    priority = 1;
    while (rules.contains(priority))
        priority++;
    return priority <= PRIORITIES ? priority : 0;
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
    if (*priority < 1 || *priority > PRIORITIES)
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

/* The first rule behind `priority`; 0 starts a walk. */
static int ruleAfter(OpenBufferDesc *name, uint32_t priority, uint32_t *next)
{
    Rules *rules = rulesOf(name);
    if (!rules || rules->upper_bound(priority) == rules->end())
        return OPEN_FAILED;
    *next = rules->upper_bound(priority)->first;
    return OPEN_OK;
}

/* Fields: one that is given again has the new value. */

static int setField(OpenBufferDesc *name, uint32_t priority, Field field, bool valid, uint32_t value)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule)
        return OPEN_FAILED;
    if (!valid)
        return OPEN_BAD_ARGUMENT;
    rule->fields[field] = value;
    return OPEN_OK;
}

static int readField(OpenBufferDesc *name, uint32_t priority, Field field, uint32_t *value)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule || !rule->fields.contains(field))
        return OPEN_FAILED;
    *value = rule->fields[field];
    return OPEN_OK;
}

template <Field F> static int fieldGet(OpenBufferDesc *name, uint32_t priority, uint32_t *value)
{
    return readField(name, priority, F, value);
}

/* Four bytes in network order are a mask when all ones stand before all zeros. */
static bool isMask(uint32_t mask)
{
    uint32_t hostBits = ~ntohl(mask);
    return (hostBits & (hostBits + 1)) == 0;
}

static int addSource(OpenBufferDesc *name, uint32_t priority, uint32_t address, uint32_t mask)
{
    int rc = setField(name, priority, SOURCE, isMask(mask), address);
    return rc == OPEN_OK ? setField(name, priority, SOURCE_MASK, true, mask) : rc;
}

static int getSource(OpenBufferDesc *name, uint32_t priority, uint32_t *address, uint32_t *mask)
{
    int rc = readField(name, priority, SOURCE, address);
    return rc == OPEN_OK ? readField(name, priority, SOURCE_MASK, mask) : rc;
}

/* A rule that is for the service port no more has lost the field. */
static int setServicePort(OpenBufferDesc *name, uint32_t priority, uint32_t flag)
{
    int rc = setField(name, priority, SERVICE_PORT, flag <= 1, flag);
    if (rc == OPEN_OK && !flag)
        ruleOf(name, priority)->fields.erase(SERVICE_PORT);
    return rc;
}

static int isFieldConfigured(OpenBufferDesc *name, uint32_t priority, uint32_t field, uint32_t *flag)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule)
        return OPEN_FAILED;
    if (field < SERVICE || field > TCP_UDP_PORT || (field & (field - 1)))
        return OPEN_BAD_ARGUMENT;
    *flag = rule->fields.contains(field);
    return OPEN_OK;
}

static void serveFields()
{
    SERVE(rpcclt_openapiMacalRuleActionAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t action) -> int {
        Rule *rule = ruleOf(name, priority);
        if (!rule)
            return OPEN_FAILED;
        if (action > PERMIT)
            return OPEN_BAD_ARGUMENT;
        rule->action = action;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMacalRuleActionGet, [](OpenBufferDesc *name, uint32_t priority, uint32_t *action) -> int {
        Rule *rule = ruleOf(name, priority);
        if (!rule)
            return OPEN_FAILED;
        *action = rule->action;
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMacalRuleServiceAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t service) {
        return setField(name, priority, SERVICE, service >= 1 && service <= SERVICES, service);
    });
    SERVE(rpcclt_openapiMacalRuleServiceGet, fieldGet<SERVICE>);
    SERVE(rpcclt_openapiMacalRuleSrcIpMaskAdd, addSource);
    SERVE(rpcclt_openapiMacalRuleSrcIpMaskGet, getSource);
    SERVE(rpcclt_openapiMacalRuleVlanAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t vlan) {
        return setField(name, priority, VLAN, vlanExists(vlan), vlan);
    });
    SERVE(rpcclt_openapiMacalRuleVlanGet, fieldGet<VLAN>);
    SERVE(rpcclt_openapiMacalRuleInterfaceAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t port) {
        return setField(name, priority, INTERFACE, portExists(port), port);
    });
    SERVE(rpcclt_openapiMacalRuleInterfaceGet, fieldGet<INTERFACE>);
    SERVE(rpcclt_openapiMacalRuleTcpUdpPortNumberAdd, [](OpenBufferDesc *name, uint32_t priority, uint32_t port) {
        return setField(name, priority, TCP_UDP_PORT, port >= 1 && port <= 65535, port);
    });
    SERVE(rpcclt_openapiMacalRuleTcpUdpPortNumberGet, fieldGet<TCP_UDP_PORT>);
    SERVE(rpcclt_openapiMacalRuleServicePortSet, setServicePort);
    SERVE(rpcclt_openapiMacalRuleIsServicePortSet, [](OpenBufferDesc *name, uint32_t priority, uint32_t *flag) {
        return isFieldConfigured(name, priority, SERVICE_PORT, flag);
    });
    SERVE(rpcclt_openapiMacalIsFieldConfigured, isFieldConfigured);
}

/* Counters are shown of the rules for the service port. */
static int statistics(OpenBufferDesc *name, uint32_t priority, uint32_t *packets, uint32_t *bytes)
{
    Rule *rule = ruleOf(name, priority);
    if (!rule || !rule->fields.contains(SERVICE_PORT))
        return OPEN_FAILED;
    *packets = rule->packets;
    *bytes = rule->bytes;
    return OPEN_OK;
}

/* What was filtered in all stays counted. */
static int clearStatistics()
{
    for (auto &[name, rules] : lists)
        for (auto &[priority, rule] : rules)
            rule.packets = rule.bytes = 0;
    return OPEN_OK;
}

static bool isVrf(const std::string &name)
{
    return name == "" || name == "management" || name == "guest";
}

void serveAccessLists()
{
    serveSettings(settings);
    serveFields();

    SERVE(rpcclt_openapiMacalListCreate, createList);
    SERVE(rpcclt_openapiMacalListDelete, deleteList);
    SERVE(rpcclt_openapiMacalActivate, activateList);
    SERVE(rpcclt_openapiMacalDeactivate, deactivateList);
    SERVE(rpcclt_openapiMacalActiveListGet, [](OpenBufferDesc *name) -> int {
        return activeList.empty() ? (int)OPEN_FAILED : setText(name, activeList);
    });
    /* the first in the order of names: lists cannot be walked */
    SERVE(rpcclt_openapiMacalNameGet, [](OpenBufferDesc *name) -> int {
        return lists.empty() ? (int)OPEN_FAILED : setText(name, lists.begin()->first);
    });
    SERVE(rpcclt_openapiMacalIsAnyListCreated, [](uint32_t *flag) -> int {
        *flag = !lists.empty();
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMacalIsAnyListActivated, [](uint32_t *flag) -> int {
        *flag = !activeList.empty();
        return OPEN_OK;
    });

    SERVE(rpcclt_openapiMacalRuleEntryAdd, addRule);
    SERVE(rpcclt_openapiMacalRuleRemove, removeRule);
    SERVE(rpcclt_openapiMacalRuleFirstGet,
          [](OpenBufferDesc *name, uint32_t *first) { return ruleAfter(name, 0, first); });
    SERVE(rpcclt_openapiMacalRuleNextGet, ruleAfter);
    SERVE(rpcclt_openapiMacalRuleExists, [](OpenBufferDesc *name, uint32_t priority, uint32_t *flag) -> int {
        *flag = ruleOf(name, priority) != nullptr;
        return rulesOf(name) ? OPEN_OK : OPEN_FAILED;
    });
    /* the priority that a rule gets that states none */
    SERVE(rpcclt_openapiMacalRulePriorityIndexGet, [](OpenBufferDesc *name, uint32_t *priority) -> int {
        Rules *rules = rulesOf(name);
        *priority = rules ? nextFreePriority(*rules) : 0;
        return *priority ? OPEN_OK : OPEN_FAILED;
    });

    SERVE(rpcclt_openapiMacalServicePortRuleStatisticsGet, statistics);
    SERVE(rpcclt_openapiMacalClearServicePortStatistics, clearStatistics);
    SERVE(rpcclt_openapiMacalStatsPacketsFilteredGet, [](uint32_t *count) -> int {
        *count = packetsFiltered;
        return OPEN_OK;
    });

    SERVE(rpcclt_openapiMacalListVrfSet, [](OpenBufferDesc *name) -> int {
        if (!isVrf(textOf(name)))
            return OPEN_BAD_ARGUMENT;
        vrf = textOf(name);
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMacalListVrfGet, [](OpenBufferDesc *name) { return setText(name, vrf); });
    SERVE(rpcclt_openapiMacalVrfNameValid, [](OpenBufferDesc *name, uint32_t *flag) -> int {
        *flag = isVrf(textOf(name));
        return OPEN_OK;
    });
    SERVE(rpcclt_openapiMacalIsNetFilterTablesFeatureSupported, [](uint32_t *flag) -> int {
        *flag = 1;
        return OPEN_OK;
    });
}

void resetAccessLists()
{
    lists.clear();
    activeList.clear();
    vrf.clear();
    packetsFiltered = 0;
}
