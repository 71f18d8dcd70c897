/*
 * request_test.cpp - the readers of query string, parameter list and body, and the names of the methods.
 */
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "common/open_client.h"
#include "common/request_input.h"
#include "common/request_values.h"
#include "httpd/route_tree.h"

/* Makes the CGI environment of one request; null leaves a variable out. The body becomes standard input. */
static void arrange(const char *method, const char *query, const char *contentLength, const std::string &body = "")
{
    const char *const variables[][2] = {
        {"REQUEST_METHOD", method}, {"QUERY_STRING", query}, {"CONTENT_LENGTH", contentLength}};
    for (auto [name, value] : variables)
        value ? setenv(name, value, 1) : unsetenv(name);
    stdin = tmpfile();
    fwrite(body.data(), 1, body.size(), stdin);
    rewind(stdin);
}

static void arrangeBody(const std::string &body)
{
    arrange("PUT", nullptr, std::to_string(body.size()).c_str(), body);
}

/* A text for comparison, "(null)" for none. */
static std::string textOf(const char *text)
{
    return text ? text : "(null)";
}

TEST(RequestInput, comesFromTheQueryOrTheBodyByMethod)
{
    const std::string longest(8192, 'x'), tooLong = longest + "z";
    const struct { const char *method, *query, *length; std::string body, input; } rows[] = {
        {"GET", "a=1", "3", "xyz", "a=1"}, {"DELETE", "a=1", "3", "xyz", "a=1"}, {"GET", nullptr, nullptr, "", ""},
        {"GET", tooLong.c_str(), nullptr, "", longest}, {"POST", "a=1", "3", "xyz", "xyz"},
        {"PUT", "a=1", "2", "xyz", "xy"}, {nullptr, "a=1", "3", "xyz", "(null)"}, {"get", "a=1", "3", "xyz", "(null)"},
        {"PATCH", "a=1", "3", "xyz", "(null)"},
        /* ends early */
        {"POST", nullptr, "5", "ab", "ab\xFF"}, {"POST", nullptr, "1", "", "\xFF"},
        /* lengths that make no sense */
        {"POST", "a=1", nullptr, "xyz", ""}, {"POST", "a=1", "", "xyz", ""}, {"POST", "a=1", "-1", "xyz", ""},
        {"POST", "a=1", "0", "xyz", ""}, {"POST", "a=1", "abc", "xyz", ""},
        /* more than there can be: no input, which is not an empty one */
        {"POST", "a=1", "9223372036854775807", "xyz", "(null)"},
        {"PUT", "a=1", "99999999999999999999", "xyz", "(null)"},
    };
    for (const auto &row : rows) {
        arrange(row.method, row.query, row.length, row.body);
        char *input = readRequestInput();
        EXPECT_EQ(textOf(input), row.input) << textOf(row.method) << " " << textOf(row.length);
        free(input);
    }
}

TEST(ParamList, isSearchedForTheKeyAnywhereInAPiece)
{
    const char *rows[][2] = {
        {"xifNum=5&ifNum=3", "5"}, {"nextIfNum=5&ifNum=3", "3"}, {"ifNumber=3", "3"}, {"a=ifNum", "ifNum"},
        {"&&ifNum=3&", "3"}, {"ifNum&ifNum=7=8", "7=8"}, {"ifNum=%31", "%31"}, {"ifNum=", ""}, {"a=1", "(null)"}};
    for (auto [input, value] : rows) {
        ParamList list = paramListSplit(input);
        EXPECT_EQ(textOf(paramFind("ifNum", list)), value) << input;
        paramListFree(list);
    }
}

TEST(ParamGetExact, findsOnlyTheWholeKeyAndDecodesItsValue)
{
    char buffer[16];
    for (auto [input, value] : {std::pair{"username=x&&name=a%20b+c", "a b c"}, {"name=&name=x", ""},
                                {"name=%41bcdefghijklmnop", "Abcdefghijklm"}}) { /* cut before it is decoded */
        EXPECT_EQ(paramGetExact(input, "name", buffer, sizeof buffer), 0) << input;
        EXPECT_STREQ(buffer, value);
    }
    for (const char *input : {(const char *)nullptr, "", "names=x", "Name=x", "name", "a&b"})
        EXPECT_EQ(paramGetExact(input, "name", buffer, sizeof buffer), 10000) << textOf(input);
    EXPECT_EQ(paramGetExact("name=x", nullptr, buffer, sizeof buffer), 10000);
    EXPECT_EQ(paramGetExact("name=x", "name", nullptr, sizeof buffer), 10000);
    EXPECT_EQ(paramGetExact("name=x", "name", buffer, 0), 10000);
}

