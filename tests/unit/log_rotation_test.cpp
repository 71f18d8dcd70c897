/*
 * log_rotation_test.cpp - many processes that log at once, faster than requests can, while the log becomes full.
 */
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>

#include "log/log.h"
#include "tests/support/driver.h"

enum { WRITERS = 8, ENTRIES = 20, ENTRY_BYTES = 6000 };

static std::string message(int writer, int number)
{
    std::string mark = std::to_string(writer) + "/" + std::to_string(number);
    return mark + std::string(ENTRY_BYTES, (char)('a' + number)) + mark + "\n";
}

/* Opens and closes the log for each entry, as processes with one entry each do. */
static void writeEntries(int writer)
{
    for (int number = 0; number < ENTRIES; number++) {
        logOpen(LOG_TO_FILE, LOG_USER, "kelt_cgi");
        logWrite(LEVEL_ERROR, "%s", message(writer, number).c_str());
        logClose();
    }
}

/*
 * All writers begin together. Meanwhile, a symbolic link must never take the place of the log, and whatever takes the
 * place of the old log changes nothing.
 */
static void writeAtOnce(const std::string &log)
{
    const std::string old = log + ".old";
    std::filesystem::remove_all(old);
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    for (int writer = 0; writer < WRITERS; writer++)
        if (fork() == 0) {
            char byte;
            close(start[1]);
            if (read(start[0], &byte, 1) == 0) /* until all writers are there */
                writeEntries(writer);
            _exit(0);
        }
    close(start[0]);
    close(start[1]);
    for (int turn = 0; waitpid(-1, nullptr, WNOHANG) >= 0; turn++) {
        EXPECT_NE(symlink("/nowhere", log.c_str()), 0);
        [[maybe_unused]] int made = turn % 2 ? symlink("/nowhere", old.c_str()) : mkdir(old.c_str(), 0700);
    }
}

/* The old log keeps the content of the full one, and every entry is whole in one of the two. */
TEST(LogRotation, losesAndTearsNothing)
{
    const std::string tmp = enterSandbox("rotation"), full(0x100000 - 400'000, '\n');
    for (int round = 0; round < 15; round++) {
        writeFile(tmp + "/zt731.log", full);
        writeAtOnce(tmp + "/zt731.log");
        const std::string old = readFile(tmp + "/zt731.log.old");
        ASSERT_TRUE(old.starts_with(full) && old.size() > 0x100000) << old.size();
        const std::string all = old.substr(full.size()) + readFile(tmp + "/zt731.log");
        for (int writer = 0; writer < WRITERS; writer++)
            for (int number = 0; number < ENTRIES; number++)
                ASSERT_NE(all.find(": " + message(writer, number)), std::string::npos) << writer << "/" << number;
    }
}
