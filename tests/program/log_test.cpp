/*
 * log_test.cpp - the log as the program writes it: threshold, lines, rotation; also where other users are in the way, or
 * the file system is full or read-only.
 */
#include <fcntl.h>
#include <signal.h>

#include "tests/program/program_test.h"

using LogLevel = ProgramTest;
using LogFile = ProgramTest;
using LogFault = ProgramTest;
using FileSystemFault = ProgramTest;

static const std::string full(0x100000, 'x'); /* a log that is full with the next entry */

/* `notFound` as a whole entry. */
static const std::regex notFoundLine(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \(ERROR\): kelt_cgi: )"
                                     R"(\[httpdProcessRequest:\d+\] method not found:/api/v2/switching/nothing\n)"
                                     R"(switching\nnothing\n)");

TEST_F(LogLevel, choosesTheEntries)
{
    const std::string six("6\0\0\0", 4), seven("7\0\0\0", 4), two("2\0\0\0", 4);
    const struct { std::string before, after; bool error, debug; } rows[] = {
        {"", six, true, false}, {"7", seven, true, true}, {"2", two, false, false}, {"x", six, true, false}};
    const std::regex registered(R"(\(DEBUG\): kelt_cgi: \[initHandler:\d+\] Register RPC to OpEN success. )"
                                R"(\(client name = switching_v2.cgi_\d+\)\n)");
    for (const auto &row : rows) {
        put(tmp(LOG_FILE), FILE_OF);
        put(tmp(LEVEL_FILE), FILE_OF, row.before);
        EXPECT_EQ(logOnce(), "");
        EXPECT_EQ(readFile(tmp(LEVEL_FILE)), row.after);
        EXPECT_EQ(log().ends_with(notFound), row.error) << log();
        EXPECT_EQ(std::regex_search(log(), registered), row.debug) << log();
        EXPECT_EQ(log().find("] ORNIS Version = 9.1.0.4\n") != std::string::npos, row.debug);
        EXPECT_EQ(log().find("] Open API Version = 1.26.0.1\n") != std::string::npos, row.debug);
    }
}

TEST_F(LogFile, hasATimeOnEachLine)
{
    auto now = [] {
        char text[32];
        time_t seconds = time(nullptr) + 9 * 3600;
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:", gmtime(&seconds));
        return std::string(text);
    };
    std::string before = now();
    logOnce({{"TZ", "XXX-9"}}); /* local time, nine hours ahead of the universal one */
    EXPECT_TRUE(log().starts_with(before) || log().starts_with(now())) << log();
    EXPECT_TRUE(std::regex_match(log(), notFoundLine)) << log();
}

