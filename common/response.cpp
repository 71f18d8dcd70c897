/*
 * response.cpp - the result codes of the whole web interface, and the builders of the envelope.
 */
#include "common/response.h"

#include <cjson/cJSON.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "log/log.h"

/* The interface fixes these texts, misspellings included. */
static const struct {
    int32_t code;
    const char *message;
} resultTable[] = {
    {0, "Success"},
    {999, "unknown fail"},
    {10000, "General Failed"},
    {10001, "system error"},
    {10002, "Invalid Pointer"},
    {10027, "Disable PTP Mode"},
    {10003, "Invalid argument"},
    {10004, "Not implemented"},
    {10005, "Out of memory"},
    {10006, "Buffer error"},
    {10007, "Permission denied"},
    {10008, "Timed out"},
    {10009, "Object not init"},
    {10010, "Object init failed"},
    {10011, "Object exist"},
    {10012, "Object not exist"},
    {10015, "Device or resource empty"},
    {10016, "Device or resource open failed"},
    {10017, "Device or resource read failed"},
    {10018, "Device or resource write failed"},
    {10019, "Device or resource delete failed"},
    {10020, "Network is unreachable"},
    {10021, "Illegal request"},
    {10022, "Invalid weibo user"},
    {10023, "Request api not found"},
    {10024, "HTTP method is not suported for this request"},
    {10025, "Upload file error"},
    {10026, "upgrade file error"},
    {12001, "User name or password is incorrect"},
    {12002, "Change default password"},
    {12003, "User lockout when login fail more than 5 time, please try again in 5 minutes"},
    {13103, "Add Interface IP error"},
    {13101, "Create Vlan error"},
    {14101, "This Template is being used by a Network Profile. Please delete the associated Network Profile first"},
    {14102, "Profile type was duplicated"},
    {14103, "The AVB profile template should be only configured on one vlan"},
    {14104, "Unable to set 802.1AS Status with Enable,PTP TC is enable. Disable PTP TC to enable 802.1AS Status"},
    {14105, "Unable to set PTP TC with Enable,802.1AS Status is enable. Disable 802.1AS Status to enable PTP TC"},
    {14106, "The Shure profile template should be only configured on one vlan"},
    {14107, "The profile name is already in use. Please enter a different name."},
    {14108, "The current device does not support this profile"},
    {14109, "The SMPTE profile template should be only configured on one vlan"},
    {15001, "Setting LAG Name is failed. Please check if it is a duplicate name"},
    {16001, "The maximum of 100 Time Ranges is already configured"},
    {17001, "The configuration is invalid"},
    {18001, "IP Address/Netmask entered conflicts with the configured IP Address/Netmask of a router interface"},
    {20001, "Invalid physical mode for this port."},
    {11000, ""},
    {17002, "Unsupported Feature"},
    {17003, "PTP Boundary Clock API is not supported on this model"},
    {26001, "Kernel upgrade required, please upload ONIE file"},
    {-200, "Maximum user accounts reached"},
    {-201, "Invalid user name, does not meet policy"},
    {-202, "Invalid password, does not meet policy"},
    {-203, "Invalid user type"},
    {-204, "Invalid user, user does not exist"},
    {-205, "User account already exist"},
    {-206, "Should not modify user type of admin account"},
    {-207, "Request failed, not a privileged user"},
    {-208, "Can not create/delete admin account"},
    {-300, "Failed to set configuration on the device"},
    {-301, "Failed to get configuration from the device"},
    {-302, "Invalid REST API request"},
    {-7, "Failed to allocate memory"},
};

static_assert(sizeof resultTable / sizeof resultTable[0] == 64);

/* The codes by their short names. (Not by "using enum", which GCC 10 does not know.) */
static constexpr ResultCode SUCCESS = ResultCode::SUCCESS, GENERAL_FAILED = ResultCode::GENERAL_FAILED,
                            INVALID_ARGUMENT = ResultCode::INVALID_ARGUMENT, OBJECT_EXIST = ResultCode::OBJECT_EXIST,
                            API_NOT_FOUND = ResultCode::API_NOT_FOUND,
                            UNSUPPORTED_FEATURE = ResultCode::UNSUPPORTED_FEATURE;

