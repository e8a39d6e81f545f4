// Shared pieces of the tests: a fresh directory per test, running the built
// program as a child with a controlled environment, and reading what it left
// in the log, the inbox and the scratch directory.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace testsupport {

inline const std::string kScratch = "/tmp/voxtrel-agent";

// A directory made fresh for each test and removed afterwards.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

void writeText(const std::string& path, const std::string& text);
std::string readText(const std::string& path);
bool exists(const std::string& path);
void makeDirectories(const std::string& path);
void makeExecutable(const std::string& path, const std::string& script);
// Sets the file's access and modification times to `seconds` ago.
void setAge(const std::string& path, double seconds);

// Sets or unsets (nullopt) variables of the test process itself; each one
// gets its old value back when the object goes.
class ScopedVariables {
public:
    ScopedVariables() = default;
    ScopedVariables(const ScopedVariables&) = delete;
    ScopedVariables& operator=(const ScopedVariables&) = delete;
    ~ScopedVariables();
    void set(const std::string& name, const std::optional<std::string>& value);

private:
    std::map<std::string, std::optional<std::string>> saved_;
};

// A unique session id for one test ("t-<test name>-<pid>-<counter>").
std::string uniqueSessionId(const std::string& label);

// The environment the hook sees in end-to-end tests: HOME in `home`, no
// XDG_DATA_HOME, no session bus, and `binDir` first on PATH (where a
// recording fake xdg-open lives).
struct HookEnvironment {
    std::string home;
    std::string binDir;
    std::map<std::string, std::string> extra;   // set
    std::vector<std::string> removed;           // unset besides the defaults
    std::vector<std::string> build() const;
};

// Makes home, binDir and a fake xdg-open that appends its arguments to
// binDir/xdg-open.calls.
HookEnvironment makeHookEnvironment(const TempDir& dir);
std::string inboxOf(const HookEnvironment& environment);
std::vector<std::string> xdgOpenCalls(const HookEnvironment& environment);

struct RunningProcess {
    pid_t pid = -1;
    int stdinFd = -1;
    int stdoutFd = -1;
    int stderrFd = -1;
};

struct Finished {
    int status = -1;  // exit status; 128+N when killed by signal N
    std::string out;
    std::string err;
    pid_t pid = -1;
};

// What the child's standard output is: a pipe or a socket read by the test
// (stdoutFd; closing it makes the reader go away), or a pipe whose reading
// end is closed before the child starts.
enum class Output { pipe, socket, readerGone };

RunningProcess start(const std::string& program, const std::vector<std::string>& arguments,
                     const std::vector<std::string>& environment, bool closeStdin = true,
                     const std::string& input = "", Output output = Output::pipe);
Finished finish(RunningProcess& process);
Finished runHook(const std::vector<std::string>& arguments, const std::string& input,
                 const HookEnvironment& environment);

// The debug log's size now: process ids are reused, so a test reads only the
// lines written after it started.
std::size_t logSize();
// The messages of `pid`'s lines in the debug log after `since`, prefix removed.
std::vector<std::string> logMessagesOf(pid_t pid, std::size_t since);

// Waits until `pid` has a SIGINT handler installed (Linux /proc).
void waitForInterruptHandler(pid_t pid);
// The messages of the log lines in a captured standard error.
std::vector<std::string> messagesIn(const std::string& standardError);

// The payload files (".json") in `inbox`, oldest first: their paths, their bytes.
std::vector<std::string> payloadPathsIn(const std::string& inbox);
std::vector<std::string> payloadsIn(const std::string& inbox);

// Plays the app in a thread: takes the next update payload that lands in the
// inbox (removing it, as the app does), keeps it and its message file, and
// answers through a temporary file moved into place.
class FakeApp {
public:
    FakeApp() = default;
    FakeApp(const FakeApp&) = delete;
    FakeApp& operator=(const FakeApp&) = delete;
    ~FakeApp() { join(); }

    void answerNext(const HookEnvironment& environment, const std::string& reply);
    void join();

    std::string payload;  // the update payload's bytes
    std::string message;  // the message file's bytes

private:
    std::thread thread_;
};

// Removes the session's request files from the scratch directory.
void removeSessionFiles(const std::string& sessionId);

// The permission decisions as every agent gets them; `message` as written in JSON.
inline const std::string kAllow =
    R"({"hookSpecificOutput":{"decision":{"behavior":"allow","message":""},"hookEventName":"PermissionRequest"}})";
inline std::string denial(const std::string& message) {
    return R"({"hookSpecificOutput":{"decision":{"behavior":"deny","message":")" + message +
           R"("},"hookEventName":"PermissionRequest"}})";
}

// Every "/" written as "\/", as the hook's JSON writes it.
std::string escapedSlashes(const std::string& text);
// The payload that withdraws a session's request.
std::string dismissPayload(const std::string& sessionId);

// One end-to-end test of the hook: a fresh HOME, a unique session id, a
// project directory "proj", and a FakeApp; the session's files go afterwards.
class HookTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The log messages after "Hook started", the input record and the "Event:" line.
    static std::vector<std::string> afterEventLine(const Finished& finished);
    // An event of this test's session and project; `members` follow, each
    // written with its leading comma.
    std::string event(const std::string& name, const std::string& members = "") const;
    // Runs `agent-hook <agent>` on `input` while the app answers `reply`.
    Finished answered(const std::string& input, const std::string& reply, const std::string& agent = "claude");

    TempDir dir_;
    HookEnvironment environment_;
    std::string session_;
    std::string cwd_;
    FakeApp app_;
};

}  // namespace testsupport
