/*
 * properties_test.cpp - what must hold for the virtual switch whatever was set: random operations and commands, from a
 * seed, and then a property. PROPERTY_SEEDS=1000 tries so many seeds instead of a few. A failure names its seed.
 */
#include "tests/vswitch/changes.h"

#include "vswitch/base/clock.h"
#include "vswitch/frames/forwarding.h"
#include "vswitch/switch/addresses.h"

class Property : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        registerAll();
        setDeviceOptions({});
        resetAll();
    }
    void TearDown() override { setTrafficSimulated(true); }

    /* Calls check(seed) for some seeds. */
    template <class Check> static void forSeeds(uint32_t few, Check check)
    {
        const char *chosen = getenv("PROPERTY_SEEDS");
        for (uint32_t seed = 0; seed < (chosen ? (uint32_t)atoi(chosen) : few) && !HasFailure(); seed++) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            restart();
            check(seed);
        }
    }
};

TEST_F(Property, aRefusedChangeChangesNothing)
{
    forSeeds(60, [](uint32_t seed) {
        std::set<int> refused;
        int step = 0;
        change(seed, 40, [&](const std::string &, bool done) {
            if (!done)
                refused.insert(step);
            step++;
        });
        Texts with = snapshot();
        restart();
        change(seed, 40, [](const std::string &, bool) {}, refused);
        expectSame(snapshot(), with, "refused changes");
    });
}

TEST_F(Property, askingAndSettlingTwiceChangeNothing)
{
    forSeeds(16, [](uint32_t seed) {
        change(seed, 40);
        Texts once = snapshot();
        expectSame(once, snapshot(), "asking again");
        stateChanged();
        bringUpToNow();
        expectSame(once, snapshot(), "settling again");
    });
}

TEST_F(Property, aFullTableCountsAnAddressOnce)
{
    setDeviceOptions({.stations = MAX_ADDRESSES - 1});
    restart();
    answer({&operationNamed("rpcclt_openapiFilterCreate"), {{0, "02:0A:00:00:00:01"}, {1, ""}}});
    answer({&operationNamed("rpcclt_openapiFilterDstIntfAdd"), {{0, "02:0A:00:00:00:01"}, {1, ""}, {3, ""}}});
    uint32_t tries = ask("FdbBadAddsGet")[0];
    command("advance 1");
    EXPECT_EQ(answer({&operationNamed("rpcclt_openapiVlanCreate"), {{1, ""}}}), std::to_string(OPEN_EXISTS) + " ");
    EXPECT_EQ(ask("FdbBadAddsGet")[0], tries);
    EXPECT_TRUE(command("learn 1 02:0A:00:00:00:02 3"));
    EXPECT_EQ(ask("FdbBadAddsGet")[0], tries + 1);
    command("advance 10");
    EXPECT_EQ(ask("FdbBadAddsGet")[0], tries + 1);
    command("advance 400"); /* two silent stations age, and leave a place for it */
    EXPECT_EQ(ask("Dot1dTpFdbPortGet", {{0, "02:0A:00:00:00:02"}, {}}).size(), 2u);
    setDeviceOptions({});
}

/* What neighbours declare shows where a protocol runs. */
static void runGmrp(uint32_t port)
{
    ask("GarpGmrpEnableSet", {{1, ""}});
    ask("GarpGmrpPortEnableSet", {{port, ""}, {1, ""}});
}

TEST_F(Property, resetLeavesNothing)
{
    restart();
    runGmrp(2);
    Texts fresh = snapshot();
    forSeeds(32, [&](uint32_t seed) {
        change(seed, 60);
        command("neighbour 2 joins 01:00:5E:00:00:01");
        restart();
        runGmrp(2);
        expectSame(fresh, snapshot(), "reset");
    });
}

