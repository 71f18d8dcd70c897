/*
 * driver.cpp - processes, files and expected answers.
 */
#include "tests/support/driver.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

static std::string setting(const char *name, const std::string &otherwise)
{
    const char *value = getenv(name);
    return value && *value ? value : otherwise;
}

static std::vector<std::string> argumentsOf(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::string buildDirectory()
{
    return setting("TEST_BUILD", BUILD_DIRECTORY);
}

std::vector<std::string> programCommand()
{
    std::vector<std::string> command = argumentsOf(setting("TEST_LAUNCHER", ""));
    command.push_back(setting("TEST_PROGRAM", buildDirectory() + "/switching_v2.cgi"));
    return command;
}

std::string platformLibraries()
{
    return setting("TEST_LIBRARIES", buildDirectory() + "/lib");
}

const std::string &scratchDirectory()
{
    static const std::string *path = [] { /* never freed: it is needed until the very end */
        std::string name = (fs::temp_directory_path() / "switching-test-XXXXXX").string();
        auto *made = new std::string(mkdtemp(name.data()));
        /* by a path without a space: the loader takes several there */
        fs::create_symlink(setting("TEST_SANDBOX", buildDirectory() + "/lib/libsandbox.so"), *made + "/libsandbox.so");
        atexit([] { fs::remove_all(scratchDirectory()); });
        return made;
    }();
    return *path;
}

std::string enterSandbox(const std::string &name)
{
    std::string tmp = scratchDirectory() + "/" + name;
    fs::create_directories(tmp + "/session");
    setenv("SANDBOX_TMP", tmp.c_str(), 1);
    return tmp;
}

std::string readFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void writeFile(const std::string &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    ASSERT_TRUE(file.good()) << path;
}

static std::vector<char *> pointersOf(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

Process startProcess(const std::vector<std::string> &command, const Environment &environment, const std::string &input)
{
    /* from a file: a process that does not read its input cannot block the test */
    static int inputs = 0;
    std::string inputPath = scratchDirectory() + "/input-" + std::to_string(inputs++);
    writeFile(inputPath, input);
    int inputFile = open(inputPath.c_str(), O_RDONLY | O_CLOEXEC);
    Process process = startProcess(command, environment, inputFile);
    close(inputFile);
    return process;
}

Process startProcess(const std::vector<std::string> &command, const Environment &environment, int input)
{
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = {"PATH=" + setting("PATH", "/usr/bin:/bin")};
    for (const auto &[name, value] : environment)
        variables.push_back(name + "=" + value);
    std::vector<char *> argv = pointersOf(arguments), envp = pointersOf(variables);

    int output[2], errors[2];
    Process process;
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0)
        return process;
    process.pid = fork();
    if (process.pid == 0) {
        dup2(input, 0);
        dup2(output[1], 1);
        dup2(errors[1], 2);
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(output[1]);
    close(errors[1]);
    process.output = output[0];
    process.errors = errors[0];
    return process;
}

Outcome finishProcess(Process process)
{
    Outcome outcome;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    pollfd streams[2] = {{process.output, POLLIN, 0}, {process.errors, POLLIN, 0}};
    while (streams[0].fd >= 0 || streams[1].fd >= 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(process.pid, SIGKILL);
            ADD_FAILURE() << "a process hung and was killed";
            break;
        }
        poll(streams, 2, 1000);
        for (int i = 0; i < 2; i++) {
            char bytes[65536];
            if (streams[i].fd < 0 || !streams[i].revents)
                continue;
            ssize_t got = read(streams[i].fd, bytes, sizeof bytes);
            if (got > 0)
                (i == 0 ? outcome.output : outcome.errors).append(bytes, (size_t)got);
            else
                streams[i].fd = -1;
        }
    }
    int status = 0;
    waitpid(process.pid, &status, 0);
    close(process.output);
    close(process.errors);
    if (WIFEXITED(status))
        outcome.exitStatus = WEXITSTATUS(status);
    else
        outcome.signal = WTERMSIG(status);
    return outcome;
}

int connectTo(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.size(), sizeof address.sun_path) << path;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(connection, (sockaddr *)&address, sizeof address), 0) << path << ": " << strerror(errno);
    timeval limit = {5, 0}; /* a server that does not answer fails the test, and does not stop it */
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return connection;
}