/* The program creates both files for all users. A new log gets the owner and the mode of the old one. */
TEST_F(LogFile, keepsModeAndOwner)
{
    auto expect = [this](const char *file, mode_t mode, uid_t owner) {
        struct stat status;
        ASSERT_EQ(stat(tmp(file).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode) << file;
        EXPECT_EQ(status.st_uid, owner) << file;
    };
    mode_t mask = umask(0);
    logOnce();
    umask(mask);
    expect(LOG_FILE, 0666, geteuid());
    expect(LEVEL_FILE, 0666, geteuid());
    for (const char *immovable : {"", "/tmp/" LOG_FILE}) {
        put(tmp(LOG_FILE), FILE_OF, full);
        const uid_t owner = giveAway(tmp(LOG_FILE)) ? 65534 : geteuid();
        EXPECT_EQ(chmod(tmp(LOG_FILE).c_str(), 0600), 0); /* lines can hold tokens */
        EXPECT_EQ(logOnce({{"SANDBOX_IMMOVABLE", immovable}}), "");
        expect(LOG_FILE, 0600, owner);
        expect(LOG_FILE ".old", 0600, owner);
    }
}

TEST_F(LogFile, isRotatedWhenItIsFull)
{
    put(tmp(LOG_FILE), FILE_OF, full);
    put(tmp(LOG_FILE ".old"), FILE_OF, "older");
    logOnce(); /* written whole to the old file */
    const std::string old = readFile(tmp(LOG_FILE ".old"));
    EXPECT_TRUE(old.starts_with(full) && old.ends_with(notFound)) << old.substr(full.size());
    EXPECT_EQ(log(), "");
    put(tmp(LOG_FILE), FILE_OF, full.substr(old.size() - full.size())); /* exactly at the limit behind this entry */
    logOnce();
    EXPECT_EQ(log().size(), full.size());
    put(tmp(LEVEL_FILE), FILE_OF, "7");
    put(tmp(LOG_FILE), FILE_OF, full); /* full with the first of several entries */
    logOnce();
    EXPECT_THAT(readFile(tmp(LOG_FILE ".old")), HasSubstr("] Register RPC"));
    EXPECT_TRUE(log().find("] Register RPC") == std::string::npos && log().ends_with(notFound)) << log();
}

/* A file that is not regular is not used as a log or level file. A file with a second name is replaced by a copy. */
TEST_F(LogFault, isNoRegularFile)
{
    const std::string others = "what must stay as it is";
    const struct { const char *what; std::string file; Kind kind; std::string content; bool logged; } rows[] = {
        {"directory", LOG_FILE, DIRECTORY, "", false},
        {"pipe", LOG_FILE, PIPE, "", false},
        {"link", LOG_FILE, LINK_TO, tmp("others"), false},
        {"link to nowhere", LOG_FILE, LINK_TO, tmp("nowhere"), false},
        {"second name", LOG_FILE, SECOND_NAME_OF, tmp("others"), true},
        {"empty level", LEVEL_FILE, FILE_OF, "", true},
        {"huge level", LEVEL_FILE, FILE_OF, std::string(3'000'000, '9'), true},
        {"directory for a level", LEVEL_FILE, DIRECTORY, "", true},
        {"pipe for a level", LEVEL_FILE, PIPE, "", true},
        {"link for a level", LEVEL_FILE, LINK_TO, tmp("others"), true},
        {"link to nowhere for a level", LEVEL_FILE, LINK_TO, tmp("nowhere"), true},
        {"second name for a level", LEVEL_FILE, SECOND_NAME_OF, tmp("others"), true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        put(tmp("others"), FILE_OF, others);
        put(tmp(LOG_FILE), FILE_OF);
        put(tmp(LEVEL_FILE), FILE_OF, "6");
        put(tmp(row.file), row.kind, row.content);
        EXPECT_EQ(outputOf(get(priority)), priorityAnswer);
        std::string printed = logOnce();
        EXPECT_TRUE(row.logged ? printed.empty() : std::regex_match(printed, notFoundLine)) << printed;
        EXPECT_EQ(readFile(tmp("others")), others);
        EXPECT_FALSE(exists(tmp("nowhere")));
        expectSessionIsWhole();
        EXPECT_TRUE(row.kind != SECOND_NAME_OF || std::filesystem::hard_link_count(tmp(row.file)) == 1);
        if (row.logged) {
            EXPECT_THAT(log(), HasSubstr(notFound));
            EXPECT_TRUE(row.file == LEVEL_FILE || log().starts_with(others)) << log();
            continue;
        }
        put(tmp(LEVEL_FILE), FILE_OF, "7");
        printed = outputOf(get(priority));
        EXPECT_TRUE(printed.ends_with(priorityAnswer) && !printed.starts_with(header)) << printed;
    }
}

/* Another user's lease must not delay requests for 45 seconds; O_CREAT cannot open another user's file. */
TEST_F(LogFault, belongsToAnotherUser)
{
    signal(SIGIO, SIG_IGN);
    for (const char *file : {LOG_FILE, LEVEL_FILE}) {
        put(tmp(file), FILE_OF, "6");
        int leased = open(tmp(file).c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(fcntl(leased, F_SETLEASE, F_RDLCK), 0);
        EXPECT_EQ(outputOf(get(priority)), priorityAnswer);
        close(leased);
        giveAway(tmp(file));
    }
    EXPECT_EQ(logOnce(), "");
    EXPECT_THAT(log(), HasSubstr(notFound));
}

/* Above 8 MiB the log loses its content, and its first line says so. Below, it keeps every line. */
TEST_F(LogFault, cannotBeRotatedAsUsual)
{
    enum Content { IN_THE_OLD_LOG, KEPT, LOST };
    const struct { const char *what, *immovable; size_t size; Content content; } rows[] = {
        {"a directory in the place of the old log", "", 0x100000, IN_THE_OLD_LOG},
        {"another user's log", "/tmp/" LOG_FILE, 0x100000, IN_THE_OLD_LOG},
        {"another user's old log", "/tmp/" LOG_FILE ".old", 0x100000, KEPT},
        {"another user's old log, a large log", "/tmp/" LOG_FILE ".old", 0x800000, LOST},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const std::string before(row.size, 'x');
        put(tmp(LOG_FILE), FILE_OF, before);
        put(tmp(LOG_FILE ".old"), DIRECTORY);
        writeFile(tmp(LOG_FILE ".old/in the way"), "");
        EXPECT_EQ(logOnce({{"SANDBOX_IMMOVABLE", row.immovable}}), "");
        const std::string old = row.content == IN_THE_OLD_LOG ? readFile(tmp(LOG_FILE ".old")) : "", all = old + log();
        EXPECT_EQ(all.starts_with(before + "20"), row.content != LOST);
        EXPECT_TRUE(all.ends_with(notFound));
        EXPECT_EQ(log().empty(), row.content == IN_THE_OLD_LOG);
        const std::regex notice(R"(^20\S+ \S+ \(ERROR\): kelt_cgi: \[rotate:\d+\] More than 8 MiB of log are lost: )"
                                R"([^\n]*\(Operation not permitted\)\n20)");
        EXPECT_EQ(std::regex_search(log().substr(0, 300), notice), row.content == LOST) << log().substr(0, 300);
    }
}

/* A process that can only read the log cannot stop rotation with a lock; one that can write it, only up to 2 MiB. */
TEST_F(LogFault, isLockedByAnotherProcess)
{
    const struct { short type; size_t size; bool rotated; } rows[] = {
        {F_RDLCK, 0x100000, true}, {F_WRLCK, 0x100000, false}, {F_WRLCK, 0x200000, true}};
    for (const auto &row : rows) {
        put(tmp(LOG_FILE), FILE_OF, std::string(row.size, 'x'));
        int held = open(tmp(LOG_FILE).c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock = {.l_type = row.type, .l_whence = SEEK_SET, .l_start = 0, .l_len = 0, .l_pid = 0};
        ASSERT_EQ(fcntl(held, F_SETLK, &lock), 0);
        EXPECT_EQ(logOnce(), "");
        EXPECT_EQ(log().empty(), row.rotated) << row.type << " " << row.size;
        close(held);
    }
}

/* As a shell does on the way to a new digit: echo 7 >/tmp/devmgr_log_level */
TEST_F(LogFault, levelFileIsTruncatedWhileRunning)
{
    writeFile(tmp(LEVEL_FILE), "7");
    command("fault " OP "NetworkOSVersionGet delay=500");
    Process process = startProcess(programCommand(), get(priority), "");
    awaitCall(OP "NetworkOSVersionGet");
    EXPECT_EQ(truncate(tmp(LEVEL_FILE).c_str(), 0), 0);
    EXPECT_EQ(outputOf(finishProcess(process)), priorityAnswer);
    EXPECT_THAT(log(), Not(HasSubstr("ORNIS"))); /* no digit is 6 */
}

/* A session that cannot be opened for writing is refused; log entries go to the standard output. */
TEST_F(FileSystemFault, isReadOnly)
{
    const Environment readOnly = {{"SANDBOX_READ_ONLY", "1"}};
    std::string output = outputOf(get(priority, readOnly));
    EXPECT_TRUE(output.ends_with("] 403 Forbidden\n" + refused)) << output;
    output = logOnce(readOnly);
    EXPECT_TRUE(std::regex_match(output, notFoundLine)) << output;
    EXPECT_EQ(session(), "admin\n0\n");
    EXPECT_FALSE(exists(tmp(LOG_FILE)));
}

/* No file can grow. The session is valid: its file needs no more space. */
TEST_F(FileSystemFault, isFull)
{
    const std::string limited = "trap '' XFSZ; ulimit -f 0; exec \"$@\"";
    for (const char *level : {"", "7"}) {
        writeFile(tmp(LEVEL_FILE), level);
        EXPECT_EQ(outputAfter(limited, get(priority)), priorityAnswer);
        EXPECT_EQ(outputAfter(limited, get("nothing")), "");
        EXPECT_EQ(session(), "admin\n0\n");
        EXPECT_EQ(log(), "");
    }
    writeFile(tmp("session/token"), "joe\n1\nro\ntoken"); /* timed out: it can still be deleted, and is */
    EXPECT_EQ(outputAfter(limited, get(priority, {{"SANDBOX_UPTIME", "9000"}})), refused);
    EXPECT_FALSE(exists(tmp("session/token")));
}

/* In a full tmpfs, a new file gets a size, but no memory for its bytes. */
TEST_F(FileSystemFault, isFullAndInMemory)
{
    if (runProcess({"unshare", "-rm", "true"}).exitStatus != 0)
        GTEST_SKIP() << "mounting is not allowed here";
    const std::string mounted = "mount -t tmpfs -o size=64k none \"$SANDBOX_TMP\" && cd \"$SANDBOX_TMP\" && "
                                "mkdir session && echo admin >session/token && { cat /dev/zero 2>&- >fill; "
                                "\"$@\"; echo \" $?\"; \"$@\"; echo \" $?\"; }";
    EXPECT_EQ(outputAfter(mounted, get(priority), {"unshare", "-rm"}),
              priorityAnswer + " 0\n" + priorityAnswer + " 0\n");
}
