/*
 * vlan_support.h - what the tests of the VLAN families share: endpoints as rows, and sequences of requests.
 */
#ifndef TESTS_VLAN_SUPPORT_H
#define TESTS_VLAN_SUPPORT_H

#include <regex>

#include "tests/support/driver.h"

/* A failure that is mapped, or passed on as it is, or always an invalid argument; the mapped one with a line end. */
inline const std::string mapped = failure(10000), raw = failure(-7), invalid = failureLine(10003);
inline const std::string mappedLine = failureLine(10000);
inline const std::string done = success("");

/* An endpoint that reads. */
struct Read {
    std::string name, asked;      /* with its query; its operation (without rpcclt_openapi) and what that is sent */
    const char *returned, *keys;  /* numbers, texts, lists of two ids, and the keys under which they are answered */
    std::string refused = mapped; /* the answer when OpEN's code is -7 */
};

/* An endpoint that sets, and answers the outcome alone. Numbers of four digits are those from its body. */
struct Write {
    const char *method;
    std::string name, body, asked, refused;
};

/* A request of a sequence whose answer alone matters. */
struct Step {
    const char *method;
    std::string target, body, answered;
};

inline std::string vlan(const std::string &members) { return success("\"vlan\":{" + members + "}"); }

class VlanTest : public SwitchTest {
protected:
    /* The endpoint's round trip, its refusal, that only numbers are numbers, and that what is no body asks nothing. */
    void expectRow(const char *method, const std::string &path, const std::string &body, const Read &row)
    {
        std::string asked = "rpcclt_openapi" + row.asked, operation = asked.substr(0, asked.find(' ')), returned, data;
        size_t sentText = asked.find("=["); /* a text comes back */
        if (sentText != std::string::npos)
            returned = asked.substr(asked.rfind(' ', sentText), asked.find(' ', sentText) - asked.rfind(' ', sentText));
        std::istringstream words(row.returned), keys(row.keys);
        for (std::string word, key; words >> word && keys >> key;) {
            std::string name = word.substr(0, word.find('=')), value = word.substr(name.size() + 1);
            std::string preset = "0", answer = value;
            if (size_t comma = value.find(','); comma != std::string::npos) {
                preset = "0()", answer = "[" + value + "]";
                value = "2(" + value.replace(comma, 1, " ") + ")";
            } else if (!isdigit(value[0])) {
                preset = "[64]\"\"", answer = "\"" + value + "\"", value = "[64]" + answer;
            } else if (value == "18446744073709551615") {
                answer = "1.8446744073709552e+19"; /* JSON numbers lose the last digits */
            }
            data += (data.empty() ? "\"" : ",\"") + key + "\":" + answer;
            asked += " " + name + "=" + preset;
            returned += " " + name + "=" + value;
        }
        std::string answered = row.refused == mappedLine ? successLine() : done;
        if (!data.empty())
            answered = success("\"" + path.substr(0, path.find('/')) + "\":{" + data + "}");
        tell("fault " + operation + " code=0 times=1 " + row.returned);
        expect({method, path + row.name, body, asked + " -> 0" + returned, answered});
        tell("fault " + operation + " code=-7 times=1");
        expect({method, path + row.name, body, asked + " -> -7", row.refused});
        static const std::regex number(R"(\b\d{4}\b)");
        if (std::regex_search(body, number)) {
            tell("fault " + operation + " code=0 times=1 " + row.returned);
            expect({method, path + row.name, std::regex_replace(body, number, "true"),
                    std::regex_replace(asked, number, "0") + " -> 0" + returned, answered});
        }
        if (!body.empty())
            expect({method, path + row.name, "{\"cut", "", failureLine(10003)});
    }

    void expectReads(const std::string &path, const std::vector<Read> &rows, const char *method = "GET",
                     const std::string &body = "")
    {
        for (const Read &row : rows)
            expectRow(method, path, body, row);
    }

    void expectWrites(const std::string &path, const std::vector<Write> &rows)
    {
        for (const Write &row : rows)
            expectRow(row.method, path, row.body, {row.name, row.asked, "", "", row.refused});
    }

    void follow(const std::vector<Step> &steps)
    {
        for (const Step &step : steps)
            EXPECT_EQ(send(step.method, step.target, step.body), step.answered)
                << step.method << " " << step.target << " " << step.body.substr(0, 200);
    }

    /* Placeholders: they answer 17002, with or without a line end, whatever they are sent, and ask nothing. */
    void expectUnsupported(const char *method, const std::string &path, const std::vector<const char *> &names,
                           bool lineEnd)
    {
        for (const char *name : names)
            expect({method, path + name + "?ifNum=3&vlanNum=1&vlanId=1&groupId=1", "{\"cut", "",
                    lineEnd ? failureLine(17002) : failure(17002)});
    }
};

#endif
