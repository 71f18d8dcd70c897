/*
 * refused_calls_test.cpp - a call that is refused leaves nothing behind in the virtual switch, however often it comes.
 */
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/driver.h"
#include "tests/support/rpc.h"

enum : uint32_t { CALLS = 300, GROWTH_LIMIT_KIB = 8 };

template <class Prototype> struct TagsOf;
template <class... T> struct TagsOf<int(OpenClient *, T...)> {
    static std::string text() { return {WireTagOf<T>::tag...}; }
};

/* Every operation, with the tags of its arguments. */
static const struct { const char *name; std::string tags; } operations[] = {
#define OPEN_OPERATION(name, ...) {#name, TagsOf<decltype(name)>::text()},
#include "openclt_operations.def"
#undef OPEN_OPERATION
};

/* The argument at `odd` is `number`, or a text of its digits. All others are 1 or empty. */
static std::string argumentsOf(const std::string &tags, size_t odd, uint32_t number)
{
    std::string arguments;
    for (size_t i = 0; i < tags.size(); i++) {
        const std::string text = i == odd ? std::to_string(number) : "";
        switch (tags[i]) {
        case WIRE_TEXT: arguments += textArgument(256, (uint32_t)text.size(), text); break;
        case WIRE_LIST:
        case WIRE_LISTREF: arguments += tags[i] + bytesOf(0); break;
        case WIRE_OUT16: arguments += tags[i] + std::string(sizeof(uint16_t), 0); break;
        case WIRE_OUT64: arguments += tags[i] + std::string(sizeof(uint64_t), 0); break;
        case WIRE_VERSION4: arguments += tags[i] + std::string(sizeof(OpenApiVersion), 0); break;
        default: arguments += tags[i] + bytesOf(i == odd ? number : 1);
        }
    }
    return arguments;
}

class RefusedCalls : public SwitchTest {
protected:
    uint32_t number = 4'000'000'000; /* another one in each call: no interface, VLAN, group or value has it */

    /* Sends the calls in one write, and returns how many of them were refused. */
    unsigned sendCalls(int client, const std::string &name, const std::string &tags, size_t odd)
    {
        std::string calls;
        for (uint32_t i = 0; i < CALLS; i++)
            calls += callOf(name, argumentsOf(tags, odd, number++));
        EXPECT_EQ(::send(client, calls.data(), calls.size(), MSG_NOSIGNAL), (ssize_t)calls.size());
        unsigned refused = 0;
        for (uint32_t i = 0; i < CALLS; i++) {
            struct { uint32_t length; int32_t code; } reply;
            if (recv(client, &reply, sizeof reply, MSG_WAITALL) != sizeof reply) {
                ADD_FAILURE() << name << ": no reply";
                break;
            }
            std::string rest(reply.length - sizeof reply.code, 0);
            if (!rest.empty())
                recv(client, rest.data(), rest.size(), MSG_WAITALL);
            refused += reply.code != OPEN_OK;
        }
        return refused;
    }

    /* The memory of a process, to the page. */
    static long residentKib(pid_t process)
    {
        std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
        std::string word;
        long kib = -1;
        while (file >> word && word != "Rss:")
            ;
        file >> kib;
        return kib;
    }
};

TEST_F(RefusedCalls, leaveNoMemoryBehind)
{
    if (readFile(buildDirectory() + "/vswitch").find("__asan_init") != std::string::npos)
        GTEST_SKIP() << "a sanitizer keeps freed memory";
    stopSwitch(); /* it writes a trace; this one does not */
    Process server = launchSwitch({});
    int client = connectTo(socket);
    unsigned refusedGroups = 0;
    for (const auto &[name, tags] : operations)
        for (size_t odd = 0; odd < tags.size(); odd++) {
            if (tags[odd] != WIRE_IN && tags[odd] != WIRE_TEXT)
                continue;
            sendCalls(client, name, tags, odd);
            long before = residentKib(server.pid);
            refusedGroups += sendCalls(client, name, tags, odd) == CALLS;
            EXPECT_LE(residentKib(server.pid) - before, GROWTH_LIMIT_KIB) << name << ", argument " << odd + 1;
        }
    EXPECT_GT(refusedGroups, 300u);
    close(client);
    kill(server.pid, SIGTERM);
    finishProcess(server);
}