/* The result code of each OpEN code from -29 to 0, at the index (code + 29). */
static const ResultCode OpenResultMap[30] = {
    API_NOT_FOUND,       /* -29 */
    UNSUPPORTED_FEATURE, /* -28 */
    GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED,
    OBJECT_EXIST, /* -24 */
    GENERAL_FAILED,
    INVALID_ARGUMENT, /* -22 */
    GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED,
    GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED,
    GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED,
    GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED, GENERAL_FAILED,
    GENERAL_FAILED, /* -1 */
    SUCCESS,
};

ResultCode openResult(int openCode)
{
    unsigned index = (unsigned)openCode + 29u;
    return index < sizeof OpenResultMap / sizeof OpenResultMap[0] ? OpenResultMap[index] : GENERAL_FAILED;
}

const char *resultMessage(ResultCode code)
{
    for (const auto &row : resultTable)
        if (row.code == (int32_t)code)
            return row.message;
    return "Error code unknown";
}

/* The numbers that cJSON prints without a fraction and an exponent. */
static bool isWhole(double value)
{
    const double limit = 1e15;
    return value > -limit && value < limit && value == (double)(int64_t)value;
}

cJSON *numberItem(double value)
{
    char text[24];
    if (!isWhole(value))
        return cJSON_CreateNumber(value);
    snprintf(text, sizeof text, "%" PRId64, (int64_t)value);
    return cJSON_CreateRaw(text);
}

bool addItem(cJSON *object, const char *name, cJSON *item)
{
    if (item && cJSON_AddItemToObject(object, name, item))
        return true;
    cJSON_Delete(item);
    return false;
}

/* The "resp" object; null: out of memory. */
static cJSON *outcomeObject(ResultCode code)
{
    cJSON *resp = cJSON_CreateObject();
    if (addItem(resp, "respCode", numberItem((int32_t)code)) &&
        cJSON_AddStringToObject(resp, "respMsg", resultMessage(code)) &&
        cJSON_AddStringToObject(resp, "status", code == SUCCESS ? "success" : "fail"))
        return resp;
    cJSON_Delete(resp);
    return nullptr;
}

/*
 * The envelope as a document: the data under its name (null: no data), then "resp". Takes over `data`. Null on failure:
 * *failed then says for the log what failed.
 */
static cJSON *envelopeDocument(ResultCode code, const char *dataName, cJSON *data, const char **failed)
{
    cJSON *root = cJSON_CreateObject();
    if (!root) {
        cJSON_Delete(data);
        *failed = "create root object";
        return nullptr;
    }
    if (dataName && !addItem(root, dataName, data))
        *failed = "parse data JSON";
    else if (!addItem(root, "resp", outcomeObject(code)))
        *failed = "create resp object";
    else
        return root;
    cJSON_Delete(root);
    return nullptr;
}

int responseJsonDocument(ResultCode code, const char *dataName, cJSON *data, char **output)
{
    const char *failed = "print JSON";
    cJSON *envelope = envelopeDocument(code, dataName, data, &failed);
    char *text = envelope ? cJSON_Print(envelope) : nullptr;
    cJSON_Delete(envelope);
    if (!text) {
        LOG_AS("responseJsonRreallocStr", LEVEL_ERROR, "[MEM] Failed to %s\n", failed);
        return (int)GENERAL_FAILED;
    }
    free(*output);
    *output = text;
    return 0;
}

int responseJsonRreallocStr(ResultCode code, const char *dataName, const char *data, char **output)
{
    bool withData = code == SUCCESS && dataName && data;
    return responseJsonDocument(code, withData ? dataName : nullptr, withData ? cJSON_Parse(data) : nullptr, output);
}

int responseJsonStr(ResultCode code, const char *dataName, const char *data, char *buffer)
{
    bool withData = code == SUCCESS && dataName;
    const char *failed;
    cJSON *envelope =
        envelopeDocument(code, withData ? dataName : nullptr, withData ? cJSON_Parse(data) : nullptr, &failed);
    if (!envelope)
        return -1;
    char *text = cJSON_Print(envelope);
    cJSON_Delete(envelope);
    if (!text) {
        LOG(LEVEL_ERROR, "package response str error\r\n");
        return -1;
    }
    memcpy(buffer, text, strlen(text));
    free(text);
    return 0;
}