TEST_F(Property, aVlanThatEndsLeavesNothing)
{
    forSeeds(48, [](uint32_t seed) {
        change(seed, 100);
        answer({&operationNamed("rpcclt_openapiVlanCreate"), {{ENDS, ""}}});
        for (const char *name : {"MacalListCreate", "MacalRuleEntryAdd", "MacalRuleVlanAdd"})
            ask(name, {{0, "a"}, {1, ""}, {ENDS, ""}});
        ask("VoiceVlanPortAdminModeSet", {{3, ""}, {VOICE_VLAN, ""}, {ENDS, ""}});
        command("neighbour 3 joins 01:00:5E:00:00:01 777");
        ask("VlanDelete", {{ENDS, ""}});
        if (seed % 2) { /* the next VLAN of this number gets nothing of it */
            ask("VlanCreate", {{ENDS, ""}});
            runGmrp(3);
            ask("VlanIfParticipationSet", {{ENDS, ""}, {3, ""}, {PARTICIPATION_INCLUDE, ""}});
            EXPECT_EQ(ask("FdbVlanInternalEntriesGet", {{ENDS, ""}}), Numbers{0});
            ask("VlanDelete", {{ENDS, ""}});
        }
        command("link 1 down");
        command("link 2 down");
        Texts left = snapshot();
        for (uint32_t vlan : {ENDS, NEIGHBOURS_FIRST}) /* a change can have created the second one */
            for (size_t i = 0; i < left.size() && ask("VlanTypeGet", {{vlan, ""}}).empty(); i++) {
                std::string name = questions()[i].operation->name;
                bool kept = name.find("TrunkAllowed") != std::string::npos; /* it stays as it was set */
                bool leftOver = !kept && left[i].find(" " + std::to_string(vlan) + " ") != std::string::npos;
                ASSERT_FALSE(leftOver) << name << " answers " << left[i];
            }
        for (uint32_t port : ports) {
            Numbers mode = ask("VoiceVlanPortAdminModeGet", {{port, ""}});
            Numbers id = ask("VoiceVlanPortVlanIdGet", {{port, ""}});
            EXPECT_TRUE(mode.empty() || mode[0] != VOICE_VLAN || id[0]) << "voice VLAN without a VLAN";
        }
    });
}

TEST_F(Property, timeAdvancesInPartsAsInOnePiece)
{
    forSeeds(40, [](uint32_t seed) {
        Random random = {std::mt19937(seed)};
        uint32_t seconds = random.pick(Numbers{30, 60, 600, 5000});
        auto after = [=](const Numbers &parts) {
            restart();
            for (uint32_t port : {1u, 2u}) { /* several frames make a loop; one port is not shut */
                ask("LoopProtectPortActionSet", {{port, ""}, {port, ""}});
                ask("LoopProtectMaxPduReceiveSet", {{1 + seed % 4, ""}});
                command("loop " + std::to_string(port) + " on");
            }
            change(64 * seed + 48 + seed % 3, 40); /* about loop protection, also with others */
            for (uint32_t part : parts)
                command("advance " + std::to_string(part));
            return snapshot();
        };
        uint32_t part = 1 + random.below(seconds - 1);
        Texts whole = after({seconds});
        expectSame(whole, after({part, seconds - part}), "two parts");
        if (seconds <= 600)
            expectSame(whole, after(Numbers(seconds, 1)), "second by second");
    });
}

/* Lists, walks and counts of one thing; and what two operations say of one thing. */

using Key = std::vector<Value>;

static bool answers(const std::string &name, Key values)
{
    const Operation &operation = operationNamed("rpcclt_openapi" + name);
    values.resize(operation.tags.size());
    return answer({&operation, values}).starts_with("0 ");
}

/* A walk over keys: `next` is asked with a key, and returns the following one. */
static const struct Walk {
    std::string next;
    Key start;
    size_t fixed, found;  /* arguments that stay; from which on the next key is returned */
    std::string question; /* answers for the keys that exist */
    std::string count;    /* empty: the question answers for so many numbers from 1 to 128 */
} walks[] = {
    {"FilterNextGet", {{0, "00:00:00:00:00:00"}, {}}, 0, 2, "FilterStreamGet", "FilterCountGet"},
    {"VlanMacOuiVlanNextGet", {{0, "00:00:00"}}, 0, 1, "", "VlanMacOuiVlanCountGet"},
    {"VoipOuiNextEntryGet", {{0, "00:00:00"}}, 0, 1, "VoipOuiDescGet", "VoipOuiCountGet"},
    {"VoipOuiEntryNextGet", {{}}, 0, 3, "VoipOuiEntryGet", "VoipOuiCountGet"},
    {"PbVlanGroupGetNext", {{}}, 0, 1, "PbVlanGroupNameGet", ""},
    {"MacalRuleNextGet", {{0, "a"}, {}}, 1, 2, "MacalRuleActionGet", ""},
    {"ProtectedPortNextGroupGet", {{}, {}}, 0, 2, "ProtectedPortGroupGet", "ProtectedPortGroupIntfCountGet"},
};

