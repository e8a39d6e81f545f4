#include "support/TestSupport.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "bridge/AgentInboxPayload.hpp"

extern char** environ;

namespace testsupport {
namespace fs = std::filesystem;

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "agent-hook-test-XXXXXX").string();
    char* made = ::mkdtemp(pattern.data());
    if (made == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = made;
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

bool exists(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

void makeDirectories(const std::string& path) { fs::create_directories(path); }

void makeExecutable(const std::string& path, const std::string& script) {
    writeText(path, script);
    ::chmod(path.c_str(), 0755);
}

void setAge(const std::string& path, double seconds) {
    timeval times[2];
    ::gettimeofday(&times[0], nullptr);
    times[0].tv_sec -= static_cast<time_t>(seconds);
    times[1] = times[0];
    ::utimes(path.c_str(), times);
}

static void assignVariable(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name.c_str());
    }
}

ScopedVariables::~ScopedVariables() {
    for (const auto& [name, value] : saved_) assignVariable(name, value);
}

void ScopedVariables::set(const std::string& name, const std::optional<std::string>& value) {
    if (!saved_.count(name)) {
        const char* old = std::getenv(name.c_str());
        saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
    }
    assignVariable(name, value);
}

std::string uniqueSessionId(const std::string& label) {
    static std::atomic<int> counter{0};
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? info->name() : "test";
    std::replace(name.begin(), name.end(), '/', '_');
    return "t-" + label + "-" + name + "-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
}

std::vector<std::string> HookEnvironment::build() const {
    std::map<std::string, std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string::npos) variables[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const char* name : {"XDG_DATA_HOME", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR", "VOXTREL_SCHEME"}) {
        variables.erase(name);
    }
    for (const std::string& name : removed) variables.erase(name);
    variables["HOME"] = home;
    variables["PATH"] = binDir + ":" + (variables.count("PATH") ? variables["PATH"] : "/usr/bin:/bin");
    for (const auto& [name, value] : extra) variables[name] = value;
    std::vector<std::string> result;
    for (const auto& [name, value] : variables) result.push_back(name + "=" + value);
    return result;
}

HookEnvironment makeHookEnvironment(const TempDir& dir) {
    HookEnvironment environment;
    environment.home = dir.file("home");
    environment.binDir = dir.file("bin");
    makeDirectories(environment.home);
    makeDirectories(environment.binDir);
    makeExecutable(environment.binDir + "/xdg-open",
                   "#!/bin/sh\nprintf '%s\\n' \"$*\" >> \"$(dirname \"$0\")/xdg-open.calls\"\n");
    return environment;
}

std::string inboxOf(const HookEnvironment& environment) {
    return environment.home + "/.local/share/voxtrel/agent/inbox";
}

std::vector<std::string> xdgOpenCalls(const HookEnvironment& environment) {
    // The fake runs detached: give it a moment to record its call.
    const std::string path = environment.binDir + "/xdg-open.calls";
    // A loaded machine may start it late; a line is whole once its line feed is there.
    std::string text;
    for (int i = 0; i < 300 && ((text = exists(path) ? readText(path) : "").empty() || text.back() != '\n'); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::vector<std::string> calls;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) calls.push_back(line);
    return calls;
}

namespace {

// pipe2 and SOCK_CLOEXEC are Linux's: the tests also build for macOS.
bool closeOnExec(int fds[2]) {
    return ::fcntl(fds[0], F_SETFD, FD_CLOEXEC) == 0 && ::fcntl(fds[1], F_SETFD, FD_CLOEXEC) == 0;
}
bool makePipe(int fds[2]) { return ::pipe(fds) == 0 && closeOnExec(fds); }

// The child's and the test's ends of the child's standard output.
void makeOutput(Output output, int out[2]) {
    switch (output) {
        case Output::pipe:
            if (makePipe(out)) return;
            break;
        case Output::readerGone:
            if (!makePipe(out)) break;
            ::close(out[0]);
            out[0] = -1;
            return;
        case Output::socket: {
            int pair[2];
            if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0 || !closeOnExec(pair)) break;
            out[0] = pair[0];
            out[1] = pair[1];
            return;
        }
    }
    throw std::runtime_error("cannot make the child's standard output");
}

}  // namespace

