/*
 * session_test.cpp - which requests the session check allows, and what it writes to the session file and the log; also
 * when the file is odd, belongs to another user, or is locked.
 */
#include <signal.h>
#include <sys/file.h>

#include <atomic>
#include <thread>

#include "tests/program/program_test.h"

static const std::string fresh = "admin\n0\n";

class Session : public ProgramTest {
protected:
    /* Sends a request with `token`. True when it is served, false for the 403; else the test fails. */
    bool served(const std::string &token, const char *method = "GET", Environment more = {})
    {
        const std::string body = R"({"agingTime":300})";
        more.merge(Environment{{"HTTP_SESSION", token}, {"SANDBOX_UPTIME", "7300"}});
        more.merge(request(method, "bridge/db-dot1d-tp-aging-time", body));
        takeTrace();
        std::string output = outputOf(more, body);
        EXPECT_EQ(takeTrace().empty(), output == refused);
        EXPECT_TRUE(output == refused || output.find("\"success\"") != std::string::npos) << output;
        return output != refused;
    }

    bool servedWith(const std::string &content, const char *method = "GET", const Environment &more = {})
    {
        put(tmp("session/s"), FILE_OF, content);
        return served("s", method, more);
    }

    std::string file() const { return readFile(tmp("session/s")); }
    void logEverything() { writeFile(tmp(LEVEL_FILE), "7"); }

    /* Whether the session check has logged "LEVEL text". */
    bool logged(const std::string &line) const
    {
        const std::string text = log(), level = line.substr(0, line.find(' '));
        const std::string what = "] " + line.substr(level.size() + 1);
        size_t at = text.find(what), start = text.rfind(" (" + level + "): kelt_cgi: [checkSessionX:", at);
        return at != std::string::npos && start != std::string::npos && text.find(']', start) == at;
    }
};

TEST_F(Session, allowsTheMethodsOfTheRole)
{
    for (const char *content : {"admin\n7000\ns", "joe\n7000\nrw\ns", "joe\n7000\nro\ns", "joe\n7000\nrow\ns"}) {
        EXPECT_TRUE(servedWith(content)) << content; /* two characters are compared */
        EXPECT_EQ(servedWith(content, "PUT"), !strstr(content, "ro")) << content;
    }
    EXPECT_TRUE(logged("ERROR Permission denied, not a priviledged user\n"));
    for (const char *content : {"joe\n7000\nrx\ns", "joe\n7000\n\ns", "joe\n7000\n", "joe\n", "", "admin2\n7000\nx",
                                "Admin\n7000\ns", "\n\n\n", "joe\n7000\nRW\ns"})
        EXPECT_FALSE(servedWith(content)) << content;
    EXPECT_TRUE(logged("ERROR Invalid priviledged level in user session\n"));
}

TEST_F(Session, mayHaveOddContent)
{
    const std::string huge(5'000'000, 'x');
    const struct { const char *what; bool served; std::string content; } rows[] = {
        {"the administrator's without its newline", false, "admin"},
        {"nothing behind the administrator's", true, "admin\n"}, /* no stamp, no time-out */
        {"half a stamp", false, "joe\n70"},
        {"a zero in the administrator's name", false, std::string("admin\0\n7000\ns", 13)},
        {"a zero in the role", false, std::string("joe\n7000\n\0rw\ns", 14)},
        {"a carriage return", false, "admin\r\n7000\r\ns"},
        {"megabytes", false, huge},
        {"megabytes behind the administrator's name", false, "admin" + huge},
        {"a stamp of megabytes", false, "joe\n" + huge + "\nrw\ns"},
        {"megabytes behind a session", true, "joe\n7000\nrw\ns" + huge},
        {"newlines", false, std::string(5'000'000, '\n')},
        {"a stamp out of range", true, "joe\n99999999999999999999999\nrw\ns"}, /* lies ahead */
    };
    for (const auto &row : rows)
        EXPECT_EQ(servedWith(row.content), row.served) << row.what;
}

