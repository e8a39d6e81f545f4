// The round trip with an injected sleep: the schedule, the answer, the clean-up,
// the time-out and the interrupt, without ever waiting.
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

#include "bridge/Inbox.hpp"
#include "bridge/Polling.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook;
using testsupport::TempDir;

namespace {

class Polling : public ::testing::Test {
protected:
    void SetUp() override {
        environment_ = testsupport::makeHookEnvironment(dir_);
        ::setenv("HOME", environment_.home.c_str(), 1);
        for (const char* name : {"XDG_DATA_HOME", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR", "VOXTREL_SCHEME"}) {
            ::unsetenv(name);
        }
        savedPath_ = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
        ::setenv("PATH", (environment_.binDir + ":" + savedPath_).c_str(), 1);
        scratch_ = dir_.file("scratch");
        request_.agent = Agent::codex;
        request_.status = "permission";
        request_.sessionId = "s1";
        request_.summary = "Run command?";
        request_.fullMessage = "{\"command\":\"ls\"}";
        request_.cwd = "/w/app";
        request_.projectName = "app";
        request_.gitBranch = "main";
        request_.title = "";
    }
    void TearDown() override { ::setenv("PATH", savedPath_.c_str(), 1); }

    // Runs the round trip; `onSleep` is called with the sleep's index and length.
    WaitResult roundTrip(std::function<void(int index, int seconds)> onSleep) {
        PollEnvironment poll;
        poll.scratchDirectory = scratch_;
        poll.sleep = [&, onSleep](int seconds) {
            sleeps_.push_back(seconds);
            onSleep(static_cast<int>(sleeps_.size()), seconds);
        };
        return sendToVoxtrelAndWait(request_, poll);
    }

    RequestFiles files() const {
        return requestFiles(scratch_, request_.sessionId, request_.fileKey.value_or(std::to_string(::getpid())));
    }
    std::string scratchLog() const { return testsupport::readText(scratch_ + "/debug.log"); }

    TempDir dir_;
    testsupport::HookEnvironment environment_;
    std::string savedPath_;
    std::string scratch_;
    VoxtrelRequest request_;
    std::vector<int> sleeps_;
};

}  // namespace

TEST_F(Polling, ReturnsTheAnswerVerbatimAndCleansUpByKey) {
    struct Case {
        std::optional<std::string> fileKey;
        int answerAtSleep;
        bool filesKept;
    };
    const Case cases[] = {{std::nullopt, 1, false}, {"stop", 1, true}, {std::nullopt, 350, false}};
    for (const Case& c : cases) {
        request_.fileKey = c.fileKey;
        sleeps_.clear();
        const RequestFiles paths = files();
        const WaitResult result = roundTrip([&](int index, int) {
            if (index == c.answerAtSleep) testsupport::writeText(paths.responseFile, "allow\n");
        });
        EXPECT_FALSE(result.interrupted);
        EXPECT_EQ(result.reply, "allow\n");
        EXPECT_EQ(static_cast<int>(sleeps_.size()), c.answerAtSleep);
        EXPECT_EQ(testsupport::exists(paths.messageFile), c.filesKept);
        EXPECT_EQ(testsupport::exists(paths.responseFile), c.filesKept);
        EXPECT_NE(scratchLog().find("Poll got response (6 chars) for session=s1 requestId=" + paths.requestId + "\n"),
                  std::string::npos);
    }
}

TEST_F(Polling, AStaleAnswerIsRemovedBeforeTheAppIsTold) {
    request_.fileKey = "stop";
    const RequestFiles paths = files();
    testsupport::makeDirectories(scratch_);
    testsupport::writeText(paths.responseFile, "stale");
    const WaitResult result = roundTrip([&](int index, int) {
        if (index == 3) testsupport::writeText(paths.responseFile, "fresh");
    });
    EXPECT_EQ(result.reply, "fresh");
}

TEST_F(Polling, AnAnswerThatIsNotUtf8IsReadAgainLater) {
    const RequestFiles paths = files();
    const WaitResult result = roundTrip([&](int index, int) {
        testsupport::writeText(paths.responseFile, index < 2 ? "\xFF" : "deny");
    });
    EXPECT_EQ(result.reply, "deny");
    EXPECT_EQ(sleeps_.size(), 2u);
}

TEST_F(Polling, TimesOutAfterThirtyMinutesAndDismisses) {
    for (const std::optional<std::string>& key : {std::optional<std::string>{}, std::optional<std::string>{"stop"}}) {
        request_.fileKey = key;
        sleeps_.clear();
        const WaitResult result = roundTrip([](int, int) {});
        EXPECT_FALSE(result.reply);
        EXPECT_FALSE(result.interrupted);
        ASSERT_EQ(sleeps_.size(), 450u);
        EXPECT_EQ(sleeps_[299], 1);
        EXPECT_EQ(sleeps_[300], 10);
        EXPECT_EQ(testsupport::exists(files().messageFile), key.has_value());
        EXPECT_NE(scratchLog().find("Poll timeout after 1800s for session=s1 requestId=" + files().requestId + "\n"),
                  std::string::npos);
    }
    const auto payloads = testsupport::payloadsIn(testsupport::inboxOf(environment_));
    EXPECT_NE(std::find(payloads.begin(), payloads.end(), R"({"kind":"dismiss","sessionId":"s1"})"), payloads.end());
}

TEST_F(Polling, AnUnwritableInboxIsLoggedAndTheWaitGoesOn) {
    testsupport::makeDirectories(environment_.home + "/.local/share/voxtrel/agent");
    testsupport::writeText(testsupport::inboxOf(environment_), "a file in the way");
    const RequestFiles paths = files();
    const std::size_t since = testsupport::logSize();
    const WaitResult result = roundTrip([&](int index, int) {
        if (index == 2) testsupport::writeText(paths.responseFile, "ok");
    });
    EXPECT_EQ(result.reply, "ok");
    const auto messages = testsupport::logMessagesOf(::getpid(), since);
    auto has = [&](const std::string& prefix) {
        return std::any_of(messages.begin(), messages.end(), [&](const std::string& m) { return m.rfind(prefix, 0) == 0; });
    };
    EXPECT_TRUE(has("Failed to create inbox directory: "));
    EXPECT_TRUE(has("Inbox write failed; deeplink fallback may be needed"));
}

TEST(WakeUrl, UsesTheSchemeWhenItIsAValidUrlScheme) {
    EXPECT_EQ(wakeUrl("voxtrel"), "voxtrel://agent-wake");
    EXPECT_EQ(wakeUrl("my-scheme+x.1"), "my-scheme+x.1://agent-wake");
    for (const char* bad : {"", "1abc", "my scheme", "a:b", "é"}) EXPECT_FALSE(wakeUrl(bad)) << bad;
}
