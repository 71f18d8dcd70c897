/*
 * fdb.cpp - /api/v2/switching/fdb: the forwarding database, its ageing, counts and entries, and flushing. OpEN checks
 * addresses and numbers.
 */
#include "common/answer.h"
#include "common/open_client.h"
#include "common/request_values.h"
#include "switching/families.h"

static constexpr NamedCode entryTypeRows[] = {
    {0, "static"},
    {1, "learned"},
    {2, "management"},
    {3, "gmrp_learned"},
    {4, "self"},
    {5, "dot1x_static"},
    {6, "dot1ag_static"},
    {7, "l3_management"},
    {8, "learned_unconfirmed"},
    {9, "fip_snoop_learned"},
    {10, "captive_portal_static"},
    {11, "eth_cfm_static"},
    {12, "y1731_static"},
};
static constexpr NameTable entryTypes = nameTable(entryTypeRows);

static constexpr NamedCode vlanLearningRows[] = {{1, "ivl_type"}, {2, "svl_type"}};
static constexpr NameTable vlanLearningTypes = nameTable(vlanLearningRows);

static void answerFdb(int rc, Data data)
{
    answerData("fdb", openResult(rc), data);
}

/* A database and its ageing */

/* A database that does not exist is an answer, not a failure. */
static void idGet()
{
    uint32_t fdbId = 1;
    readParams({uintParam("fdbId", &fdbId)});
    int rc = rpcclt_openapiFdbIdGet(&openClient, fdbId);
    answerFdb(OPEN_OK, {number("fdbId", fdbId), boolean("exists", rc == OPEN_OK)});
}

static void addrAgingTimeoutGet()
{
    uint32_t fdbId = 1;
    readParams({uintParam("fdbId", &fdbId)});
    uint32_t timeOut = 0;
    int rc = rpcclt_openapiFdbAddrAgingTimeoutGet(&openClient, fdbId, &timeOut);
    answerFdb(rc, {number("timeOut", timeOut)});
}

static void addrAgingTimeoutSet()
{
    uint32_t fdbId = 1, timeOut = 0;
    if (!readBody({integerMember("fdbId", &fdbId), integerMember("timeOut", &timeOut)}))
        return;
    answerResult(rpcclt_openapiFdbAddrAgingTimeoutSet(&openClient, fdbId, timeOut));
}

/* Sizes and counts of the whole database */

static void maxTableEntriesGet()
{
    uint32_t maxEntries = 0;
    int rc = rpcclt_openapiFdbMaxTableEntriesGet(&openClient, &maxEntries);
    answerFdb(rc, {number("maxEntries", maxEntries)});
}

static void activeAddrEntriesGet()
{
    uint32_t entries = 0;
    int rc = rpcclt_openapiActiveAddrEntriesGet(&openClient, &entries);
    answerFdb(rc, {number("entriesNum", entries)});
}

static void maxCountGet()
{
    uint32_t entries = 0;
    int rc = rpcclt_openapiFdbMaxCountGet(&openClient, &entries);
    answerFdb(rc, {number("entriesNum", entries)}); /* the same key as active-addr-entries: established behaviour */
}

static void maxCountReset()
{
    answerResult(rpcclt_openapiMaxCountReset(&openClient));
}

static void dynamicEntriesGet()
{
    uint32_t entries = 0;
    int rc = rpcclt_openapiFdbDynamicEntriesGet(&openClient, &entries);
    answerFdb(rc, {number("entries", entries)});
}

static void internalEntriesGet()
{
    uint32_t entries = 0;
    int rc = rpcclt_openapiFdbInternalEntriesGet(&openClient, &entries);
    answerFdb(rc, {number("entries", entries)});
}

/* Addresses, learning and limits */

/* OPEN_RESTRICTED is an answer, not a failure. Answers the address as the client sent it. */
static void isRestrFilterMacGet()
{
    OpenText<18> mac;
    readParams({textParam("macaddr", mac)});
    OpenText<18> asked = mac;
    int rc = rpcclt_openapiIsRestrFilterMacGet(&openClient, bufferSized(asked));
    bool restricted = rc == OPEN_RESTRICTED;
    answerFdb(restricted ? OPEN_OK : rc, {string("macaddr", mac.bytes), yesNo("restricted", restricted)});
}

static void typeOfVlGet()
{
    uint32_t type = 1;
    int rc = rpcclt_openapiFdbTypeOfVLGet(&openClient, &type);
    answerFdb(rc, {codeName("type", vlanLearningTypes, type, "unknown")});
}

static void idNextGet()
{
    uint32_t startFrom = 0;
    readParams({uintParam("startFrom", &startFrom)});
    uint32_t next = 0;
    int rc = rpcclt_openapiFdbIdNextGet(&openClient, startFrom, &next);
    answerFdb(rc, {number("fdbId", next)});
}

static void badAddsGet()
{
    uint32_t badAdds = 0;
    int rc = rpcclt_openapiFdbBadAddsGet(&openClient, &badAdds);
    answerFdb(rc, {number("badAdds", badAdds)});
}

static void macMaxHwLimitGet()
{
    uint32_t limit = 0;
    int rc = rpcclt_openapiFdbMacMaxHwLimitGet(&openClient, &limit);
    answerFdb(rc, {number("maxMacHwLimit", limit)});
}

