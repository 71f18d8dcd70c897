/*
 * response_test.cpp - result codes and the two envelope builders.
 */
#include "common/response.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tests/support/driver.h"

TEST(ResultCodes, haveMessagesAndAreMadeOfAnyCode)
{
    for (int code : {INT32_MIN, -30, 1, INT32_MAX}) /* the proof has the others */
        EXPECT_EQ(openResult(code), ResultCode::GENERAL_FAILED) << code;
    for (auto [code, message] : {std::pair{0, "Success"}, {10024, "HTTP method is not suported for this request"},
                                 {11000, ""}, {-7, "Failed to allocate memory"}, {12, "Error code unknown"}})
        EXPECT_STREQ(resultMessage(ResultCode{code}), message);
}

/* Counters have 64 bits: cJSON prints those of more than 15 digits with an exponent. */
TEST(Numbers, arePrintedAsByCJson)
{
    for (double value : {0., -22., 999999999999999., 1e15, 9007199254740994., 18446744073709551615., 0.5}) {
        cJSON *ours = numberItem(value), *theirs = cJSON_CreateNumber(value);
        char *text = cJSON_Print(ours), *expected = cJSON_Print(theirs);
        EXPECT_STREQ(text, expected);
        cJSON_free(text), cJSON_free(expected), cJSON_Delete(ours), cJSON_Delete(theirs);
    }
}

/* Both builders: what they return, and what their output holds. (Before, it holds "old", or only zeros.) */
TEST(Envelope, holdsDataOnlyOnSuccess)
{
    const std::string plain = success(""), withData = success(R"("bridge":{"a":1})");
    const std::string failed = failure(-204, "Invalid user, user does not exist");
    const struct {
        int code;
        const char *name, *data;
        int result;
        std::string allocated;
        int resultFixed;
        std::string fixed;
    } rows[] = {
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
        EXPECT_EQ(responseJsonStr(ResultCode{row.code}, row.name, row.data, buffer), row.resultFixed);
        EXPECT_EQ(buffer, row.fixed);
        memset(buffer, 'x', sizeof buffer);
        responseJsonStr(ResultCode{row.code}, row.name, row.data, buffer);
        EXPECT_EQ(buffer[row.fixed.size()], 'x'); /* no zero is put behind it */
    }
}
