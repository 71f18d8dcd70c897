/*
 * request_fuzzer.cpp - requests of any kind, to a switch that replies anything.
 *
 * An input is lines, and what follows them is the switch's replies:
 *
 *   method            as it is; empty with "@N": the endpoint's
 *   URI               "@N" at its start stands for the path of the Nth endpoint
 *   query             empty: what follows the URI's first "?"; "-": none
 *   content length    empty: the body's; "-": none
 *   session           "admin", "rw" and "ro" are good ones, "fuzz" is that of the line after the next; "-": none
 *   refresh           empty: none
 *   session file      "|" stands for a newline
 *   body
 *   flags (one byte)  1: the replies of the start-up come from here, too; 2: the client cannot be registered
 *
 * For any input, the answer is empty, a refusal, or an envelope, and no client is served without a session.
 */
#include <cjson/cJSON.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/open_client.h"
#include "httpd/dispatch.h"
#include "log/log.h"
#include "main/endpoints.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/fuzz/hostile_switch.h"

enum : size_t { LARGEST = 1 << 20 }; /* allocation, and length of a body */

struct Endpoint {
    std::string path;
    const char *method;
};

static RouteTree *tree;
static std::vector<Endpoint> endpoints;
static std::string temporary;
static thread_local bool serving; /* not in the thread of the fuzzer */

extern "C" {

void *__real_calloc(size_t count, size_t size);

/* The switch can announce a count that needs too much memory. Large allocations fail at once here. */
void *__wrap_calloc(size_t count, size_t size)
{
    if (!serving || std::max(count, count * size) <= LARGEST)
        return __real_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}

/* The program does not wait. The fuzzer's own thread does, without the sandbox, which reads a changing environment. */
unsigned __wrap_sleep(unsigned seconds)
{
    if (!serving)
        usleep(seconds * 1000000);
    return 0;
}

} /* extern "C" */

static void collect(RouteDir *dir, const std::string &path)
{
    for (RouteEntry *entry = dir->entries; entry; entry = entry->next)
        endpoints.push_back({path + "/" + entry->name, httpMethodName(entry->method)});
    for (RouteDir *child = dir->firstChild; child; child = child->nextSibling)
        collect(child, path + "/" + child->name);
}

static void writeSession(const char *name, const std::string &content)
{
    std::ofstream(temporary + "/session/" + name) << content;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    temporary = (std::filesystem::temp_directory_path() / "request-fuzzer-XXXXXX").string();
    check(mkdtemp(temporary.data()), "There is no directory");
    atexit([] { std::filesystem::remove_all(temporary); });
    setenv("SANDBOX_TMP", temporary.c_str(), 1);
    setenv("SANDBOX_UPTIME", "7300", 1);
    mkdir((temporary + "/session").c_str(), 0700);
    writeSession("admin", "admin\n7000\nadmin");
    writeSession("rw", "joe\n7000\nrw\nrw");
    writeSession("ro", "joe\n7000\nro\nro");

    tree = routeTreeCreate();
    registerEndpoints(tree);
    collect(tree->root, "");
    return 0;
}

static void setVariable(const char *name, const std::string &value, bool present)
{
    if (present)
        setenv(name, value.c_str(), 1);
    else
        unsetenv(name);
}

