/*
 * session_test.cpp - the session check for needs that no endpoint has, SESSION_ADMIN and SESSION_NONE, and what it leaves
 * behind in its process.
 */
#include "httpd/session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/time.h>
#include <unistd.h>

#include <thread>

#include "log/log.h"
#include "tests/support/driver.h"

/* The result of the check for a session of this content. */
static int check(const char *content, uint32_t method, uint32_t need)
{
    static const std::string tmp = enterSandbox("session-check");
    writeFile(tmp + "/session/t", content);
    RouteEntry entry = {"", method, need, nullptr, nullptr};
    return checkSessionX("t", nullptr, &entry);
}

TEST(SessionCheck, dependsOnWhatTheEndpointNeeds)
{
    EXPECT_EQ(check("admin\n0\nt", HTTP_PUT, SESSION_ADMIN), 0);
    EXPECT_EQ(check("joe\n0\nrw\nt", HTTP_GET, SESSION_ADMIN), -1);
    EXPECT_EQ(check("joe\n0\nro\nt", HTTP_GET, SESSION_ADMIN), -1);
    EXPECT_EQ(check("joe\n0\nrw\nt", HTTP_DELETE, SESSION_NONE), 0);
    EXPECT_EQ(check("joe\n0\nro\nt", HTTP_DELETE, SESSION_NONE), -1);
    EXPECT_EQ(check("joe\n0\nro\nt", HTTP_GET, SESSION_NONE), 0);
}

static void onAlarm(int)
{
}

/* The wait for a locked session uses a timer and its signal. Both are as before when it ends. */
TEST(SessionCheck, leavesTheAlarmAlone)
{
    EXPECT_EQ(check("admin\n0\nt", HTTP_GET, SESSION_ANY), 0);
    int held = open((scratchDirectory() + "/session-check/session/t").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    signal(SIGALRM, onAlarm);
    sigset_t alarm, mask;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    ::alarm(1000);

    std::thread holder([held] {
        usleep(100'000);
        close(held);
    });
    EXPECT_EQ(check("admin\n0\nt", HTTP_GET, SESSION_ANY), 0);
    holder.join();

    pthread_sigmask(SIG_UNBLOCK, &alarm, &mask);
    EXPECT_TRUE(sigismember(&mask, SIGALRM));
    EXPECT_GT(::alarm(0), 900u);
    EXPECT_EQ(signal(SIGALRM, SIG_DFL), onAlarm);
}