RunningProcess start(const std::string& program, const std::vector<std::string>& arguments,
                     const std::vector<std::string>& environment, bool closeStdin, const std::string& input,
                     Output output) {
    int in[2], out[2], err[2];
    if (!makePipe(in) || !makePipe(err)) throw std::runtime_error("pipe failed");
    makeOutput(output, out);
    // The input goes into the pipe before the child starts (test inputs are far
    // below a pipe's capacity), so a child that never reads it cannot make
    // this write fail.
    if (!input.empty() && ::write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
        throw std::runtime_error("short write to child");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (const std::string& entry : environment) envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);
    RunningProcess process;
    if (::posix_spawn(&process.pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) {
        throw std::runtime_error("cannot start " + program);
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    process.stdinFd = in[1];
    process.stdoutFd = out[0];
    process.stderrFd = err[0];
    if (closeStdin) {
        ::close(process.stdinFd);
        process.stdinFd = -1;
    }
    return process;
}

Finished finish(RunningProcess& process) {
    Finished result;
    result.pid = process.pid;
    pollfd fds[2] = {{process.stdoutFd, POLLIN, 0}, {process.stderrFd, POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = (process.stdoutFd >= 0 ? 1 : 0) + (process.stderrFd >= 0 ? 1 : 0);
    while (open > 0) {
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[65536];
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<std::size_t>(n));
            } else {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    if (process.stdinFd >= 0) ::close(process.stdinFd);
    int status = 0;
    while (::waitpid(process.pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

Finished runHook(const std::vector<std::string>& arguments, const std::string& input,
                 const HookEnvironment& environment) {
    RunningProcess process = start(AGENT_HOOK_PROGRAM, arguments, environment.build(), true, input);
    return finish(process);
}

namespace {

// "[2026-11-16T20:06:55Z] [731] message" → pid and message.
bool splitLogLine(const std::string& line, pid_t& pid, std::string& message) {
    if (line.size() < 26 || line[0] != '[' || line[21] != ']' || line.compare(22, 2, " [") != 0) return false;
    const std::size_t close = line.find("] ", 24);
    if (close == std::string::npos) return false;
    pid = static_cast<pid_t>(std::stol(line.substr(24, close - 24)));
    message = line.substr(close + 2);
    return true;
}

}  // namespace

std::size_t logSize() {
    struct stat info;
    return ::stat((kScratch + "/debug.log").c_str(), &info) == 0 ? static_cast<std::size_t>(info.st_size) : 0;
}

void waitForInterruptHandler(pid_t pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/status";
    for (int attempt = 0; attempt < 2000; ++attempt) {
        std::istringstream status(readText(path));
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("SigCgt:", 0) == 0 && (std::stoull(line.substr(7), nullptr, 16) & (1ULL << (SIGINT - 1)))) {
                return;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// The messages of the log lines in `text` (of `pid` only, when given); a
// message that held line feeds continues on the following lines.
static std::vector<std::string> messagesOfLines(const std::string& text, std::optional<pid_t> onlyPid) {
    std::vector<std::string> messages;
    std::istringstream lines(text);
    bool taking = false;
    for (std::string line; std::getline(lines, line);) {
        pid_t pid = 0;
        std::string message;
        if (splitLogLine(line, pid, message)) {
            taking = !onlyPid || pid == *onlyPid;
            if (taking) messages.push_back(message);
        } else if (taking && !messages.empty()) {
            messages.back() += "\n" + line;
        }
    }
    return messages;
}

std::vector<std::string> logMessagesOf(pid_t pid, std::size_t since) {
    const std::string log = readText(kScratch + "/debug.log");
    return messagesOfLines(since < log.size() ? log.substr(since) : std::string(), pid);
}

std::vector<std::string> messagesIn(const std::string& standardError) {
    return messagesOfLines(standardError, std::nullopt);
}

std::vector<std::string> payloadPathsIn(const std::string& inbox) {
    std::vector<std::pair<fs::file_time_type, std::string>> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(inbox, error)) {
        if (entry.path().extension() == ".json") files.emplace_back(entry.last_write_time(), entry.path().string());
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> paths;
    for (auto& [time, path] : files) paths.push_back(std::move(path));
    return paths;
}

std::vector<std::string> payloadsIn(const std::string& inbox) {
    std::vector<std::string> payloads;
    for (const std::string& path : payloadPathsIn(inbox)) payloads.push_back(readText(path));
    return payloads;
}

void FakeApp::answerNext(const HookEnvironment& environment, const std::string& reply) {
    join();
    thread_ = std::thread([this, inbox = inboxOf(environment), reply] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            for (const std::string& path : payloadPathsIn(inbox)) {
                const std::string bytes = readText(path);
                const auto decoded = AgentHook::decodeInboxPayload(bytes);
                if (!decoded || decoded->kind != AgentHook::AgentInboxPayload::Kind::update) continue;
                fs::remove(path);
                payload = bytes;
                message = readText(decoded->messageFile.value_or(""));
                const std::string response = decoded->responseFile.value_or("");
                writeText(response + ".partial", reply);
                ::rename((response + ".partial").c_str(), response.c_str());
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
}

void FakeApp::join() {
    if (thread_.joinable()) thread_.join();
}

void removeSessionFiles(const std::string& sessionId) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(kScratch, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(sessionId + "-", 0) == 0 || name == "disabled-" + sessionId) fs::remove(entry.path(), error);
    }
}

std::string escapedSlashes(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '/') escaped.push_back('\\');
        escaped.push_back(c);
    }
    return escaped;
}

std::string dismissPayload(const std::string& sessionId) {
    return R"({"kind":"dismiss","sessionId":")" + sessionId + R"("})";
}

void HookTest::SetUp() {
    environment_ = makeHookEnvironment(dir_);
    session_ = uniqueSessionId("claude");
    cwd_ = dir_.file("proj");
    makeDirectories(cwd_);
}

void HookTest::TearDown() {
    app_.join();
    if (!session_.empty()) removeSessionFiles(session_);
}

std::vector<std::string> HookTest::afterEventLine(const Finished& finished) {
    auto messages = messagesIn(finished.err);
    return messages.size() > 3 ? std::vector<std::string>(messages.begin() + 3, messages.end())
                               : std::vector<std::string>{};
}

std::string HookTest::event(const std::string& name, const std::string& members) const {
    return R"({"hook_event_name":")" + name + R"(","session_id":")" + session_ + R"(","cwd":")" + cwd_ + "\"" +
           members + "}";
}

Finished HookTest::answered(const std::string& input, const std::string& reply, const std::string& agent) {
    app_.answerNext(environment_, reply);
    Finished finished = runHook({agent}, input, environment_);
    app_.join();
    return finished;
}

}  // namespace testsupport
