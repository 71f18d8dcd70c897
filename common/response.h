/*
 * response.h - result codes and the envelope that every answer is wrapped in.
 */
#ifndef COMMON_RESPONSE_H
#define COMMON_RESPONSE_H

#include <stdint.h>

/* 0 is success, anything else a failure. Some endpoints pass OpEN's own negative codes through as result codes. */
typedef int32_t ResultCode;

enum : ResultCode {
    RESULT_SUCCESS = 0,
    RESULT_GENERAL_FAILED = 10000,
    RESULT_INVALID_ARGUMENT = 10003,
    RESULT_OBJECT_EXIST = 10011,
    RESULT_API_NOT_FOUND = 10023,
    RESULT_UNSUPPORTED_FEATURE = 17002
};

/* The result code of each OpEN code from -29 to 0, at the index (code + 29). */
extern const ResultCode OpenResultMap[30];

/* What `openCode` is to a client; 10000 for a code outside the map. */
ResultCode openResult(int openCode);

/* The message of a code; "Error code unknown" for one that has none. */
const char *resultMessage(ResultCode code);

/*
 * Builds the envelope of `code` and, on success with both given, the JSON text `data` under `dataName`. The text takes
 * the place of *output, which is freed first and belongs to the caller (free). Returns 0; 10000 when the envelope could
 * not be built, *output is then left as it was.
 */
int responseJsonRreallocStr(ResultCode code, const char *dataName, const char *data, char **output);

/*
 * The same with the data as a document instead of its text, which would be printed only to be parsed again. The document
 * is taken over, whatever the result.
 */
int responseJsonDocument(ResultCode code, const char *dataName, struct cJSON *data, char **output);

/*
 * The same envelope, copied into `buffer`: without a terminating zero (the caller clears the buffer) and without a
 * length check (1024 bytes hold every envelope without data). On success a given name demands valid data.
 * Returns 0, or -1 when the envelope could not be built.
 */
int responseJsonStr(ResultCode code, const char *dataName, const char *data, char *buffer);

#endif