/* Compact JSON as the answers' printer sets it. That each byte is what it should be is shown by the proof. */
static std::string formatted(const std::string &compact)
{
    cJSON *document = cJSON_Parse(compact.c_str());
    char *text = cJSON_Print(document);
    std::string set = text ? text : "no JSON: " + compact;
    cJSON_free(text);
    cJSON_Delete(document);
    return set;
}

static std::string envelope(const std::string &data, int code, const std::string &message)
{
    return formatted("{" + data + (data.empty() ? "" : ",") + R"("resp":{"respCode":)" + std::to_string(code) +
                     R"(,"respMsg":")" + message + R"(","status":")" + (code ? "fail" : "success") + "\"}}");
}

std::string success(const std::string &data)
{
    return envelope(data, 0, "Success");
}

std::string successLine()
{
    return envelope("", 0, "Success") + "\n";
}

std::string failure(int code, const std::string &message)
{
    static const std::map<int, std::string> known = {{10000, "General Failed"},      {10003, "Invalid argument"},
                                                     {10011, "Object exist"},        {10023, "Request api not found"},
                                                     {17002, "Unsupported Feature"}, {-7, "Failed to allocate memory"}};
    if (!message.empty())
        return envelope("", code, message);
    auto found = known.find(code);
    return envelope("", code, found == known.end() ? "Error code unknown" : found->second);
}

std::string failureLine(int code, const std::string &message)
{
    return failure(code, message) + "\n";
}

void SwitchTest::SetUp()
{
    static int tests = 0;
    directory = scratchDirectory() + "/" + std::to_string(tests++);
    socket = directory + "/vswitch.sock";
    fs::create_directories(tmp("session"));
    writeFile(tmp("session/token"), "admin\n0\n");
    startSwitch();
}

void SwitchTest::TearDown()
{
    stopResident();
    stopSwitch();
}

std::vector<std::string> SwitchTest::switchCommand(const std::vector<std::string> &arguments) const
{
    std::vector<std::string> command = {buildDirectory() + "/vswitch", "--socket", socket};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

Process SwitchTest::launchSwitch(const std::vector<std::string> &options)
{
    Process process = startProcess(switchCommand(options), {}, "");
    char line[256]; /* it says when it serves */
    EXPECT_GT(read(process.output, line, sizeof line), 0) << "the virtual switch does not start";
    return process;
}

void SwitchTest::startSwitch(const std::vector<std::string> &options)
{
    stopSwitch();
    traceRead = 0;
    writeFile(directory + "/trace", "");
    std::vector<std::string> all = {"--trace", directory + "/trace"};
    all.insert(all.end(), options.begin(), options.end());
    vswitch = launchSwitch(all);
}

void SwitchTest::stopSwitch()
{
    if (vswitch.pid < 0)
        return;
    kill(vswitch.pid, SIGTERM);
    Outcome outcome = finishProcess(vswitch);
    vswitch = {};
    EXPECT_EQ(outcome.exitStatus, 0) << outcome.errors;
}

void SwitchTest::command(const std::string &line)
{
    Outcome outcome = runProcess(switchCommand(argumentsOf(line)));
    ASSERT_EQ(outcome.exitStatus, 0) << line << ": " << outcome.errors;
}

Environment SwitchTest::request(const std::string &method, const std::string &target, const std::string &body)
{
    size_t question = target.find('?');
    Environment environment = {
        {"REQUEST_METHOD", method},
        {"REQUEST_URI", "/api/v2/switching/" + target},
        {"QUERY_STRING", question == std::string::npos ? "" : target.substr(question + 1)},
        {"HTTP_SESSION", "token"},
        {"OPENCLT_SOCKET", socket},
        {"SANDBOX_TMP", directory + "/tmp"},
        {"LD_PRELOAD", scratchDirectory() + "/libsandbox.so"},
        {"LD_LIBRARY_PATH", setting("TEST_LIBRARIES", "")},
        {"ASAN_OPTIONS", "verify_asan_link_order=0:handle_segv=0:allocator_may_return_null=1"},
        {"UBSAN_OPTIONS", "print_stacktrace=1"},
    };
    if (!body.empty())
        environment["CONTENT_LENGTH"] = std::to_string(body.size());
    return environment;
}

bool SwitchTest::isResident()
{
    return getenv("TEST_RESIDENT");
}

void SwitchTest::startResident(const Environment &environment)
{
    stopResident();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (directory + "/scgi").copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(address.sun_path);
    int listening = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(listening, (sockaddr *)&address, sizeof address), 0);
    EXPECT_EQ(listen(listening, 8), 0);
    residentEnvironment = environment;
    Environment all = environment;
    all["SWITCHING_WORKERS"] = "1";
    resident = startProcess(programCommand(), all, listening);
    close(listening);
}