TEST_F(Session, renewsItsStamp)
{
    EXPECT_TRUE(servedWith("admin\n7000\ns"));
    EXPECT_EQ(file(), "admin\n7300\ns");
    EXPECT_TRUE(servedWith("joe\n7000\nrw\ns", "PUT"));
    EXPECT_EQ(file(), "joe\n7300\nrw\ns");
    EXPECT_TRUE(servedWith("admin\n123456789\nabcdef")); /* rewritten, never shortened */
    EXPECT_EQ(file(), "admin\n7300\ns789\nabcdef");
    EXPECT_TRUE(servedWith("joe\n7000\nrw\nold", "GET", {{"HTTP_REFRESH", ""}}));
    EXPECT_EQ(file(), "joe\n7000\nrw\nold");
    EXPECT_FALSE(servedWith("joe\n7000\nro\nold", "PUT"));
    EXPECT_EQ(file(), "joe\n7000\nro\nold");
}

TEST_F(Session, endsAfterTwoHours)
{
    EXPECT_TRUE(servedWith("joe\n100\nrw\ns"));
    EXPECT_FALSE(servedWith("joe\n99\nrw\ns"));
    EXPECT_FALSE(exists(tmp("session/s")));
    EXPECT_TRUE(logged("INFO Token timeout(7300 - 99).please login again. "
                       "(userName: joe\n timestamp: 99\n)\r\n")) << log();
    EXPECT_FALSE(served("s"));
    EXPECT_TRUE(servedWith("joe\n0\nrw\ns"));
    EXPECT_TRUE(servedWith("joe\nsoon\nrw\ns"));
    EXPECT_TRUE(servedWith("joe\n999999\nrw\ns")); /* before the last reboot */
    EXPECT_FALSE(servedWith("joe\n-9223372036854775808\nrw\ns"));
    EXPECT_FALSE(servedWith("joe\n7000\nrw\ns", "GET", {{"SANDBOX_UPTIME", "fail"}}));
    EXPECT_TRUE(logged("ERROR Failed to get sysinfo\r\n"));
}

TEST_F(Session, isAFileDirectlyInItsDirectory)
{
    logEverything();
    writeFile(tmp("outside"), "admin\n7000\ns");
    put(tmp("session/link"), LINK_TO, tmp("outside"));
    put(tmp("session/device"), LINK_TO, "/dev/zero");
    put(tmp("session/directory"), DIRECTORY);
    put(tmp("session/pipe"), PIPE);
    writeFile(tmp("session/directory/s"), "admin\n7000\ns");
    for (const char *token :
         {"", ".", "..", "link", "device", "directory", "pipe", "../outside", "directory/s", "./s", "none"})
        EXPECT_FALSE(served(token)) << token;
    EXPECT_TRUE(logged("DEBUG /tmp/session/../outside file not exsits, ignore\n")) << log();
    EXPECT_FALSE(served("\033[2J\n"));
    EXPECT_TRUE(logged("DEBUG /tmp/session/?[2J? file not exsits, ignore\n")) << log();

    Environment environment = get(priority);
    environment.erase("HTTP_SESSION");
    EXPECT_EQ(outputOf(environment), refused);
    EXPECT_TRUE(logged("DEBUG /tmp/session/(null) file not exsits, ignore\n"));
}

/* Any client can write lines into the log that look like a session: the path of an unknown endpoint is logged. */
TEST_F(Session, isNotTheLog)
{
    EXPECT_EQ(outputOf(get("0/rw")), "");
    std::string lines = log();
    ASSERT_NE(lines.find("\n0\nrw\n"), std::string::npos) << lines;
    EXPECT_FALSE(served("../zt731.log", "PUT"));
    EXPECT_EQ(log().substr(0, lines.size()), lines);
}

TEST_F(Session, logsTheRefresh)
{
    logEverything();
    EXPECT_TRUE(servedWith("joe\n7000\nrw\ns"));
    EXPECT_TRUE(logged("DEBUG Token update to file. (joe\n7300\nrw\ns)\r\n")) << log();
    writeFile(tmp("session/\033"), "admin\n7000\n");
    EXPECT_TRUE(served("\033"));
    EXPECT_TRUE(logged("DEBUG Token update to file. (admin\n7300\n?)\r\n")) << log();
    EXPECT_EQ(readFile(tmp("session/\033")), "admin\n7300\n\033");
}

/* Also while another process holds a shared lock. A session that ends meanwhile is refused. */
TEST_F(Session, waitsForTheLock)
{
    logEverything();
    for (const bool ends : {false, true}) {
        writeFile(tmp("session/s"), "admin\n7000\ns");
        const std::string then = "echo locked; sleep 0.4; " + (ends ? "rm " + tmp("session/s") : "touch " + tmp("done"));
        Process holder = startProcess({"flock", "-s", tmp("session/s"), "sh", "-c", then}, {}, "");
        char line[16];
        ASSERT_GT(read(holder.output, line, sizeof line), 0);
        EXPECT_EQ(served("s"), !ends);
        EXPECT_TRUE(exists(tmp("done")));
        finishProcess(holder);
        EXPECT_EQ(file(), ends ? "" : "admin\n7300\ns");
    }
    EXPECT_TRUE(logged("DEBUG /tmp/session/s file not exsits, ignore\n")) << log();
}

