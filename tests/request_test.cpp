/*
 * request_test.cpp - the readers of query string, parameter list and body, each tested hard once.
 */
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "common/open_client.h"
#include "common/request_input.h"
#include "common/request_values.h"

static void setVariable(const char *name, const char *value)
{
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

/* Makes the CGI environment of one request; null leaves a variable out. The body becomes standard input. */
static void arrange(const char *method, const char *query, const char *contentLength, const std::string &body = "")
{
    setVariable("REQUEST_METHOD", method);
    setVariable("QUERY_STRING", query);
    setVariable("CONTENT_LENGTH", contentLength);
    FILE *file = tmpfile();
    fwrite(body.data(), 1, body.size(), file);
    rewind(file);
    stdin = file;
}

static void arrangeBody(const std::string &body)
{
    arrange("PUT", nullptr, std::to_string(body.size()).c_str(), body);
}

/* The raw input; "(null)" for none. */
static std::string rawInput()
{
    char *input = readRequestInput();
    std::string text = input ? input : "(null)";
    free(input);
    return text;
}

TEST(RequestInput, comesFromTheQueryOrTheBodyByMethod)
{
    arrange("GET", "a=1", "3", "xyz");
    EXPECT_EQ(rawInput(), "a=1");
    arrange("DELETE", "a=1", "3", "xyz");
    EXPECT_EQ(rawInput(), "a=1");
    arrange("GET", nullptr, nullptr);
    EXPECT_EQ(rawInput(), "");
    arrange("POST", "a=1", "3", "xyz");
    EXPECT_EQ(rawInput(), "xyz");
    arrange("PUT", "a=1", "2", "xyz");
    EXPECT_EQ(rawInput(), "xy");
    for (const char *method : {(const char *)nullptr, "get", "PATCH"}) {
        arrange(method, "a=1", "3", "xyz");
        EXPECT_EQ(rawInput(), "(null)");
    }
}

TEST(RequestInput, cutsTheQueryAt8192Bytes)
{
    std::string query = std::string(8191, 'x') + "yz";
    arrange("GET", query.c_str(), nullptr);
    EXPECT_EQ(rawInput(), query.substr(0, 8192));
}

TEST(RequestInput, marksABodyThatEndsEarly)
{
    arrange("POST", nullptr, "5", "ab");
    EXPECT_EQ(rawInput(), "ab\xFF");
    arrange("POST", nullptr, "1", "");
    EXPECT_EQ(rawInput(), "\xFF");
}

TEST(RequestInput, takesALengthThatMakesNoSenseForNoBody)
{
    for (const char *length : {(const char *)nullptr, "", "-1", "0", "abc", "9223372036854775807", "99999999999999999999"}) {
        arrange("POST", nullptr, length, "xyz");
        EXPECT_EQ(rawInput(), "") << (length ? length : "absent");
    }
}

static std::string pieces(const char *input)
{
    ParamList list = paramListSplit(input);
    std::string text;
    for (ParamList piece = list; *piece; piece++)
        text += std::string("[") + *piece + "]";
    paramListFree(list);
    return text;
}

TEST(ParamList, keepsEmptyPieces)
{
    EXPECT_EQ(pieces(""), "[]");
    EXPECT_EQ(pieces(nullptr), "[]");
    EXPECT_EQ(pieces("a=1&&b=2"), "[a=1][][b=2]");
    EXPECT_EQ(pieces("&"), "[][]");
    paramListFree(nullptr);
}

TEST(ParamList, endsWithANullAfterAnyGrowth)
{
    std::string input = "0", expected = "[0]";
    for (int count = 1; count <= 41; count++) {
        EXPECT_EQ(pieces(input.c_str()), expected) << count;
        input += "&" + std::to_string(count);
        expected += "[" + std::to_string(count) + "]";
    }
}

static std::string found(const char *input, const char *key)
{
    ParamList list = paramListSplit(input);
    const char *value = paramFind(key, list);
    std::string text = value ? value : "(null)";
    paramListFree(list);
    return text;
}

TEST(ParamList, isSearchedForTheKeyAnywhereInAPiece)
{
    EXPECT_EQ(found("xifNum=5&ifNum=3", "ifNum"), "5");
    EXPECT_EQ(found("nextIfNum=5&ifNum=3", "ifNum"), "3"); /* case matters */
    EXPECT_EQ(found("vlanId=3", "vlan"), "3");
    EXPECT_EQ(found("a=ifNum", "ifNum"), "ifNum");
    EXPECT_EQ(found("ifNum&ifNum=7=8", "ifNum"), "7=8"); /* a piece without "=" does not count */
    EXPECT_EQ(found("ifNum=%31", "ifNum"), "%31");
    EXPECT_EQ(found("ifNum=", "ifNum"), "");
    EXPECT_EQ(found("a=1", "ifNum"), "(null)");
}

TEST(ParamGetExact, findsOnlyTheWholeKeyAndDecodesItsValue)
{
    char buffer[16];
    ASSERT_EQ(paramGetExact("username=x&&name=a%20b+c", "name", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "a b c");
    ASSERT_EQ(paramGetExact("name=%41bcdef", "name", buffer, 5), 0); /* cut before it is decoded */
    EXPECT_STREQ(buffer, "Ab");
    ASSERT_EQ(paramGetExact("name=&name=x", "name", buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
    for (const char *input : {"", "names=x", "Name=x", "name", "a&b"})
        EXPECT_EQ(paramGetExact(input, "name", buffer, sizeof buffer), 10000) << input;
    EXPECT_EQ(paramGetExact(nullptr, "name", buffer, sizeof buffer), 10000);
    EXPECT_EQ(paramGetExact("name=x", nullptr, buffer, sizeof buffer), 10000);
    EXPECT_EQ(paramGetExact("name=x", "name", nullptr, sizeof buffer), 10000);
    EXPECT_EQ(paramGetExact("name=x", "name", buffer, 0), 10000);
}

TEST(UrlDecode, keepsWhatIsNoEscape)
{
    const char *rows[][2] = {{"%41%4a", "AJ"}, {"a+b", "a b"}, {"100%", "100%"}, {"%4", "%4"}, {"%zz", "%zz"},
                             {"%4g%41", "%4gA"}, {"%%41", "%A"}, {"%2541", "%41"}, {"", ""}};
    for (auto &row : rows) {
        std::string text = row[0];
        EXPECT_STREQ(urlDecodeInPlace(text.data()), row[1]);
    }
    EXPECT_EQ(urlDecodeInPlace(nullptr), nullptr);
}

TEST(QueryExact, findsTheKeyOnlyAtTheStartOrBehindAnAmpersand)
{
    const struct { const char *query; uint32_t value; } rows[] = {
        {nullptr, 0}, {"", 0}, {"ifNum=7", 7}, {"a=1&ifNum=7", 7}, {"xifNum=5", 0}, {"xifNum=5&ifNum=7", 7},
        {"ifNum", 0}, {"ifNum&ifNum=7", 7}, {"ifNums=5&ifNum=7", 7}, {"ifNum=7&ifNum=8", 7}, {"ifNum=&x", 0},
        {"ifNum=12abc", 12}, {"ifNum=abc", 0}, {"ifNum=-1", 4294967295}, {"ifNum=4294967297", 1}, {"ifNum=%37", 0},
        {"ifNumifNum=5", 0}, {"IFNUM=5", 0}, {"?ifNum=5", 0},
    };
    for (const auto &row : rows) {
        arrange("POST", row.query, nullptr); /* whatever the method */
        EXPECT_EQ(queryUintExact("ifNum"), row.value) << (row.query ? row.query : "absent");
    }
    std::string distant = std::string(10000, 'x') + "&ifNum=7"; /* read as it is, uncut */
    arrange("GET", distant.c_str(), nullptr);
    EXPECT_EQ(queryUintExact("ifNum"), 7u);
}

TEST(QueryExact, takesATextUpToTheNextAmpersand)
{
    char buffer[6];
    const char *rows[][2] = {{"xtype=tx&type=rx&y=1", "rx"}, {"type=abcdefgh", "abcde"}, {"type=", ""}, {"a=b", ""},
                             {"type=%41", "%41"}};
    for (auto &row : rows) {
        arrange("GET", row[0], nullptr);
        queryTextExact("type", buffer, sizeof buffer);
        EXPECT_STREQ(buffer, row[1]) << row[0];
    }
}

TEST(Params, leaveTheDefaultWhenTheKeyIsAbsent)
{
    uint32_t one = 1, two = 2, three = 3;
    OpenText<4> text;
    arrange("GET", "two=x&text=abcdef&three=12abc", nullptr);
    EXPECT_TRUE(readParams({uintParam("one", &one), uintParam("two", &two), uintParam("three", &three),
                            textParam("text", text)}));
    EXPECT_EQ(one, 1u);
    EXPECT_EQ(two, 0u);
    EXPECT_EQ(three, 12u);
    EXPECT_STREQ(text.bytes, "abc");
    arrange("get", "one=5", nullptr);
    EXPECT_FALSE(readParams({uintParam("one", &one)}));
    EXPECT_EQ(one, 1u);
}

TEST(Body, mustParse)
{
    uint32_t value = 9;
    for (const char *body : {"", "x", "{", "{\"a\":1", "\xFF", "   "}) {
        arrangeBody(body);
        EXPECT_FALSE(parseBody({integerMember("a", &value)})) << body;
    }
    for (const char *body : {"5", "\"a\"", "[1]", "null", "{}", "true"}) { /* without members, but JSON */
        arrangeBody(body);
        EXPECT_TRUE(parseBody({integerMember("a", &value)})) << body;
        EXPECT_EQ(value, 9u);
        arrangeBody(body);
        EXPECT_FALSE(parseBody({required(integerMember("a", &value))})) << body;
    }
    arrange("DELETE", "{\"a\":3}", nullptr);
    EXPECT_TRUE(parseBody({integerMember("a", &value)}));
    EXPECT_EQ(value, 3u);
    arrange("put", nullptr, "7", "{\"a\":3}");
    EXPECT_FALSE(parseBody({}));
}

TEST(Body, readsANumberByEachRule)
{
    const struct { const char *json; uint32_t integer, ofNumber, saturated; } rows[] = {
        {"300", 300, 300, 300},
        {"12.9", 12, 12, 12},
        {"-5", 4294967291, 4294967291, 0},
        {"3000000000", 2147483647, 2147483647, 3000000000},
        {"-3000000000", 2147483648, 2147483648, 0},
        {"4294967296", 2147483647, 2147483647, 4294967295},
        {"1e300", 2147483647, 2147483647, 4294967295},
        {"\"300\"", 0, 77, 0},
        {"true", 1, 77, 0},
        {"null", 0, 77, 0},
        {"[5]", 0, 77, 0},
    };
    for (const auto &row : rows) {
        uint32_t integer = 77, ofNumber = 77, saturated = 77;
        arrangeBody(std::string("{\"VALUE\":") + row.json + "}"); /* members are found whatever their case */
        ASSERT_TRUE(parseBody({integerMember("value", &integer), integerOfNumberMember("value", &ofNumber),
                               saturatedMember("value", &saturated)}));
        EXPECT_EQ(integer, row.integer) << row.json;
        EXPECT_EQ(ofNumber, row.ofNumber) << row.json;
        EXPECT_EQ(saturated, row.saturated) << row.json;
    }
}

TEST(Body, readsTextsWordsAndFlags)
{
    static const Word rows[] = {{1, "permit"}, {2, "watch"}};
    static const WordTable words = wordTable(rows);
    const struct { const char *json; const char *text; uint32_t word, flag; } cases[] = {
        {"\"permit\"", "permit", 1, 0}, {"\"PERMIT\"", "PERMIT", 7, 0}, {"\"permitted\"", "permit", 7, 0},
        {"\"\"", "", 7, 0}, {"true", "", 7, 1}, {"1", "", 7, 0}, {"\"true\"", "true", 7, 0},
    };
    for (const auto &row : cases) {
        OpenText<7> text;
        uint32_t word = 7, flag = 0;
        arrangeBody(std::string("{\"value\":") + row.json + "}");
        ASSERT_TRUE(parseBody({textMember("value", text), wordMember("value", words, &word), trueMember("value", &flag)}));
        EXPECT_STREQ(text.bytes, row.text) << row.json;
        EXPECT_EQ(word, row.word) << row.json;
        EXPECT_EQ(flag, row.flag) << row.json;
    }
    EXPECT_STREQ(wordOf(words, 2, "unknown"), "watch");
    EXPECT_STREQ(wordOf(words, 3, "unknown"), "unknown");
    EXPECT_EQ(codeOf(words, nullptr, 5), 5u);
}

TEST(Body, readsVlanIds)
{
    VlanIdList list = {};
    arrangeBody(R"({"vidList":[10,"x",65546,-1,3.7]})");
    ASSERT_TRUE(parseBody({vlanIdsMember("vidList", &list)}));
    EXPECT_EQ(list.count, 5u);
    const uint16_t expected[] = {10, 0, 10, 65535, 3, 0};
    for (int i = 0; i < 6; i++)
        EXPECT_EQ(list.ids[i], expected[i]) << i;

    std::string many = "1";
    for (int i = 2; i <= 5000; i++)
        many += "," + std::to_string(i);
    list = {};
    arrangeBody("{\"vidList\":[" + many + "]}");
    ASSERT_TRUE(parseBody({vlanIdsMember("vidList", &list)}));
    EXPECT_EQ(list.count, 4096u);
    EXPECT_EQ(list.ids[4095], 4096);

    list = {};
    arrangeBody(R"({"vidList":70000})");
    ASSERT_TRUE(parseBody({vlanIdsMember("vidList", &list)}));
    EXPECT_EQ(list.count, 0u);
}

TEST(OpenText, keepsAnEndBehindWhatIsOffered)
{
    OpenText<4> text;
    OpenBufferDesc desc = bufferSized(text);
    EXPECT_EQ(desc.size, 4u);
    memset(desc.bytes, 'x', desc.size);
    EXPECT_STREQ(text.bytes, "xxxx");
    EXPECT_EQ(lengthSized(text).size, 4u);
    EXPECT_EQ(terminatedSized(text).size, 5u);
}