/* Flushing */

static void flushByMac()
{
    OpenText<18> mac;
    if (!readBody({textMember("mac", mac)}))
        return;
    answerResult(rpcclt_openapiFdbFlushByMac(&openClient, bufferSized(mac)));
}

static void flush()
{
    answerResult(rpcclt_openapiFdbFlush(&openClient));
}

/* Entries, by VLAN and by interface. The POST endpoints read the query string, not the body. */

/* OpEN replaces the entry by the next one. The answer leaves out its VLAN: the client walks one VLAN and knows it. */
static void entryNextGet()
{
    uint32_t vlanId = queryUintExact("vlanId");
    OpenText<18> mac;
    uint32_t ifNum = 0;
    readParams({textParam("mac", mac), uintParam("fdbIfNum", &ifNum)});
    uint32_t type = 0;
    int rc = rpcclt_openapiFdbEntryNextGet(&openClient, bufferSized(mac), &vlanId, &ifNum, &type);
    answerFdb(rc, {string("mac", mac.bytes), number("fdbIfNum", ifNum),
                   codeName("entryType", entryTypes, type, "unknown")});
}

/* The two counts use the low 16 bits of the VLAN, flush-by-vlan uses 32: established behaviour. */

static void vlanDynamicEntriesGet()
{
    uint16_t vlanId = queryUint16Exact("vlanId");
    uint32_t entries = 0;
    int rc = rpcclt_openapiFdbVlanDynamicEntriesGet(&openClient, vlanId, &entries);
    answerFdb(rc, {number("entries", entries)});
}

static void vlanInternalEntriesGet()
{
    uint16_t vlanId = queryUint16Exact("vlanId");
    uint32_t entries = 0;
    int rc = rpcclt_openapiFdbVlanInternalEntriesGet(&openClient, vlanId, &entries);
    answerFdb(rc, {number("entries", entries)});
}

static void flushByVlan()
{
    answerResult(rpcclt_openapiFdbFlushByVlan(&openClient, queryUintExact("vlanId")));
}

static void intfDynamicEntriesGet()
{
    uint32_t entries = 0;
    int rc = rpcclt_openapiFdbIntfDynamicEntriesGet(&openClient, queryUintExact("intIfNum"), &entries);
    answerFdb(rc, {number("entries", entries)});
}

static void intfInternalEntriesGet()
{
    uint32_t entries = 0;
    int rc = rpcclt_openapiFdbIntfInternalEntriesGet(&openClient, queryUintExact("intIfNum"), &entries);
    answerFdb(rc, {number("entries", entries)});
}

static void flushByPort()
{
    answerResult(rpcclt_openapiFdbFlushByPort(&openClient, queryUintExact("intIfNum")));
}

static void entryDelete()
{
    uint32_t vlanId = queryUintExact("vlanId");
    uint32_t ifNum = queryUintExact("intIfNum");
    OpenText<18> mac;
    readParams({textParam("mac", mac)});
    answerResult(rpcclt_openapiFdbEntryDelete(&openClient, bufferSized(mac), vlanId, ifNum));
}

void addFdbRoutes(RouteDir *dir)
{
    addRoute(dir, "id", HTTP_GET, idGet);
    addRoute(dir, "addr-aging-timeout", HTTP_GET, addrAgingTimeoutGet);
    addRoute(dir, "addr-aging-timeout", HTTP_PUT, addrAgingTimeoutSet);
    addRoute(dir, "max-table-entries", HTTP_GET, maxTableEntriesGet);
    addRoute(dir, "active-addr-entries", HTTP_GET, activeAddrEntriesGet);
    addRoute(dir, "max-count", HTTP_GET, maxCountGet);
    addRoute(dir, "max-count-reset", HTTP_POST, maxCountReset);
    addRoute(dir, "dynamic-entries", HTTP_GET, dynamicEntriesGet);
    addRoute(dir, "internal-entries", HTTP_GET, internalEntriesGet);
    addRoute(dir, "is-restr-filter-mac", HTTP_GET, isRestrFilterMacGet);
    addRoute(dir, "type-of-vl", HTTP_GET, typeOfVlGet);
    addRoute(dir, "id-next", HTTP_GET, idNextGet);
    addRoute(dir, "bad-adds", HTTP_GET, badAddsGet);
    addRoute(dir, "mac-max-hw-limit", HTTP_GET, macMaxHwLimitGet);
    addRoute(dir, "flush-by-mac", HTTP_POST, flushByMac);
    addRoute(dir, "flush", HTTP_POST, flush);
    addRoute(dir, "entry-next", HTTP_GET, entryNextGet);
    addRoute(dir, "vlan-dynamic-entries", HTTP_GET, vlanDynamicEntriesGet);
    addRoute(dir, "vlan-internal-entries", HTTP_GET, vlanInternalEntriesGet);
    addRoute(dir, "flush-by-vlan", HTTP_POST, flushByVlan);
    addRoute(dir, "intf-dynamic-entries", HTTP_GET, intfDynamicEntriesGet);
    addRoute(dir, "intf-internal-entries", HTTP_GET, intfInternalEntriesGet);
    addRoute(dir, "flush-by-port", HTTP_POST, flushByPort);
    addRoute(dir, "entry", HTTP_DELETE, entryDelete);
}
