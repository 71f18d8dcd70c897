/*
 * session_test.cpp - the session check for needs that no endpoint of the program has, SESSION_ADMIN and SESSION_NONE, and
 * what it leaves behind in its process.
 */
#include "httpd/session.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "log/log.h"
#include "tests/support/driver.h"

class Session : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(tmp + "/session");
        setenv("SANDBOX_TMP", tmp.c_str(), 1);
        logOpen(LOG_TO_FILE, LOG_USER, "");
    }

    void TearDown() override
    {
        logClose();
        unsetenv("SANDBOX_TMP");
    }

    const std::string tmp = scratchDirectory() + "/session-check";
};

TEST_F(Session, isCheckedForWhatTheEndpointNeeds)
{
    const struct { const char *content; uint32_t method, need; int result; } rows[] = {
        {"admin\n0\nt", HTTP_PUT, SESSION_ADMIN, 0}, {"joe\n0\nrw\nt", HTTP_GET, SESSION_ADMIN, -1},
        {"joe\n0\nro\nt", HTTP_GET, SESSION_ADMIN, -1}, {"joe\n0\nrw\nt", HTTP_DELETE, SESSION_NONE, 0},
        {"joe\n0\nro\nt", HTTP_DELETE, SESSION_NONE, -1}, {"joe\n0\nro\nt", HTTP_GET, SESSION_NONE, 0},
    };
    for (const auto &row : rows) {
        writeFile(tmp + "/session/t", row.content);
        RouteEntry entry = {"", row.method, row.need, nullptr, nullptr};
        EXPECT_EQ(checkSessionX("t", nullptr, &entry), row.result) << row.content << " " << row.need;
    }
}

static void onAlarm(int)
{
}

/* The wait for a locked session uses a timer and its signal. Both are as before when it ends. */
TEST_F(Session, leavesTheAlarmAlone)
{
    writeFile(tmp + "/session/t", "admin\n0\nt");
    int held = open((tmp + "/session/t").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    struct sigaction action = {}, after;
    action.sa_handler = onAlarm;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm, mask;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    ::alarm(1000);

    std::thread holder([held] {
        usleep(100'000);
        flock(held, LOCK_UN);
    });
    RouteEntry entry = {"", HTTP_GET, SESSION_ANY, nullptr, nullptr};
    EXPECT_EQ(checkSessionX("t", nullptr, &entry), 0);
    holder.join();
    close(held);

    struct itimerval timer;
    sigaction(SIGALRM, nullptr, &after);
    pthread_sigmask(SIG_UNBLOCK, &alarm, &mask);
    getitimer(ITIMER_REAL, &timer);
    ::alarm(0);
    signal(SIGALRM, SIG_DFL);
    EXPECT_EQ(after.sa_handler, onAlarm);
    EXPECT_TRUE(sigismember(&mask, SIGALRM));
    EXPECT_GT(timer.it_value.tv_sec, 900);
}
