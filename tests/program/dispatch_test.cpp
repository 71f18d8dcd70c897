/*
 * dispatch_test.cpp - from the CGI environment to the handler, or to no handler.
 */
#include "tests/program/program_test.h"

static const std::string path = "/api/v2/switching/" + priority;

class Dispatch : public ProgramTest {
protected:
    /* The output for this path and method (null: there is none); the query string is empty. */
    std::string ask(const std::string &uri, const char *method = "GET")
    {
        Environment environment = get("", {{"REQUEST_URI", uri}});
        environment.erase("REQUEST_METHOD");
        if (method)
            environment["REQUEST_METHOD"] = method;
        return outputOf(environment);
    }
};

TEST_F(Dispatch, findsTheHandler)
{
    EXPECT_EQ(ask(path), priorityAnswer);
    EXPECT_EQ(ask(path, "get"), priorityAnswer);
    EXPECT_EQ(ask("/api/v2/switching//" + priority + "?x=1"), priorityAnswer);
    EXPECT_EQ(ask("/api//v2/switching/" + priority), priorityData); /* without the prefix no header is written */
}

TEST_F(Dispatch, answersNothingToWhatItDoesNotKnow)
{
    for (const std::string uri :
         {"Bridge/dot1d-stp-priority", "bridge/DOT1D-stp-priority", "bridg/dot1d-stp-priority",
          "bridges/dot1d-stp-priority", "bridge/dot1d-stp-priorit", "bridge/dot1d-stp-priority/",
          "bridge/dot1d-stp-priority;x", "bridge/dot1d-stp-priority?a=/b", "bridge"})
        EXPECT_EQ(ask("/api/v2/switching/" + uri), "") << uri;
    EXPECT_EQ(ask("/dot1d-stp-priority") + ask("/") + ask(path, "PUT") + ask(path, "") + ask(path, nullptr), "");
    Environment environment = get(priority);
    environment.erase("REQUEST_URI");
    EXPECT_EQ(outputOf(environment), "");
    EXPECT_EQ(takeTrace(), "");

    EXPECT_THAT(log(), HasSubstr("] method not found:/api/v2/switching/bridge/dot1d-stp-priority?a=/b\n"
                                 "dot1d-stp-priority?a=\nb\n"));
    EXPECT_THAT(log(), HasSubstr("(ERROR): kelt_cgi: [httpdProcessRequest:"));
    EXPECT_THAT(log(), HasSubstr("] method not found:/\n\n\n"));
}

/* Control bytes of a client do not reach a terminal that shows the log. A masked path is no endpoint either. */
TEST_F(Dispatch, masksControlBytesInTheLog)
{
    ask(path + "\033");
    ask("/\r\n\t\001x/\033[2J\177\037 \303\274?\n");
    ask("/\302\233\302\240\303\234\342\202\254/\2332J\360\237\230\200\302"); /* U+009B is CSI, too */
    for (const std::string &entry :
         {"] method not found:" + path + "?\nbridge\ndot1d-stp-priority?\n",
          std::string("] method not found:/????x/?[2J?? \303\274??\n????x\n?[2J?? \303\274\n"),
          std::string("\n??\302\240\303\234\342\202\254\n?2J\360\237\230\200\302\n")})
        EXPECT_THAT(log(), HasSubstr(entry));
    EXPECT_EQ(takeTrace(), "");
}

TEST_F(Dispatch, namesAPathWithoutASlash)
{
    EXPECT_EQ(ask("nonsense"), "Invalid request path 'nonsense'\n");
    EXPECT_EQ(ask(std::string(3000, 'x')), "Invalid request path '" + std::string(1023, 'x') + "'\n");
    EXPECT_EQ(ask("/" + std::string(3000, 'x')), "");
}
