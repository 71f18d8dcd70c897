/*
 * family_rows.h - rows for a family whose endpoints all answer in one manner: data without a line end; an outcome alone
 * without one on GET and with one elsewhere. What was asked decides what is answered.
 */
#ifndef TESTS_SUPPORT_FAMILY_ROWS_H
#define TESTS_SUPPORT_FAMILY_ROWS_H

#include "tests/support/driver.h"

using Text = const std::string &;

struct Family {
    std::string path;       /* "garp/" */
    std::string operations; /* what the names of its operations begin with */
    std::string dataName;

    /* What was asked is stated without that beginning ("" for nothing), `data` without its name and braces. */
    Exchange get(Text target, Text asked, Text data = "") const { return row("GET", target, "", asked, data); }
    Exchange del(Text target, Text asked) const { return row("DELETE", target, "", asked, ""); }
    Exchange put(Text target, Text body, Text asked, Text data = "") const
    {
        return row("PUT", target, body, asked, data);
    }
    Exchange post(Text target, Text body, Text asked, Text data = "") const
    {
        return row("POST", target, body, asked, data);
    }

    Exchange row(const char *method, Text target, Text body, Text asked, Text data) const
    {
        const std::map<int, int> codes = {{-22, 10003}, {-24, 10011}, {-28, 17002}, {-29, 10023}};
        size_t arrow = asked.find(" -> ");
        int code = arrow == std::string::npos ? -22 : atoi(asked.c_str() + arrow + 4);
        int result = codes.contains(code) ? codes.at(code) : 10000;
        std::string good = data.empty() ? successLine() : success("\"" + dataName + "\":{" + data + "}");
        std::string bad = method == std::string("GET") ? failure(result) : failureLine(result);
        return {method, path + target, body, asked.empty() ? "" : operations + asked, code == 0 ? good : bad};
    }
};

/* "key":value */
inline std::string member(Text key, Text value)
{
    return "\"" + key + "\":" + value;
}

#endif