TEST(UrlDecode, keepsWhatIsNoEscape)
{
    const char *rows[][2] = {{"%4F%4A%6f%6a", "OJoj"}, {"a+b", "a b"}, {"100%", "100%"}, {"%4", "%4"}, {"%zz", "%zz"},
                             {"%4g%41", "%4gA"}, {"%%41", "%A"}, {"%2541", "%41"}, {"", ""}};
    for (auto [encoded, decoded] : rows) {
        std::string text = encoded;
        EXPECT_STREQ(urlDecodeInPlace(text.data()), decoded);
    }
    EXPECT_EQ(urlDecodeInPlace(nullptr), nullptr);
}

TEST(QueryExact, findsTheKeyOnlyAtTheStartOrBehindAnAmpersand)
{
    const std::string distant = std::string(10000, 'x') + "&ifNum=7"; /* read as it is, uncut */
    const struct { const char *query; uint32_t number; } rows[] = {
        {nullptr, 0}, {"", 0}, {"ifNum=7", 7}, {"a=1&ifNum=7", 7}, {"xifNum=5", 0}, {"xifNum=5&ifNum=7", 7},
        {"ifNum", 0}, {"ifNum&ifNum=7", 7}, {"ifNums=5&ifNum=7", 7}, {"ifNum=7&ifNum=8", 7}, {"ifNum=&x", 0},
        {"ifNum=12abc&y=1", 12}, {"ifNum=abc", 0}, {"ifNum=-1", 4294967295}, {"ifNum=4294967297", 1},
        {"ifNum=%37", 0}, {"ifNumifNum=5", 0}, {"IFNUM=5", 0}, {"?ifNum=5", 0}, {distant.c_str(), 7},
    };
    for (const auto &row : rows) {
        arrange("POST", row.query, nullptr); /* whatever the method */
        EXPECT_EQ(queryUintExact("ifNum"), row.number) << textOf(row.query);
        EXPECT_EQ(queryUint16Exact("ifNum"), (uint16_t)row.number) << textOf(row.query);
    }
}

TEST(QueryExact, findsTheNameThatEndsAtTheNextAmpersand)
{
    static const NamedCode nameRows[] = {{1, "percent"}, {2, "pps"}};
    static const NameTable names = nameTable(nameRows);
    const struct { const char *query; uint32_t code, codeOrNumber; } rows[] = {
        {nullptr, 9, 0}, {"unit=pps&unit=percent", 2, 2}, {"unit=percent", 1, 1}, {"unit=percentage", 9, 0},
        {"unit=70", 9, 70}, {"unit=7&8", 9, 7}, {"unit=%70ps", 9, 0}, {"unit=", 9, 0}, {"unit=4294967299", 9, 3},
        {"unit=00000000000000000000000000000056", 9, 5}, /* cut */
    };
    for (const auto &row : rows) {
        arrange("PUT", row.query, nullptr);
        EXPECT_EQ(queryCodeExact("unit", names, 9), row.code) << textOf(row.query);
        EXPECT_EQ(queryCodeOrUintExact("unit", names), row.codeOrNumber) << textOf(row.query);
    }
}

TEST(Params, leaveTheDefaultWhenTheKeyIsAbsent)
{
    uint32_t one = 1, two = 2, three = 3;
    OpenText<4> text;
    arrange("GET", "two=x&text=abcdef&three=12abc", nullptr);
    EXPECT_TRUE(readParams({uintParam("one", &one), uintParam("two", &two), uintParam("three", &three),
                            textParam("text", text)}));
    EXPECT_TRUE(one == 1 && two == 0 && three == 12) << one << " " << two << " " << three;
    EXPECT_STREQ(text.bytes, "abc");
    arrange("get", "one=5", nullptr);
    EXPECT_FALSE(readParams({uintParam("one", &one)}));
    EXPECT_EQ(one, 1u);
}

