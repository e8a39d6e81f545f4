// A request that nobody can answer any more is withdrawn at once: the agent
// ended the hook, the agent is gone, or the user answered in the agent.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

const std::string kCall = R"({"command":"npm test","description":"Run the tests"})";

class Withdrawal : public HookTest {
protected:
    std::string transcript() const { return dir_.file("t.jsonl"); }
    std::string stopEvent() const {
        return event("Stop", R"(,"transcript_path":")" + transcript() + R"(","last_assistant_message":"Done.")");
    }
    std::string permissionEvent() const {
        return event("PermissionRequest",
                     R"(,"transcript_path":")" + transcript() + R"(","tool_name":"Bash","tool_input":)" + kCall);
    }
    // Starts the hook and waits until its request is in the inbox, and so its
    // signal handlers in place (under an emulator /proc cannot tell them).
    RunningProcess waiting(const std::string& input, Output output = Output::pipe) {
        const std::string inbox = inboxOf(environment_);
        const std::size_t before = payloadsIn(inbox).size();
        RunningProcess process = start(AGENT_HOOK_PROGRAM, {"claude"}, environment_.build(), true, input, output);
        for (int attempt = 0; attempt < 4000 && payloadsIn(inbox).size() <= before; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_GT(payloadsIn(inbox).size(), before);
        waitForInterruptHandler(process.pid);
        return process;
    }
    void append(const std::string& text) { writeText(transcript(), readText(transcript()) + text); }
    // Still running after a while: nothing made it give up.
    static bool stillRunningLater(pid_t pid) {
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        const std::string status = readText("/proc/" + std::to_string(pid) + "/stat");
        return !status.empty() && status.find(") Z") == std::string::npos;
    }
    // The hook ended without output, said why, and withdrew its request.
    void expectWithdrawn(RunningProcess& process, const std::string& reason) {
        const Finished finished = finish(process);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.out, "");
        EXPECT_EQ(messagesIn(finished.err).back(), reason + " \xE2\x80\x94 dismissing session=" + session_ + " and exiting");
        EXPECT_EQ(payloadsIn(inboxOf(environment_)).back(), dismissPayload(session_));
    }
};

}  // namespace

TEST_F(Withdrawal, TheAgentEndingTheHook) {
    const std::pair<int, std::string> signals[] = {
        {SIGTERM, "SIGTERM received"}, {SIGHUP, "SIGHUP received"}, {SIGINT, "SIGINT received"}};
    for (const auto& [signal, reason] : signals) {
        writeText(transcript(), "");
        // Ctrl-C ends a finished turn's wait; the others, a permission request's.
        RunningProcess process = waiting(signal == SIGINT ? stopEvent() : permissionEvent());
        ::kill(process.pid, signal);
        expectWithdrawn(process, reason);
    }
    EXPECT_TRUE(exists(kScratch + "/" + session_ + "-stop-message.txt"));  // kept for the next turn
}

TEST_F(Withdrawal, TheAgentGone) {
    for (const Output output : {Output::socket, Output::pipe}) {
        RunningProcess process = waiting(stopEvent(), output);
        ::close(process.stdoutFd);  // the agent's end of the hook's standard output
        process.stdoutFd = -1;
        expectWithdrawn(process, "Standard output hung up (the agent is gone)");
    }
}

TEST_F(Withdrawal, AnAnswerInClaudeCodesOwnDialog) {
    // The call is written before the hook starts; another call of the tool runs in parallel.
    writeText(transcript(),
              R"({"type":"assistant","message":{"content":[{"type":"tool_use","id":"toolu_1","name":"Bash","input":{"command":"ls"}},)"
              R"({"type":"tool_use","id":"toolu_2","name":"Bash","input":)" + kCall + "}]}}\n");
    RunningProcess process = waiting(permissionEvent());
    append(R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"toolu_1","content":"a"}]}})" "\r\n");
    EXPECT_TRUE(stillRunningLater(process.pid));
    append(R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"toolu_2","content":"ok"}]}})" "\n");
    expectWithdrawn(process, "The call was answered in Claude Code (toolu_2)");
}

// A permission request given up after the session's next request (its Stop)
// went out must not take that one down: only the latest request of a session
// is ever dismissed by the hook that sent it.
TEST_F(Withdrawal, AHookThatGivesUpLateLeavesTheSessionsNewerRequest) {
    const std::string answeredInTheDialog =
        R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"toolu_9","content":"ok"}]}})";
    for (const bool byTheDialog : {true, false}) {
        writeText(transcript(), R"({"type":"assistant","message":{"content":[{"type":"tool_use","id":"toolu_9","name":"Bash","input":)" +
                                    kCall + "}]}}\n");
        RunningProcess permission = waiting(permissionEvent());
        RunningProcess stop = waiting(stopEvent());
        const std::string stopRequest = payloadsIn(inboxOf(environment_)).back();
        if (byTheDialog) {
            append(answeredInTheDialog + "\n");
        } else {
            ::kill(permission.pid, SIGTERM);
        }
        const Finished late = finish(permission);
        EXPECT_EQ(late.status, 0);
        EXPECT_EQ(late.out, "");
        const std::string reason = byTheDialog ? "The call was answered in Claude Code (toolu_9)" : "SIGTERM received";
        EXPECT_EQ(messagesIn(late.err).back(),
                  reason + " \xE2\x80\x94 a newer request of session=" + session_ + " is showing; exiting without a dismiss");
        EXPECT_EQ(payloadsIn(inboxOf(environment_)).back(), stopRequest);
        // The newer request itself is still the session's latest: it is withdrawn as ever.
        ::kill(stop.pid, SIGTERM);
        expectWithdrawn(stop, "SIGTERM received");
    }
}
