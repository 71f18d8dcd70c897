/*
 * response.h - result codes and the envelope that every answer is wrapped in.
 */
#ifndef COMMON_RESPONSE_H
#define COMMON_RESPONSE_H

#include <stdint.h>

/*
 * How a request ended, for its client. A type of its own, so that no code of OpEN's is taken for one: openResult and
 * unmappedResult turn the one into the other. The codes that are named here are the ones this program has a word for.
 */
enum class ResultCode : int32_t {
    SUCCESS = 0,
    GENERAL_FAILED = 10000,
    INVALID_ARGUMENT = 10003,
    OBJECT_EXIST = 10011,
    API_NOT_FOUND = 10023,
    UNSUPPORTED_FEATURE = 17002
};

/* The result code of each OpEN code from -29 to 0, at the index (code + 29). */
extern const ResultCode OpenResultMap[30];

/* What OpEN's code is to a client: by the map; GENERAL_FAILED for a code outside it. */
ResultCode openResult(int openCode);

/* OpEN's code as it is: what some endpoints hand to their client, negative numbers and all. */
constexpr ResultCode unmappedResult(int openCode)
{
    return ResultCode{openCode};
}

/* The result of the endpoints that report every failure of OpEN's as an invalid argument. */
constexpr ResultCode invalidUnlessOk(int openCode)
{
    return openCode == 0 ? ResultCode::SUCCESS : ResultCode::INVALID_ARGUMENT;
}

/* The message of a code; "Error code unknown" for one that has none. */
const char *resultMessage(ResultCode code);

/*
 * Builds the envelope of `code` and, on success with both given, the JSON text `data` under `dataName`. The text takes
 * the place of *output, which is freed first and belongs to the caller (free). Returns 0; 10000 when the envelope could
 * not be built: *output is then left as it was, and a line in the log says what failed.
 */
int responseJsonRreallocStr(ResultCode code, const char *dataName, const char *data, char **output);

/*
 * The same with the data as a document, as a text would be printed only to be parsed again. The document is taken over,
 * whatever the result. Null under a name is data that could not be had; without a name there is no data.
 */
int responseJsonDocument(ResultCode code, const char *dataName, struct cJSON *data, char **output);

/*
 * The same envelope, copied into `buffer`: without a terminating zero (the caller clears the buffer) and without a
 * length check (1024 bytes hold every envelope without data). On success a given name demands valid data.
 * Returns 0, or -1 when the envelope could not be built; only a failure to print it is logged.
 */
int responseJsonStr(ResultCode code, const char *dataName, const char *data, char *buffer);

#endif