TEST(Body, mustParse)
{
    uint32_t value = 9;
    for (auto [body, isJson] : {std::pair{"", false}, {"x", false}, {"{", false}, {"{\"a\":1", false}, {"\xFF", false},
                                {"   ", false}, {"5", true}, {"\"a\"", true}, {"[1]", true}, {"null", true},
                                {"{}", true}, {"true", true}}) { /* without members */
        arrangeBody(body);
        EXPECT_EQ(parseBody({integerMember("a", &value)}), isJson) << body;
        arrangeBody(body);
        EXPECT_FALSE(parseBody({required(integerMember("a", &value))})) << body;
    }
    EXPECT_EQ(value, 9u);
    arrange("DELETE", "{\"a\":3}", nullptr);
    EXPECT_TRUE(parseBody({integerMember("a", &value)}));
    EXPECT_EQ(value, 3u);
    arrange("put", nullptr, "7", "{\"a\":3}");
    EXPECT_FALSE(parseBody({}));
}

TEST(Body, readsValuesByEachRule)
{
    static const NamedCode nameRows[] = {{1, "permit"}, {2, "watch"}};
    static const NameTable names = nameTable(nameRows);
    const char *rows[][2] = { /* integer, of a number, saturated, flag, name, text, ids; 7 where it stays as it was */
        {"300", "300 300 300 0 7 "}, {"12.9", "12 12 12 0 7 "}, {"-5", "4294967291 4294967291 0 0 7 "},
        {"1", "1 1 1 0 7 "}, {"3000000000", "2147483647 2147483647 3000000000 0 7 "},
        {"-3000000000", "2147483648 2147483648 0 0 7 "}, {"4294967296", "2147483647 2147483647 4294967295 0 7 "},
        {"1e300", "2147483647 2147483647 4294967295 0 7 "}, {"true", "1 7 0 1 7 "}, {"null", "0 7 0 0 7 "},
        {R"([10,"x",65546,-1,3.7])", "0 7 0 0 7  10 0 10 65535 3"}, {R"("300")", "0 7 0 0 7 300"},
        {R"("true")", "0 7 0 0 7 true"}, {R"("")", "0 7 0 0 7 "}, {R"("permit")", "0 7 0 0 1 permit"},
        {R"("PERMIT")", "0 7 0 0 7 PERMIT"}, {R"("permitted")", "0 7 0 0 7 permit"},
    };
    for (auto [json, expected] : rows) {
        uint32_t integer = 7, ofNumber = 7, saturated = 7, flag = 7, code = 7;
        OpenText<7> text;
        VlanIdList list = {};
        arrangeBody(std::string("{\"VALUE\":") + json + "}"); /* members are found whatever their case */
        ASSERT_TRUE(parseBody({integerMember("value", &integer), integerOfNumberMember("value", &ofNumber),
                               saturatedMember("value", &saturated), trueMember("value", &flag),
                               codeMember("value", names, &code), textMember("value", text),
                               vlanIdsMember("value", &list)}));
        std::string read;
        for (uint32_t number : {integer, ofNumber, saturated, flag, code})
            read += std::to_string(number) + " ";
        read += text.bytes;
        for (uint32_t i = 0; i < list.count; i++)
            read += " " + std::to_string(list.ids[i]);
        EXPECT_EQ(read, expected) << json;
    }
    EXPECT_STREQ(nameOf(names, 2, "unknown"), "watch");
    EXPECT_STREQ(nameOf(names, 3, "unknown"), "unknown");
    EXPECT_EQ(codeOf(names, nullptr, 5), 5u);
}

TEST(HttpMethod, hasANameForAnyCode)
{
    EXPECT_STREQ(httpMethodName(4), "Invalid method '4'");
}

TEST(OpenText, keepsAnEndBehindWhatIsOffered)
{
    OpenText<8> text;
    memset(text.bytes, 'x', bufferSized(text)->size);
    EXPECT_STREQ(text.bytes, "xxxxxxxx");
}
