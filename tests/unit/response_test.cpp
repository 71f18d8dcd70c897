/*
 * response_test.cpp - result codes and the two envelope builders.
 */
#include "common/response.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tests/support/driver.h"

/* The codes that there are, are shown with every endpoint. */
TEST(ResultCodes, mapWhatIsNoOpenCodeToo)
{
    for (int code : {INT32_MIN, -30, 1, INT32_MAX})
        EXPECT_EQ(openResult(code), ResultCode::GENERAL_FAILED) << code;
}

TEST(ResultCodes, haveMessages)
{
    EXPECT_STREQ(resultMessage(ResultCode{0}), "Success");
    EXPECT_STREQ(resultMessage(ResultCode{10024}), "HTTP method is not suported for this request");
    EXPECT_STREQ(resultMessage(ResultCode{11000}), "");
    EXPECT_STREQ(resultMessage(ResultCode{-7}), "Failed to allocate memory");
    EXPECT_STREQ(resultMessage(ResultCode{-204}), "Invalid user, user does not exist");
    EXPECT_STREQ(resultMessage(ResultCode{12}), "Error code unknown");
}

/* What responseJsonRreallocStr makes of an output that holds "old". */
static std::string allocated(ResultCode code, const char *name, const char *data, int *result)
{
    char *output = strdup("old");
    *result = responseJsonRreallocStr(code, name, data, &output);
    std::string text = output;
    free(output);
    return text;
}

TEST(Envelope, holdsDataOnlyOnSuccess)
{
    const std::string plain = success(""), withData = success(R"("bridge":{"a":1})");
    const std::string failed = failure(-204, "Invalid user, user does not exist");
    int result = -1;
    EXPECT_EQ(allocated(ResultCode{0}, "bridge", "{\"a\":1}", &result), withData);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(allocated(ResultCode{0}, "bridge", nullptr, &result), plain);
    EXPECT_EQ(allocated(ResultCode{0}, nullptr, "{\"a\":1}", &result), plain);
    EXPECT_EQ(allocated(ResultCode{-204}, "bridge", "{\"a\":1}", &result), failed);
    EXPECT_EQ(allocated(ResultCode{0}, "bridge", "no JSON", &result), "old");
    EXPECT_EQ(result, 10000);

    char buffer[1024] = "";
    EXPECT_EQ(responseJsonStr(ResultCode{0}, nullptr, "ignored", buffer), 0);
    EXPECT_EQ(buffer, plain);
    memset(buffer, 0, sizeof buffer);
    EXPECT_EQ(responseJsonStr(ResultCode{0}, "bridge", "{\"a\":1}", buffer), 0);
    EXPECT_EQ(buffer, withData);
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(responseJsonStr(ResultCode{-204}, "bridge", nullptr, buffer), 0);
    EXPECT_EQ(std::string(buffer, failed.size() + 1), failed + "x"); /* no zero is put behind it */
    EXPECT_EQ(responseJsonStr(ResultCode{0}, "bridge", nullptr, buffer), -1); /* a name wants data here */
}
