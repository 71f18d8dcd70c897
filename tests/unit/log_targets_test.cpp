/*
 * log_targets_test.cpp - the targets of the log that no request uses: standard output, syslog, and no logOpen at all.
 */
#include <stdarg.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "log/log.h"
#include "tests/support/driver.h"

/* What the C library would send to syslog. */
static std::string logged;

extern "C" void openlog(const char *identity, int, int facility)
{
    logged += std::string(identity ? identity : "(null)") + " " + std::to_string(facility) + ": ";
}

extern "C" __attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char *format, va_list arguments)
{
    char text[256];
    vsnprintf(text, sizeof text, format, arguments);
    logged += std::to_string(priority) + " " + text;
}

extern "C" __attribute__((format(printf, 3, 0)))
void __vsyslog_chk(int priority, int, const char *format, va_list arguments)
{
    vsyslog(priority, format, arguments);
}

/* Runs `use` in a new process, whose log is not open yet. Returns what it prints, "|", and what it sends to syslog. */
static std::string printed(void (*use)())
{
    const std::string path = scratchDirectory() + "/printed";
    fflush(stdout);
    if (fork() == 0) {
        (void)!freopen(path.c_str(), "w", stdout);
        use();
        printf("|%s", logged.c_str());
        fflush(stdout);
        _exit(0);
    }
    wait(nullptr);
    return readFile(path);
}

TEST(LogTargets, getTheEntriesMeantForThem)
{
    using ::testing::MatchesRegex;
    const std::string tmp = enterSandbox("logger");
    EXPECT_THAT(printed([] { logWrite(LEVEL_WARN, "%d\n", 7); }), MatchesRegex(".* \\(WARN\\): : 7\n\\|"));
    EXPECT_THAT(printed([] {
                    logOpen(LOG_TO_STDOUT | LOG_TO_SYSLOG, LOG_DAEMON, "me");
                    logWrite(LEVEL_DEBUG, "not at this level\n");
                    logWrite(LEVEL_INFO, "%d\n", 7);
                    logOpen(LOG_TO_SYSLOG, LOG_USER, nullptr);
                    logWrite(LEVEL_NOTICE, "8\n");
                    logClose();
                }),
                MatchesRegex(".* \\(INFO\\): me: 7\n\\|me 24: 6 7\nunit_tests 8: 5 8\n"));
    EXPECT_THAT(printed([] {
                    logOpen(LOG_TO_FILE, LOG_USER, nullptr);
                    unlink("/tmp/zt731.log"); /* another process deletes the log */
                    logWrite(LEVEL_ERROR, "9\n");
                    logClose();
                }), "|");
    EXPECT_THAT(readFile(tmp + "/zt731.log"), MatchesRegex(".* \\(ERROR\\): unit_tests: 9\n"));

    const std::string cut = printed([] { /* longer than the logger's buffer */
        logOpen(LOG_TO_FILE | LOG_TO_STDOUT, LOG_USER, nullptr);
        logWrite(LEVEL_ERROR, "%s\n", std::string(200'000, 'x').c_str());
        logClose();
    });
    EXPECT_TRUE(cut.ends_with("xxx\n|"));
    EXPECT_TRUE(readFile(tmp + "/zt731.log").ends_with("9\n" + cut.substr(0, cut.size() - 1)));
}
