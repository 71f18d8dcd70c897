/*
 * session_test.cpp - which requests the session check allows, and what it writes to the session file and the log.
 */
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/driver.h"

class Session : public SwitchTest {
protected:
    /* Sends a request with `token`. True when it is served, false for the 403; else the test fails. */
    bool served(const std::string &token, const char *method = "GET", const Environment &more = {})
    {
        Environment environment = request(method, "bridge/db-dot1d-tp-aging-time", R"({"agingTime":300})");
        environment["HTTP_SESSION"] = token;
        environment["SANDBOX_UPTIME"] = "7300";
        for (const auto &[name, value] : more)
            environment[name] = value;
        std::string output = run(environment, R"({"agingTime":300})").output;
        if (output == "Status:403\r\n\r\n")
            return false;
        EXPECT_NE(output.find("\"success\""), std::string::npos) << output;
        return true;
    }

    bool servedWith(const std::string &content, const char *method = "GET", const Environment &more = {})
    {
        writeFile(tmp("session/s"), content);
        return served("s", method, more);
    }

    std::string file() const { return readFile(tmp("session/s")); }
    /* "LEVEL text" */
    bool logged(const std::string &line) const
    {
        const std::string text = log(), level = line.substr(0, line.find(' '));
        const std::string what = "] " + line.substr(level.size() + 1);
        size_t at = text.find(what), start = text.rfind(" (" + level + "): kelt_cgi: [checkSessionX:", at);
        return at != std::string::npos && start != std::string::npos && text.find(']', start) == at;
    }
    void logEverything() { writeFile(tmp("devmgr_log_level"), "7"); }
};

TEST_F(Session, allowsTheMethodsOfTheRole)
{
    EXPECT_TRUE(servedWith("admin\n7000\ns"));
    EXPECT_TRUE(servedWith("admin\n7000\ns", "PUT"));
    EXPECT_TRUE(servedWith("joe\n7000\nrw\ns"));
    EXPECT_TRUE(servedWith("joe\n7000\nrw\ns", "PUT"));
    EXPECT_TRUE(servedWith("joe\n7000\nro\ns"));
    EXPECT_TRUE(servedWith("joe\n7000\nrow\ns")); /* two characters are compared */
    EXPECT_FALSE(servedWith("joe\n7000\nro\ns", "PUT"));
    EXPECT_TRUE(logged("ERROR Permission denied, not a priviledged user\n"));
    for (const char *content : {"joe\n7000\nrx\ns", "joe\n7000\n\ns", "joe\n7000\n", "joe\n", "", "admin2\n7000\nx",
                                "Admin\n7000\ns", "\n\n\n"})
        EXPECT_FALSE(servedWith(content)) << content;
    EXPECT_TRUE(logged("ERROR Invalid priviledged level in user session\n"));
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
    EXPECT_EQ(access(tmp("session/s").c_str(), F_OK), -1);
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
    symlink(tmp("outside").c_str(), tmp("session/link").c_str());
    mkdir(tmp("session/directory").c_str(), 0700);
    mkfifo(tmp("session/pipe").c_str(), 0600);
    writeFile(tmp("session/directory/s"), "admin\n7000\ns");
    for (const char *token : {"", ".", "..", "link", "directory", "pipe", "../outside", "directory/s", "./s", "none"})
        EXPECT_FALSE(served(token)) << token;
    EXPECT_TRUE(logged("DEBUG /tmp/session/../outside file not exsits, ignore\n")) << log();
    EXPECT_FALSE(served("\033[2J\n"));
    EXPECT_TRUE(logged("DEBUG /tmp/session/?[2J? file not exsits, ignore\n")) << log();

    Environment environment = request("GET", "bridge/dot1d-stp-priority");
    environment.erase("HTTP_SESSION");
    EXPECT_EQ(run(environment).output, "Status:403\r\n\r\n");
    EXPECT_TRUE(logged("DEBUG /tmp/session/(null) file not exsits, ignore\n"));
}

/* Any client can write lines into the log that look like a session: the path of an unknown endpoint is logged. */
TEST_F(Session, isNotTheLog)
{
    Environment environment = request("GET", "0/rw");
    environment["HTTP_SESSION"] = "nobody";
    EXPECT_EQ(run(environment).output, "");
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
        const std::string then = ends ? "rm " + tmp("session/s") : "touch " + tmp("done");
        Process holder = startProcess({"flock", "-s", tmp("session/s"), "sh", "-c", "echo locked; sleep 1; " + then}, {}, "");
        char line[16];
        ASSERT_GT(read(holder.output, line, sizeof line), 0);
        EXPECT_EQ(served("s"), !ends);
        EXPECT_EQ(access(tmp("done").c_str(), F_OK), 0);
        finishProcess(holder);
        EXPECT_EQ(file(), ends ? "" : "admin\n7300\ns");
    }
    EXPECT_TRUE(logged("DEBUG /tmp/session/s file not exsits, ignore\n")) << log();
}

TEST_F(Session, needsItsDirectory)
{
    rename(tmp("session").c_str(), tmp("elsewhere").c_str());
    EXPECT_FALSE(served("token"));
    EXPECT_TRUE(logged("ERROR There is no /tmp/session: a script at boot, or the login, must make it\n")) << log();
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
