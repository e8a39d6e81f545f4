// The round trip with an injected sleep: the schedule, the answer, the
// clean-up and the time-out, without ever waiting.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <limits>
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
        variables_.set("HOME", environment_.home);
        for (const char* name : {"XDG_DATA_HOME", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR", "VOXTREL_SCHEME"}) {
            variables_.set(name, std::nullopt);
        }
        const char* path = std::getenv("PATH");
        variables_.set("PATH", environment_.binDir + ":" + (path ? path : "/usr/bin:/bin"));
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

    // Runs the round trip without waiting; `afterWait` is called with the
    // seconds counted so far each time the loop would have waited.
    WaitResult roundTrip(std::function<void(double elapsed)> afterWait, SessionWatch watch = {},
                         bool notifications = false) {
        PollEnvironment poll;
        poll.scratchDirectory = scratch_;
        poll.fileNotifications = notifications;
        poll.takeBackSeconds = takeBackSeconds_;
        request_.movedOn = std::move(watch);
        elapsed_ = 0;
        longestWait_ = 0;
        poll.wait = [&, afterWait](double seconds, int) {
            elapsed_ += seconds;
            longestWait_ = std::max(longestWait_, seconds);
            afterWait(elapsed_);
            return seconds;
        };
        return sendToVoxtrelAndWait(request_, poll);
    }

    RequestFiles files() const {
        return requestFiles(scratch_, request_.sessionId, request_.fileKey.value_or(std::to_string(::getpid())));
    }
    std::string scratchLog() const { return testsupport::readText(scratch_ + "/debug.log"); }

    TempDir dir_;
    testsupport::HookEnvironment environment_;
    testsupport::ScopedVariables variables_;
    std::string scratch_;
    AppRequest request_;
    double elapsed_ = 0;
    double longestWait_ = 0;
    // No app runs here, and none takes the payloads: nothing is taken back,
    // the schedule alone is driven (taking back is the end-to-end tests').
    static constexpr double takeBackSeconds_ = std::numeric_limits<double>::infinity();
};

}  // namespace

TEST_F(Polling, ReturnsTheAnswerVerbatimAndCleansUpByKey) {
    struct Case {
        std::optional<std::string> fileKey;
        double answerAt;
        double takenAt;  // once a second for five minutes, then every ten seconds
        bool filesKept;
    };
    const Case cases[] = {{std::nullopt, 0.25, 1, false}, {"stop", 0.75, 1, true}, {std::nullopt, 299.5, 300, false},
                          {std::nullopt, 300.25, 310, false}};
    for (const Case& c : cases) {
        request_.fileKey = c.fileKey;
        const RequestFiles paths = files();
        const WaitResult result = roundTrip([&](double elapsed) {
            if (elapsed == c.answerAt) testsupport::writeText(paths.responseFile, "allow\n");
        });
        EXPECT_EQ(result.outcome, WaitResult::Outcome::answered);
        EXPECT_EQ(result.reply, "allow\n");
        EXPECT_EQ(elapsed_, c.takenAt);
        EXPECT_EQ(testsupport::exists(paths.messageFile), c.filesKept);
        EXPECT_EQ(testsupport::exists(paths.responseFile), c.filesKept);
        EXPECT_NE(scratchLog().find("Poll got response (6 chars) for session=s1 requestId=" + paths.requestId + "\n"),
                  std::string::npos);
    }
}

// An empty response is no answer; a blank one is an answer (its words are
// the user's).
TEST_F(Polling, AnEmptyResponseIsNoAnswer) {
    for (const std::string& response : {std::string(), std::string(" ")}) {
        const RequestFiles paths = files();
        const WaitResult result = roundTrip([&](double) { testsupport::writeText(paths.responseFile, response); });
        EXPECT_EQ(result.outcome, response.empty() ? WaitResult::Outcome::unanswered : WaitResult::Outcome::answered);
        EXPECT_EQ(result.reply, response);
    }
}

TEST_F(Polling, TimesOutAfterThirtyMinutesAndDismisses) {
    for (const std::optional<std::string>& key : {std::optional<std::string>{}, std::optional<std::string>{"stop"}}) {
        request_.fileKey = key;
        const WaitResult result = roundTrip([](double) {});
        EXPECT_EQ(result.outcome, WaitResult::Outcome::unanswered);
        EXPECT_EQ(elapsed_, 1800);
        EXPECT_EQ(longestWait_, 0.25);
        EXPECT_EQ(testsupport::exists(files().messageFile), key.has_value());
        EXPECT_NE(scratchLog().find("Poll timeout after 1800s for session=s1 requestId=" + files().requestId + "\n"),
                  std::string::npos);
    }
    const auto payloads = testsupport::payloadsIn(testsupport::inboxOf(environment_));
    EXPECT_NE(std::find(payloads.begin(), payloads.end(), R"({"kind":"dismiss","sessionId":"s1"})"), payloads.end());
}