/* Makes the environment of a request from the lines of the input. Returns the body. */
static std::string arrangeRequest(FuzzInput *input)
{
    std::string method = takeLine(input);
    std::string uri = takeLine(input);
    if (!uri.empty() && uri[0] == '@') {
        char *rest;
        const Endpoint &endpoint = endpoints[strtoul(uri.c_str() + 1, &rest, 10) % endpoints.size()];
        uri = endpoint.path + rest;
        if (method.empty())
            method = endpoint.method;
    }
    setVariable("REQUEST_METHOD", method, !method.empty());
    setVariable("REQUEST_URI", uri, !uri.empty());

    std::string query = takeLine(input);
    size_t question = uri.find('?');
    if (query.empty() && question != std::string::npos)
        query = uri.substr(question + 1);
    setVariable("QUERY_STRING", query, query != "-");

    std::string length = takeLine(input);
    if (strtoll(length.c_str(), nullptr, 10) >= (long long)LARGEST)
        length = std::to_string(LARGEST - 1); /* else the process ends: out of memory */
    std::string session = takeLine(input);
    std::string refresh = takeLine(input);
    std::string file = takeLine(input);
    std::string body = takeLine(input);
    setVariable("CONTENT_LENGTH", length.empty() ? std::to_string(body.size()) : length, length != "-");
    setVariable("HTTP_SESSION", session, session != "-");
    setVariable("HTTP_REFRESH", refresh, !refresh.empty());
    if (session == "fuzz") {
        std::replace(file.begin(), file.end(), '|', '\n');
        writeSession("fuzz", file);
    }
    return body;
}

/* The same steps as main(). */
static void serve()
{
    serving = true;
    logOpen(LOG_TO_FILE, LOG_USER, "kelt_cgi");
    if (initHandler("switching_v2.cgi", &openClient) >= 0) {
        httpdProcessRequest(tree);
        openapiClientTearDown(&openClient);
    }
    logClose();
    serving = false;
}

static void checkEnvelope(const std::string &body, const std::string &output)
{
    const char *end = nullptr;
    cJSON *root = cJSON_ParseWithLengthOpts(body.c_str(), body.size() + 1, &end, 0);
    check(root, "The body is no JSON:", output);
    check(*end == 0 || strcmp(end, "\n") == 0, "Something stands behind the envelope:", output);
    cJSON *resp = cJSON_GetArrayItem(root, cJSON_GetArraySize(root) - 1);
    check(resp && strcmp(resp->string, "resp") == 0, "The last member is not \"resp\":", output);
    cJSON *code = cJSON_GetObjectItemCaseSensitive(resp, "respCode");
    cJSON *message = cJSON_GetObjectItemCaseSensitive(resp, "respMsg");
    cJSON *status = cJSON_GetObjectItemCaseSensitive(resp, "status");
    check(cJSON_IsNumber(code) && cJSON_IsString(message) && cJSON_IsString(status), "A part is missing:", output);
    bool success = code->valuedouble == 0;
    check(strcmp(status->valuestring, success ? "success" : "fail") == 0, "Code and status differ:", output);
    check(cJSON_GetArraySize(root) <= (success ? 2 : 1), "There is too much data:", output);
    cJSON_Delete(root);
}

static bool mayBeServed()
{
    const char *method = getenv("REQUEST_METHOD"), *variable = getenv("HTTP_SESSION");
    const std::string session = variable ? variable : "";
    bool writes = session == "admin" || session == "rw" || session == "fuzz";
    return writes || (session == "ro" && method && strcasecmp(method, "GET") == 0);
}

static void checkAnswer(const std::string &output)
{
    static const std::string header = "Content-Type: application/json\r\n\r\n";
    if (output.empty() || output == "Status:403\r\n\r\n" || output.starts_with("Invalid request path '")) {
        check(callsSinceStart() == 0, "The switch was called, but there is no answer:", output);
        return;
    }
    check(mayBeServed(), "A request without a session was served:", output);
    checkEnvelope(output.starts_with(header) ? output.substr(header.size()) : output, output);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    FuzzInput input = {bytes, size};
    std::string body = arrangeRequest(&input);
    uint8_t flags = takeNumber<uint8_t>(&input);
    replyFrom(&input, flags & 1, !(flags & 2));

    FILE *usualInput = stdin, *usualOutput = stdout;
    char *output = nullptr;
    size_t outputSize = 0;
    stdin = body.empty() ? fopen("/dev/null", "r") : fmemopen(body.data(), body.size(), "r");
    stdout = open_memstream(&output, &outputSize);
    serve();
    fclose(stdin);
    fclose(stdout);
    stdin = usualInput;
    stdout = usualOutput;
    checkAnswer(std::string(output, outputSize));
    free(output);
    return 0;
}