void SwitchTest::stopResident()
{
    if (resident.pid < 0)
        return;
    kill(resident.pid, SIGTERM);
    EXPECT_EQ(finishProcess(resident).exitStatus, 0);
    resident = {};
}

Outcome SwitchTest::run(const Environment &environment, const std::string &body)
{
    if (!isResident())
        return runProcess(programCommand(), environment, body);
    Environment others = environment;
    std::string head;
    others.try_emplace("CONTENT_LENGTH", "0");
    for (const char *name : {"CONTENT_LENGTH", "REQUEST_URI", "REQUEST_METHOD", "QUERY_STRING", "HTTP_SESSION", "HTTP_REFRESH"})
        if (auto variable = others.extract(name))
            head += name + ('\0' + variable.mapped()) + '\0';
    if (resident.pid < 0 || others != residentEnvironment)
        startResident(others);
    int server = connectTo(directory + "/scgi");
    const std::string request = std::to_string(head.size()) + ":" + head + "," + body;
    timeval limit = {60, 0};
    setsockopt(server, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::send(server, request.data(), request.size(), MSG_NOSIGNAL);
    shutdown(server, SHUT_WR);
    Outcome outcome;
    char bytes[65536];
    for (ssize_t got; (got = recv(server, bytes, sizeof bytes, 0)) > 0;)
        outcome.output.append(bytes, (size_t)got);
    close(server);
    outcome.exitStatus = 0;
    return outcome;
}

std::string SwitchTest::send(const std::string &method, const std::string &target, const std::string &body)
{
    Outcome outcome = run(request(method, target, body), body);
    EXPECT_EQ(outcome.exitStatus, 0) << outcome.errors;
    EXPECT_EQ(outcome.output.substr(0, header.size()), header) << method << " " << target;
    return outcome.output.size() < header.size() ? "" : outcome.output.substr(header.size());
}

static std::string squeezed(std::string text)
{
    std::erase_if(text, [](char c) { return isspace((unsigned char)c); });
    return text;
}

void SwitchTest::play(const std::string &steps)
{
    std::istringstream lines(steps);
    for (std::string line, more; std::getline(lines, line);) {
        while (strchr("|{", (lines >> std::ws).peek()) && std::getline(lines, more))
            line += " " + more;
        size_t start = line.find_first_not_of(' '), bar = line.find(" | ");
        if (start == std::string::npos)
            continue;
        std::string expected = bar == std::string::npos ? "" : line.substr(bar + 3), method, target, body;
        std::string step = line.substr(start, bar == std::string::npos ? bar : bar - start);
        if (islower((unsigned char)step[0])) {
            Outcome outcome = runProcess(switchCommand(argumentsOf(step)));
            EXPECT_EQ(outcome.exitStatus, expected.empty() ? 0 : 2) << line << ": " << outcome.errors;
            EXPECT_NE(outcome.errors.find(expected), std::string::npos) << line << ": " << outcome.errors;
            continue;
        }
        std::istringstream words(step);
        words >> method >> target;
        std::getline(words, body);
        std::string code = expected.empty() ? "0" : expected;
        bool isCode = code.find_first_not_of("-0123456789") == std::string::npos;
        std::string answer = squeezed(send(method, target, body));
        EXPECT_NE(answer.find(isCode ? "\"respCode\":" + code + "," : squeezed(expected)), std::string::npos)
            << line << "\n" << answer;
    }
}

void SwitchTest::awaitCall(const std::string &operation) const
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (readFile(directory + "/trace").find(operation + " ", traceRead) == std::string::npos) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "the program did not call " << operation << " within 20 seconds";
            return;
        }
        usleep(5000);
    }
}

std::string SwitchTest::takeTrace()
{
    std::string all = readFile(directory + "/trace");
    std::istringstream added(all.substr(traceRead));
    traceRead = all.size();
    std::string text;
    for (std::string line; std::getline(added, line);) {
        if (line[0] == '[')
            line.erase(0, line.find("] ") + 2); /* the process that called */
        bool startUp = line.starts_with("rpcclt_openapiConnectivityCheck") ||
                       line.starts_with("rpcclt_openapiNetworkOSVersionGet") ||
                       line.starts_with("rpcclt_openapiApiVersionGet");
        if (!startUp)
            text += (text.empty() ? "" : "\n") + line;
    }
    return text;
}