static std::vector<Key> keysOf(const Walk &walk)
{
    std::vector<Key> keys;
    Arguments arguments;
    Call call = {&operationNamed("rpcclt_openapi" + walk.next), walk.start};
    for (Key key = walk.start; keys.size() < 5000; keys.push_back(key)) {
        call.values = key;
        call.values.resize(call.operation->tags.size());
        if (!answer(call, &arguments).starts_with("0 "))
            break;
        for (size_t i = walk.fixed; i < key.size(); i++) {
            const Argument &next = arguments[walk.found + i - walk.fixed];
            key[i] = {next.number, textOf(&next.text)};
        }
    }
    return keys;
}

static void expectAgreement(const Walk &walk)
{
    SCOPED_TRACE(walk.next);
    std::vector<Key> keys = keysOf(walk);
    size_t count = walk.count.empty() ? 0 : ask(walk.count, {{1, ""}})[0];
    for (uint32_t number = 1; walk.count.empty() && number <= 128; number++) {
        Key key = walk.start;
        key.back().number = number;
        count += answers(walk.question, key);
    }
    for (uint32_t group : {2u, 3u})
        count += walk.next.starts_with("Protected") ? ask(walk.count, {{group, ""}})[0] : 0;
    EXPECT_EQ(keys.size(), count);
    for (const Key &key : keys)
        EXPECT_TRUE(walk.question.empty() || answers(walk.question, key));
}

static void expectAgreement()
{
    Numbers existing;
    for (const Key &key : keysOf({"NextVlanGet", {{}}, 0, 1, "", ""}))
        existing.push_back(key[0].number);
    EXPECT_EQ(existing.size(), ask("StaticVlanEntriesGet")[0] + ask("DynamicVlanEntriesGet")[0]);
    EXPECT_EQ(existing.size(), keysOf({"FdbIdNextGet", {{}}, 0, 1, "", ""}).size());
    EXPECT_EQ(keysOf({"FdbEntryNextGet", {{}, {1, ""}}, 0, 0, "", ""}).size(),
              ask("FdbVlanDynamicEntriesGet", {{1, ""}})[0] + ask("FdbVlanInternalEntriesGet", {{1, ""}})[0]);
    EXPECT_LE(ask("VoipNumActiveProtocolSessionsGet")[0], ask("VoipMaxCallsGet")[0]);
    EXPECT_EQ(ask("FdbDynamicEntriesGet")[0] + ask("FdbInternalEntriesGet")[0], ask("ActiveAddrEntriesGet")[0]);
    uint32_t inVlans = 0, onPorts = 0;
    for (uint32_t vlan : existing)
        inVlans += ask("FdbVlanDynamicEntriesGet", {{vlan, ""}})[0];
    for (uint32_t port = nextInterface(0); port; port = nextInterface(port)) {
        onPorts += ask("FdbIntfDynamicEntriesGet", {{port, ""}})[0];
        Numbers member = ask("VlanVIDListGet", {{port, ""}});
        Numbers tagged = ask("Dot1qSwPortTaggedVlanListGet", {{port, ""}}),
                untagged = ask("Dot1qSwPortUntaggedVlanListGet", {{port, ""}});
        member.pop_back(); /* the count */
        EXPECT_EQ(member.size(), tagged.size() + untagged.size()) << "port " << port;
        for (uint32_t vlan : ask("Dot1qSwPortForbiddenVlanListGet", {{port, ""}}))
            EXPECT_FALSE(std::count(member.begin(), member.end(), vlan)) << "port " << port << ", VLAN " << vlan;
    }
    EXPECT_EQ(inVlans, onPorts);
    EXPECT_EQ(inVlans, ask("FdbDynamicEntriesGet")[0]);
}

