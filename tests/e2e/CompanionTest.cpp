// The stand-in app against a hand-written request: what it shows of the
// request's choices and what it writes back for a scripted answer or a typed one.
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

class Companion : public ::testing::Test {
protected:
    void SetUp() override {
        environment_ = makeHookEnvironment(dir_);
        makeDirectories(inboxOf(environment_));
        session_ = uniqueSessionId("companion");
    }

    // Puts one permission request in the inbox, as the hook would, and runs
    // the companion until it has answered it; `timeout` ends a companion that
    // never does.
    Finished answer(const std::string& body, const std::vector<std::string>& options, const std::string& input) {
        ::unlink(responseFile().c_str());
        writeText(messageFile(), body);
        writeText(inboxOf(environment_) + "/" + session_ + ".json",
                  R"({"agent":"claude-code","kind":"update","messageFile":")" + messageFile() + R"(","requestId":")" +
                      session_ + R"(","responseFile":")" + responseFile() + R"(","sessionId":")" + session_ +
                      R"(","status":"permission","summary":"Run command?"})");
        std::vector<std::string> arguments{"10", AGENT_HOOK_COMPANION, "--exit-after", "1"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        RunningProcess companion = start("/usr/bin/timeout", arguments, environment_.build(), true, input);
        return finish(companion);
    }

    std::string messageFile() const { return dir_.file("message.txt"); }
    std::string responseFile() const { return dir_.file("response.txt"); }

    TempDir dir_;
    HookEnvironment environment_;
    std::string session_;
};

}  // namespace

TEST_F(Companion, PermissionChoicesSendTheWordsTheHookUnderstands) {
    const std::string body =
        R"({"toolName":"Bash","summary":"Run command?","details":"npm test","context":"Tests next.",)"
        R"("suggestions":[{"label":"Yes","behavior":"allow","tool":"Bash"},)"
        R"({"label":"Always allow in npm test:*","behavior":"always","tool":"Bash","rules":[{"ruleContent":"npm test:*"}]},)"
        R"({"label":"Bypass permissions for this session","behavior":"bypass-perms","tool":"Bash"},)"
        R"({"label":"No","behavior":"deny","tool":"Bash"}]})";
    const std::string shown =
        "tool:     Bash\n"
        "details:  npm test\n"
        "context:\n"
        "    Tests next.\n"
        "choices:\n"
        "    1. Yes  (sends \"allow\")\n"
        "    2. Always allow in npm test:*  (sends \"always\")\n"
        "    3. Bypass permissions for this session  (sends \"bypass\")\n"
        "    4. No  (sends \"deny\")\n";
    struct Case {
        std::vector<std::string> options;
        std::string input;
        std::string response;
    };
    const Case cases[] = {
        {{"--answer", "Allow "}, "", "Allow "},  // scripted answers go verbatim
        {{}, "3\n", "bypass"},                   // not the choice's "bypass-perms"
        {{}, " 4 \n", "deny"},
        {{}, "5\n", "5"},                        // no such choice: sent as typed
        {{}, "use the staging database\n", "use the staging database"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input.empty() ? c.options.back() : c.input);
        const Finished companion = answer(body, c.options, c.input);
        EXPECT_EQ(companion.status, 0) << companion.err;
        EXPECT_NE(companion.out.find(shown), std::string::npos) << companion.out;
        EXPECT_EQ(readText(responseFile()), c.response);
    }
}

