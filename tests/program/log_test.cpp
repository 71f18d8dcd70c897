/*
 * log_test.cpp - the log as the program writes it: threshold, lines, rotation, and what happens when it cannot.
 */
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "tests/support/driver.h"

class LogFile : public SwitchTest {
protected:
    /* A request that logs one ERROR line, and DEBUG lines besides. */
    Outcome logOnce() { return run(request("GET", "nothing")); }
    std::string level() const { return readFile(tmp("devmgr_log_level")); }
    static size_t lines(const std::string &text) { return (size_t)std::count(text.begin(), text.end(), '\n'); }
};

using LogLevel = LogFile;

TEST_F(LogLevel, choosesTheEntries)
{
    logOnce();
    EXPECT_EQ(level(), std::string("6\0\0\0", 4));
    EXPECT_EQ(lines(log()), 3u); /* one entry of three lines */

    writeFile(tmp("devmgr_log_level"), "7");
    logOnce();
    EXPECT_EQ(level(), std::string("7\0\0\0", 4));
    std::string text = log();
    const std::regex registered(R"(\(DEBUG\): kelt_cgi: \[initHandler:\d+\] Register RPC to OpEN success. )"
                                R"(\(client name = switching_v2.cgi_\d+\)\n)");
    EXPECT_TRUE(std::regex_search(text, registered)) << text;
    EXPECT_NE(text.find("] ORNIS Version = 9.1.0.4\n"), std::string::npos);
    EXPECT_NE(text.find("] Open API Version = 1.26.0.1\n"), std::string::npos);

    for (const char *low : {"2", "0"}) {
        size_t before = log().size();
        writeFile(tmp("devmgr_log_level"), low);
        logOnce();
        EXPECT_EQ(log().size(), before) << low;
    }
    writeFile(tmp("devmgr_log_level"), "x");
    logOnce();
    EXPECT_EQ(level(), std::string("6\0\0\0", 4));
}

TEST_F(LogFile, hasATimeOnEachLine)
{
    auto now = [] {
        char text[32];
        time_t seconds = time(nullptr);
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:", localtime(&seconds));
        return std::string(text);
    };
    std::string before = now();
    logOnce();
    EXPECT_TRUE(log().starts_with(before) || log().starts_with(now())) << log();
    const std::regex seconds(R"(^\d\d\.\d{3} \(ERROR\): kelt_cgi: \[)");
    EXPECT_TRUE(std::regex_search(log().substr(before.size()), seconds)) << log();
}

TEST_F(LogFile, canBeWrittenByOtherUsers)
{
    mode_t mask = umask(0);
    logOnce();
    umask(mask);
    for (const char *name : {"zt731.log", "devmgr_log_level"}) {
        struct stat status;
        ASSERT_EQ(stat(tmp(name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0666u) << name;
    }
}

TEST_F(LogFile, isRotatedWhenItIsFull)
{
    std::string full(0x100000, 'x');
    writeFile(tmp("zt731.log"), full);
    writeFile(tmp("zt731.log.old"), "older");
    logOnce(); /* written whole to the old file */
    EXPECT_EQ(log(), "");
    EXPECT_EQ(readFile(tmp("zt731.log.old")).substr(0, full.size()), full);
    EXPECT_NE(readFile(tmp("zt731.log.old")).find("nothing\n", full.size()), std::string::npos);
    logOnce();
    EXPECT_EQ(lines(log()), 3u);
    writeFile(tmp("zt731.log"), full.substr(0x1000)); /* not yet full */
    logOnce();
    EXPECT_GT(log().size(), full.size() - 0x1000);
    size_t entry = log().size() - (full.size() - 0x1000);
    writeFile(tmp("zt731.log"), full.substr(entry)); /* exactly at the limit behind this entry */
    logOnce();
    EXPECT_EQ(log().size(), full.size());
    writeFile(tmp("devmgr_log_level"), "7");
    writeFile(tmp("zt731.log"), full); /* full with the first of several entries */
    logOnce();
    EXPECT_NE(readFile(tmp("zt731.log.old")).find("] Register RPC"), std::string::npos);
    EXPECT_TRUE(log().find("] Register RPC") == std::string::npos && log().ends_with("nothing\n")) << log();
}