TEST_F(Property, listsWalksAndCountsAgree)
{
    forSeeds(24, [](uint32_t seed) {
        ask("VlanCreate", {{10, ""}});
        for (uint32_t port = 1; port <= deviceOptions().ports; port++) {
            command("link " + std::to_string(port) + " up");
            ask("VoipIntfModeSet", {{port, ""}, {BY_PROTOCOL, ""}, {1, ""}});
            ask("VoiceVlanPortAdminModeSet", {{port, ""}, {VOICE_VLAN, ""}, {10, ""}});
            ask("Dot1qSwPortAccessVlanSet", {{port, ""}, {10, ""}});
            ask("ProtectedPortGroupIntfAdd", {{port, ""}, {1 + port % 3, ""}});
            ask("PbVlanGroupCreate", {{port, ""}});
            ask(port == 1 ? "MacalListCreate" : "MacalRuleEntryAdd", {{0, "a"}, {port, ""}});
        }
        for (const std::string &mac : macs)
            for (uint32_t vlan : {1u, 10u})
                ask("FilterCreate", {{0, mac}, {vlan, ""}});
        ask("VlanIfParticipationSet", {{10, ""}, {5, ""}, {PARTICIPATION_EXCLUDE, ""}});
        ask("VlanIfParticipationSet", {{10, ""}, {3, ""}, {PARTICIPATION_EXCLUDE, ""}});
        ask("Dot1qSwPortModeSet", {{3, ""}, {MODE_ACCESS, ""}});
        change(8 * seed + 2, 30, [](const std::string &what, bool) {
            SCOPED_TRACE(what);
            expectAgreement();
        });
        for (const Walk &walk : walks)
            expectAgreement(walk);
    });
}

/*
 * A station sends from port 5 without a tag, a host likewise. After the same changes the switch hears both in the same
 * VLANs.
 */
TEST_F(Property, stationsAndFramesAreAdmittedAlike)
{
    const uint64_t mac = 0x020A00000009; /* none of macs[]: no change is about it */
    auto heard = [=] {
        Numbers found;
        for (uint32_t vlan : vlans)
            if (const FdbEntry *entry = fdbFind(vlan, mac); entry && entry->port == 5 && entry->type == FDB_LEARNED)
                found.push_back(vlan);
        return found;
    };
    forSeeds(200, [=](uint32_t seed) {
        bool broadcast = seed % 2;
        ask("FilterFilteringModeSet", {{seed % 3, ""}});
        EXPECT_TRUE(command("learn 1 02:0A:00:00:00:09 5"));
        change(seed * 8 + 2, 40);
        answer({&operationNamed("rpcclt_openapiFdbFlush"), {}});
        command("advance 4");
        Numbers simulated = heard();
        answer({&operationNamed("rpcclt_openapiFdbFlush"), {}});
        std::string bytes("\x02\0\0\0\0\x99\x02\x0A\0\0\0\x09\x08\0", 14), why, storm;
        bytes.resize(60);
        receiveFrame(5, bytes, &why);
        EXPECT_EQ(simulated, heard()) << why;
        std::string said, other("\x01\0\x5E\x7F\xFF\xFF\x02\x0B\0\0\0\x09\x88\xB5", 14); /* without a classification */
        other.resize(60);
        other.replace(0, broadcast ? 6 : 0, std::string(broadcast ? 6 : 0, '\xFF'));
        receiveFrame(5, other, &why);
        runCommand(broadcast ? "storm 5 broadcast 1" : "storm 5 multicast 1", &said);
        bool refused = why.find("no other port") == why.npos && why.find("storm") == why.npos &&
                       why.find("separated") == why.npos && why.find("protected") == why.npos;
        bool discarded = said.find("discarded: ") != said.npos && said.find("no other port") == said.npos;
        EXPECT_EQ(refused, !portIsUp(5) || discarded) << why << "; " << said;
    });
}
