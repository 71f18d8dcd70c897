/*
 * session_test.cpp - the session check for needs that no endpoint of the program has: SESSION_ADMIN and SESSION_NONE.
 */
#include "httpd/session.h"

#include <syslog.h>

#include <filesystem>

#include "log/log.h"
#include "tests/support/driver.h"

TEST(Session, isCheckedForWhatTheEndpointNeeds)
{
    const std::string tmp = scratchDirectory() + "/session-check";
    std::filesystem::create_directories(tmp + "/session");
    setenv("SANDBOX_TMP", tmp.c_str(), 1);
    logOpen(LOG_TO_FILE, LOG_USER, "");
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
    logClose();
    unsetenv("SANDBOX_TMP");
}
