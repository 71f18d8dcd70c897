/*
 * response_test.cpp - result codes and the two envelope builders.
 */
#include "common/response.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tests/support/driver.h"

TEST(ResultCodes, haveMessagesAndAreMadeOfAnyCode)
{
    for (int code : {INT32_MIN, -30, 1, INT32_MAX}) /* the proof has the others */
        EXPECT_EQ(openResult(code), ResultCode::GENERAL_FAILED) << code;
    const std::pair<int, const char *> rows[] = {{0, "Success"}, {10024, "HTTP method is not suported for this request"},
        {11000, ""}, {-7, "Failed to allocate memory"}, {-204, "Invalid user, user does not exist"}, {12, "Error code unknown"}};
    for (auto [code, message] : rows)
        EXPECT_STREQ(resultMessage(ResultCode{code}), message);
}

/* Both builders: what they answer, and what their output holds then. At first it holds "old", and the buffer is zero. */
TEST(Envelope, holdsDataOnlyOnSuccess)
{
    const std::string plain = success(""), withData = success(R"("bridge":{"a":1})");
    const std::string failed = failure(-204, "Invalid user, user does not exist");
    const struct { int code; const char *name, *data; int result; std::string allocated; int inBuffer; std::string fixed; } rows[] = {
        {0, "bridge", "{\"a\":1}", 0, withData, 0, withData},
        {0, "bridge", nullptr, 0, plain, -1, ""}, /* a name wants data in a fixed buffer */
        {0, nullptr, "{\"a\":1}", 0, plain, 0, plain},
        {-204, "bridge", "{\"a\":1}", 0, failed, 0, failed},
        {0, "bridge", "no JSON", 10000, "old", -1, ""},
    };
    for (const auto &row : rows) {
        char *output = strdup("old"), buffer[1024] = "";
        EXPECT_EQ(responseJsonRreallocStr(ResultCode{row.code}, row.name, row.data, &output), row.result);
        EXPECT_EQ(output, row.allocated);
        free(output);
        EXPECT_EQ(responseJsonStr(ResultCode{row.code}, row.name, row.data, buffer), row.inBuffer);
        EXPECT_EQ(buffer, row.fixed);
        memset(buffer, 'x', sizeof buffer);
        responseJsonStr(ResultCode{row.code}, row.name, row.data, buffer);
        EXPECT_EQ(buffer[row.fixed.size()], 'x'); /* no zero is put behind it */
    }
}
