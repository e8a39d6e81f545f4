// Many hooks at once: 64 permission requests of one session answered
// "always" together, each with a rule of its own. No log line may be broken
// or lost, no rule lost, and the project's settings file must be whole JSON
// at every moment.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <thread>

#include "bridge/AgentInboxPayload.hpp"
#include "support/TestSupport.hpp"
#include "text/Json.hpp"

using namespace testsupport;

using Load = HookTest;

TEST_F(Load, SixtyFourAlwaysAnswersAtOnce) {
    constexpr int kHooks = 64;
    const std::string settings = cwd_ + "/.claude/settings.local.json";
    const std::size_t since = logSize();
    std::vector<RunningProcess> hooks;
    for (int i = 0; i < kHooks; ++i) {
        const std::string job = "job " + std::to_string(i);
        const std::string input = event("PermissionRequest", R"(,"tool_name":"Bash","tool_input":{"command":")" + job +
                                                                 R"("},"permission_suggestions":[{"type":"addRules","behavior":"allow",)"
                                                                 R"("rules":[{"toolName":"Bash","ruleContent":")" + job + R"(:*"}]}])");
        hooks.push_back(start(AGENT_HOOK_PROGRAM, {"claude"}, environment_.build(), true, input));
    }
    std::vector<std::string> responses;
    for (int attempt = 0; attempt < 4000 && responses.size() < kHooks; ++attempt) {
        responses.clear();
        for (const std::string& payload : payloadsIn(inboxOf(environment_))) {
            responses.push_back(*AgentHook::decodeInboxPayload(payload)->responseFile);
        }
        ::usleep(5000);
    }
    ASSERT_EQ(responses.size(), static_cast<std::size_t>(kHooks));

    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        while (!done) {
            if (!exists(settings)) continue;
            const auto parsed = AgentHook::text::parseJson(readText(settings));
            if (!parsed || !parsed->is_object()) ++torn;
        }
    });
    for (const std::string& response : responses) writeText(response, "always");
    std::vector<Finished> finished;
    for (RunningProcess& hook : hooks) finished.push_back(finish(hook));
    done = true;
    reader.join();

    EXPECT_EQ(torn, 0);
    const std::string rules = readText(kScratch + "/" + session_ + "-autoaccept-Bash");
    const std::string allowed = readText(settings);
    for (int i = 0; i < kHooks; ++i) {
        const std::string rule = "job " + std::to_string(i) + ":*";
        EXPECT_NE(("\n" + rules + "\n").find("\n" + rule + "\n"), std::string::npos) << rule;
        EXPECT_NE(allowed.find("\"Bash(" + rule + ")\""), std::string::npos) << rule;
    }
    for (const Finished& hook : finished) {
        EXPECT_EQ(hook.out, kAllow);
        // What reached the log is what went to standard error, line for line.
        EXPECT_EQ(logMessagesOf(hook.pid, since), messagesIn(hook.err)) << hook.pid;
    }
}