/* The limits: 199 bytes of a name and of a stamp, 15 of a role, 255 of the text that is written. */
TEST_F(Session, holdsTheLongestLines)
{
    const std::string user = std::string(198, 'u') + "\n", role = "rw" + std::string(12, 'r') + "\n";
    const std::string stamp = std::string(194, ' ') + "7000\n", token(60, 't'), old(60, 'o');
    EXPECT_TRUE(servedWith(user + stamp + "rw\ns"));
    writeFile(tmp("session/" + token), user + "7000\n" + role + old);
    EXPECT_TRUE(served(token));
    EXPECT_EQ(readFile(tmp("session/" + token)), user + "7300\n" + role + token.substr(0, 36) + old.substr(36));
}

/* Any user can make files under /tmp: only session files of root and of the program's user count. */
TEST_F(Session, mustNotBelongToAnotherUser)
{
    const std::string wrong = "is refused: it must be a directory";
    const std::string belongs = "is refused: it belongs to user 65534, not to root";
    const struct { const char *what; std::string path; Kind kind; std::string content, logged; } rows[] = {
        {"another user's directory", "session", DIRECTORY, "", "/tmp/session " + belongs},
        {"another user's file", "session/token", FILE_OF, fresh, "A file in /tmp/session " + belongs},
        {"a second name of a session", "session/token", SECOND_NAME_OF, tmp("mine"), ""},
        {"a link to a directory", "session", LINK_TO, tmp("my sessions"), "/tmp/session " + wrong},
        {"no directory", "session", FILE_OF, "", "/tmp/session " + wrong},
        {"nothing", "session", ABSENT, "", "There is no /tmp/session: a script at boot, or the login, must make it\n"},
    };
    put(tmp("mine"), FILE_OF, fresh);
    put(tmp("my sessions"), DIRECTORY);
    writeFile(tmp("my sessions/token"), fresh);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        put(tmp("session"), DIRECTORY);
        put(tmp(row.path), row.kind, row.content);
        if (row.kind == DIRECTORY)
            writeFile(tmp("session/token"), fresh);
        if (row.logged.find("belongs") != std::string::npos && !giveAway(tmp(row.path)))
            continue;
        EXPECT_EQ(outputOf(get(priority)), refused);
        EXPECT_THAT(log(), HasSubstr("] " + row.logged));
        EXPECT_EQ(takeTrace(), "");
        put(tmp(LOG_FILE), FILE_OF);
    }
}

/*
 * After ten seconds the request is refused, also if the web server has blocked the signal of the timer. (Here after one
 * second: the timer is fast.)
 */
TEST_F(Session, isLockedForLongerThanTheLimit)
{
    const Environment fast = get(priority, {{"SANDBOX_FAST_TIMER", "1"}});
    int held = open(tmp("session/token").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    Clock::time_point start = Clock::now();
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    Process process = startProcess(programCommand(), fast, "");
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    EXPECT_EQ(outputOf(fast), refused);
    EXPECT_GE(Clock::now() - start, 1s);
    EXPECT_EQ(outputOf(finishProcess(process)), refused);
    EXPECT_LT(Clock::now() - start, 4s);
    EXPECT_TRUE(logged("ERROR File lock failed\n"));
    EXPECT_EQ(session(), fresh);
    EXPECT_EQ(takeTrace(), "");
    close(held);
}

/* A process that locks the session again and again does not keep other requests out. */
TEST_F(Session, isLockedAgainAndAgain)
{
    int held = open(tmp("session/token").c_str(), O_RDWR | O_CLOEXEC);
    std::atomic<bool> served = false;
    std::thread neighbour([&] {
        while (!served && flock(held, LOCK_EX) == 0 && usleep(20'000) == 0)
            flock(held, LOCK_UN);
    });
    Clock::time_point start = Clock::now();
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(outputOf(get(priority)), priorityAnswer);
    EXPECT_LT(Clock::now() - start, 3s);
    served = true;
    neighbour.join();
    close(held);
}
