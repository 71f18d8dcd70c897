/*
 * dispatch_test.cpp - from the CGI environment to the handler, or to no handler.
 */
#include "tests/support/driver.h"

class Dispatch : public SwitchTest {
protected:
    /* Runs a request with this path and method; the query string stays empty. */
    Outcome ask(const char *uri, const char *method)
    {
        Environment environment = request("GET", "");
        environment.erase("REQUEST_URI");
        environment.erase("REQUEST_METHOD");
        if (uri)
            environment["REQUEST_URI"] = uri;
        if (method)
            environment["REQUEST_METHOD"] = method;
        Outcome outcome = run(environment);
        EXPECT_EQ(outcome.exitStatus, 0);
        return outcome;
    }
};

static const char *priority = "/api/v2/switching/bridge/dot1d-stp-priority";

TEST_F(Dispatch, findsTheHandler)
{
    const std::string answer = header + success(R"("bridge":{"priority":32768})");
    EXPECT_EQ(ask(priority, "GET").output, answer);
    EXPECT_EQ(ask(priority, "get").output, answer);
    EXPECT_EQ(ask("/api/v2/switching//bridge/dot1d-stp-priority?x=1", "GET").output, answer);
    /* without the prefix no header is written */
    EXPECT_EQ(ask("/api//v2/switching/bridge/dot1d-stp-priority", "GET").output,
              success(R"("bridge":{"priority":32768})"));
}

TEST_F(Dispatch, answersNothingToWhatItDoesNotKnow)
{
    const struct { const char *uri, *method; } rows[] = {
        {"/api/v2/switching/Bridge/dot1d-stp-priority", "GET"},
        {"/api/v2/switching/bridge/DOT1D-stp-priority", "GET"},
        {"/api/v2/switching/bridg/dot1d-stp-priority", "GET"},
        {"/api/v2/switching/bridges/dot1d-stp-priority", "GET"},
        {"/api/v2/switching/bridge/dot1d-stp-priorit", "GET"},
        {"/api/v2/switching/bridge/dot1d-stp-priority/", "GET"},
        {"/api/v2/switching/bridge/dot1d-stp-priority;x", "GET"},
        {"/api/v2/switching/bridge/dot1d-stp-priority?a=/b", "GET"},
        {"/api/v2/switching/bridge", "GET"},
        {"/dot1d-stp-priority", "GET"},
        {"/", "GET"},
        {priority, "PUT"},
        {priority, ""},
        {priority, nullptr},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(row.uri, row.method).output, "") << row.uri;
    EXPECT_EQ(ask(nullptr, "GET").output, "");
    EXPECT_EQ(takeTrace(), "");

    std::string text = log();
    EXPECT_NE(text.find("] method not found:/api/v2/switching/bridge/dot1d-stp-priority?a=/b\n"
                        "dot1d-stp-priority?a=\nb\n"), std::string::npos) << text;
    EXPECT_NE(text.find("(ERROR): kelt_cgi: [httpdProcessRequest:"), std::string::npos) << text;
    EXPECT_NE(text.find("] method not found:/\n\n\n"), std::string::npos) << text;
}

/* Control bytes of a client do not reach a terminal that shows the log. A masked path is no endpoint either. */
TEST_F(Dispatch, masksControlBytesInTheLog)
{
    ask((std::string(priority) + "\033").c_str(), "GET");
    ask("/\r\n\t\001x/\033[2J\177\037 \303\274?\n", "GET");
    ask("/\302\233\302\240\303\234\342\202\254/\2332J\360\237\230\200\302", "GET"); /* U+009B is CSI, too */
    for (const std::string &entry : {"] method not found:" + std::string(priority) + "?\nbridge\ndot1d-stp-priority?\n",
                                    std::string("] method not found:/????x/?[2J?? \303\274??\n????x\n?[2J?? \303\274\n"),
                                    std::string("\n??\302\240\303\234\342\202\254\n?2J\360\237\230\200\302\n")})
        EXPECT_NE(log().find(entry), std::string::npos) << log();
    EXPECT_EQ(takeTrace(), "");
}

TEST_F(Dispatch, namesAPathWithoutASlash)
{
    EXPECT_EQ(ask("nonsense", "GET").output, "Invalid request path 'nonsense'\n");
    EXPECT_EQ(ask(std::string(3000, 'x').c_str(), "GET").output,
              "Invalid request path '" + std::string(1023, 'x') + "'\n");
    EXPECT_EQ(ask(("/" + std::string(3000, 'x')).c_str(), "GET").output, "");
}
