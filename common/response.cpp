/*
 * response.cpp - the result codes of the whole web interface, and the envelope.
 */
#include "common/response.h"

#include <cjson/cJSON.h>
#include <stdlib.h>
#include <string.h>

#include "log/log.h"

/* Spelling included, these texts are the interface's own. */
static const struct {
    ResultCode code;
    const char *message;
} resultTable[] = {
    {RESULT_SUCCESS, "Success"},
    {999, "unknown fail"},
    {RESULT_GENERAL_FAILED, "General Failed"},
    {10001, "system error"},
    {10002, "Invalid Pointer"},
    {10027, "Disable PTP Mode"},
    {RESULT_INVALID_ARGUMENT, "Invalid argument"},
    {10004, "Not implemented"},
    {10005, "Out of memory"},
    {10006, "Buffer error"},
    {10007, "Permission denied"},
    {10008, "Timed out"},
    {10009, "Object not init"},
    {10010, "Object init failed"},
    {RESULT_OBJECT_EXIST, "Object exist"},
    {10012, "Object not exist"},
    {10015, "Device or resource empty"},
    {10016, "Device or resource open failed"},
    {10017, "Device or resource read failed"},
    {10018, "Device or resource write failed"},
    {10019, "Device or resource delete failed"},
    {10020, "Network is unreachable"},
    {10021, "Illegal request"},
    {10022, "Invalid weibo user"},
    {RESULT_API_NOT_FOUND, "Request api not found"},
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
    {RESULT_UNSUPPORTED_FEATURE, "Unsupported Feature"},
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

const ResultCode OpenResultMap[30] = {
    RESULT_API_NOT_FOUND,       /* -29 */
    RESULT_UNSUPPORTED_FEATURE, /* -28 */
    RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED,
    RESULT_OBJECT_EXIST, /* -24 */
    RESULT_GENERAL_FAILED,
    RESULT_INVALID_ARGUMENT, /* -22 */
    RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED,
    RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED,
    RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED,
    RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED, RESULT_GENERAL_FAILED,
    RESULT_GENERAL_FAILED, /* -1 */
    RESULT_SUCCESS,
};

ResultCode openResult(int openCode)
{
    unsigned index = (unsigned)openCode + 29u;
    return index < sizeof OpenResultMap / sizeof OpenResultMap[0] ? OpenResultMap[index] : RESULT_GENERAL_FAILED;
}

const char *resultMessage(ResultCode code)
{
    for (const auto &row : resultTable)
        if (row.code == code)
            return row.message;
    return "Error code unknown";
}

/* How far the building of an envelope got. */
enum Progress { ENVELOPE_NO_ROOT, ENVELOPE_NO_RESP, ENVELOPE_NO_DATA, ENVELOPE_NO_TEXT, ENVELOPE_DONE };

static bool addOutcome(cJSON *resp, ResultCode code)
{
    return cJSON_AddNumberToObject(resp, "respCode", code) &&
           cJSON_AddStringToObject(resp, "respMsg", resultMessage(code)) &&
           cJSON_AddStringToObject(resp, "status", code == RESULT_SUCCESS ? "success" : "fail");
}

/*
 * Where an envelope's data comes from: a document, or else a text to be parsed. Neither is looked at without a name, or
 * when the code is a failure.
 */
struct EnvelopeData {
    const char *name;
    const char *text;
    cJSON *document; /* becomes null when the envelope has taken it over */
};

static bool addData(cJSON *root, EnvelopeData *data)
{
    if (!data->document)
        data->document = cJSON_Parse(data->text);
    if (!cJSON_AddItemToObject(root, data->name, data->document))
        return false;
    data->document = nullptr;
    return true;
}

/* Prints the envelope into *text, which belongs to the caller. The data stands before "resp". */
static Progress buildEnvelope(ResultCode code, EnvelopeData data, char **text)
{
    Progress progress = ENVELOPE_NO_ROOT;
    cJSON *root = cJSON_CreateObject();
    cJSON *resp = nullptr;
    if (root) {
        progress = ENVELOPE_NO_RESP;
        resp = cJSON_CreateObject();
    }
    if (resp && addOutcome(resp, code)) {
        progress = ENVELOPE_NO_DATA;
        if (code != RESULT_SUCCESS || !data.name || addData(root, &data)) {
            progress = ENVELOPE_NO_TEXT;
            if (cJSON_AddItemToObject(root, "resp", resp)) {
                resp = nullptr; /* the root's now */
                *text = cJSON_Print(root);
                progress = *text ? ENVELOPE_DONE : ENVELOPE_NO_TEXT;
            }
        }
    }
    cJSON_Delete(data.document);
    cJSON_Delete(resp);
    cJSON_Delete(root);
    return progress;
}

/* As both of the builders that allocate do it: the finished text takes the place of *output, a failure is logged. */
static int replaceOutput(const char *caller, ResultCode code, const EnvelopeData &data, char **output)
{
    static const char *const steps[] = {"create root object", "create resp object", "parse data JSON", "print JSON"};
    char *text = nullptr;
    Progress progress = buildEnvelope(code, data, &text);
    if (progress != ENVELOPE_DONE) {
        logWrite(LEVEL_ERROR, "[%s:%d] [MEM] Failed to %s\n", caller, __LINE__, steps[progress]);
        return RESULT_GENERAL_FAILED;
    }
    free(*output);
    *output = text;
    return 0;
}

int responseJsonRreallocStr(ResultCode code, const char *dataName, const char *data, char **output)
{
    return replaceOutput(__func__, code, {data ? dataName : nullptr, data, nullptr}, output);
}

int responseJsonDocument(ResultCode code, const char *dataName, cJSON *data, char **output)
{
    return replaceOutput(__func__, code, {dataName, nullptr, data}, output);
}

int responseJsonStr(ResultCode code, const char *dataName, const char *data, char *buffer)
{
    char *text = nullptr;
    Progress progress = buildEnvelope(code, {dataName, data, nullptr}, &text);
    if (progress == ENVELOPE_NO_TEXT)
        LOG(LEVEL_ERROR, "package response str error\r\n");
    if (progress != ENVELOPE_DONE)
        return -1;
    memcpy(buffer, text, strlen(text));
    free(text);
    return 0;
}
