/*
 * response.h - result codes, and the JSON envelope of every answer.
 */
#ifndef COMMON_RESPONSE_H
#define COMMON_RESPONSE_H

#include <stdint.h>

/*
 * The result code that a client gets. An OpEN code is no ResultCode: openResult, unmappedResult and invalidUnlessOk
 * convert it. Only the codes that this program names stand here; resultMessage knows all.
 */
enum class ResultCode : int32_t {
    SUCCESS = 0,
    GENERAL_FAILED = 10000,
    INVALID_ARGUMENT = 10003,
    OBJECT_EXIST = 10011,
    API_NOT_FOUND = 10023,
    UNSUPPORTED_FEATURE = 17002
};

/* Converts an OpEN code by the table OpenResultMap; a code outside it is GENERAL_FAILED. */
ResultCode openResult(int openCode);

/* Keeps the OpEN code as it is: some endpoints answer its negative number. */
constexpr ResultCode unmappedResult(int openCode)
{
    return ResultCode{openCode};
}

/* Converts every failure to INVALID_ARGUMENT, as some endpoints do. */
constexpr ResultCode invalidUnlessOk(int openCode)
{
    return openCode == 0 ? ResultCode::SUCCESS : ResultCode::INVALID_ARGUMENT;
}

/* The message of a code; "Error code unknown" when the code has no message. */
const char *resultMessage(ResultCode code);

/*
 * A JSON number; null: out of memory. cJSON prints the same text, but takes much longer for a whole number: it formats a
 * floating-point number and reads it back.
 */
struct cJSON *numberItem(double value);

/* Adds `item`, which it takes over, to `object`. False: `item` is null, or out of memory; then it deletes the item. */
bool addItem(struct cJSON *object, const char *name, struct cJSON *item);

/*
 * Builds the envelope of `code` and, on success with both given, the JSON text `data` under `dataName`. Frees *output
 * and replaces it by the envelope's text, which the caller frees. Returns 0; 10000 when it cannot build the envelope:
 * it then logs what failed and keeps *output. No handler gives `data`; it stays, as the builder promises it.
 */
int responseJsonRreallocStr(ResultCode code, const char *dataName, const char *data, char **output);

/*
 * The same with the data as a document, which it takes over, also on failure, and adds for any code.
 * dataName null: no data. dataName set, data null: building the data failed, and so does this.
 */
int responseJsonDocument(ResultCode code, const char *dataName, struct cJSON *data, char **output);

/*
 * Copies the same envelope into `buffer`, which the caller has zeroed: it adds no terminator and checks no length (1024
 * bytes hold every envelope without data). Data that does not parse is a failure. Returns 0; -1 on failure: it logs
 * only a failed print. No handler gives `data`; it stays, as the builder promises it.
 */
int responseJsonStr(ResultCode code, const char *dataName, const char *data, char *buffer);

#endif
