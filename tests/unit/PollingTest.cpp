// The round trip with an injected sleep: the schedule, the answer, the clean-up,
// the time-out and the interrupt, without ever waiting.
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

// With notifications the answer is taken as soon as it is written, between
// the polls of the schedule, and the wait sleeps from poll to poll: a hook
// that waits costs next to nothing.
TEST_F(Polling, AnAnswerWakesTheWaitThatOtherwiseSleepsFromPollToPoll) {
    for (const double answerAt : {0.4, 7.5, 300.25}) {
        const RequestFiles paths = files();
        PollEnvironment poll;
        poll.scratchDirectory = scratch_;
        poll.takeBackSeconds = takeBackSeconds_;
        double elapsed = 0;
        int waits = 0;
        poll.wait = [&](double seconds, int) {
            // The notification of the answer ends the sleep at its moment.
            const double slept = elapsed < answerAt && elapsed + seconds >= answerAt ? answerAt - elapsed : seconds;
            elapsed += slept;
            if (elapsed <= 10) ++waits;
            if (elapsed == answerAt) testsupport::writeText(paths.responseFile, "allow");
            return slept;
        };
        const WaitResult result = sendToVoxtrelAndWait(request_, poll);
        EXPECT_EQ(result.reply, "allow");
        EXPECT_EQ(elapsed, answerAt);
        // Quarter seconds during the first second, then one wait a poll.
        if (answerAt > 10) {
            EXPECT_EQ(waits, 4 + 9);
        }
    }
}

TEST_F(Polling, AStaleAnswerIsRemovedBeforeTheAppIsTold) {
    request_.fileKey = "stop";
    const RequestFiles paths = files();
    testsupport::makeDirectories(scratch_);
    testsupport::writeText(paths.responseFile, "stale");
    const WaitResult result = roundTrip([&](double elapsed) {
        if (elapsed == 3) testsupport::writeText(paths.responseFile, "fresh");
    });
    EXPECT_EQ(result.reply, "fresh");
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

TEST_F(Polling, AnAnswerThatIsNotUtf8IsReadAgainLaterAndSaidOnce) {
    const RequestFiles paths = files();
    const WaitResult result = roundTrip([&](double elapsed) {
        testsupport::writeText(paths.responseFile, elapsed < 5 ? "\xFF" : "deny");
    });
    EXPECT_EQ(result.reply, "deny");
    EXPECT_EQ(elapsed_, 5);
    const std::string line = "Ignoring response file " + paths.responseFile + ": not valid UTF-8";
    const std::string log = scratchLog();
    EXPECT_NE(log.find(line), std::string::npos);
    EXPECT_EQ(log.find(line), log.rfind(line));
}

// 1 MiB is far beyond any spoken answer: a larger one is no answer at all.
TEST_F(Polling, AnAnswerOverOneMebibyteIsNoAnswer) {
    const RequestFiles paths = files();
    for (const std::size_t size : {std::size_t{1} << 20, (std::size_t{1} << 20) + 1}) {
        const WaitResult result = roundTrip([&](double) { testsupport::writeText(paths.responseFile, std::string(size, 'a')); });
        EXPECT_EQ(result.outcome, size > (1u << 20) ? WaitResult::Outcome::unanswered : WaitResult::Outcome::answered);
        EXPECT_EQ(result.reply.size(), size > (1u << 20) ? 0 : size);
    }
    EXPECT_NE(scratchLog().find("Response file " + paths.responseFile + " is larger than 1 MiB; taken as no answer\n"),
              std::string::npos);
    EXPECT_FALSE(testsupport::exists(paths.responseFile));
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

// A request that cannot reach the app never holds the agent: no wait at all.
TEST_F(Polling, ARequestThatCannotReachTheAppStepsAsideAtOnce) {
    struct Case {
        const char* what;
        std::function<void(const RequestFiles&)> block;
        const char* logged;
    };
    const Case cases[] = {
        {"inbox", [&](const RequestFiles&) {
             testsupport::makeDirectories(environment_.home + "/.local/share/voxtrel/agent");
             testsupport::writeText(testsupport::inboxOf(environment_), "a file in the way");
         }, "The request cannot reach the app; leaving the decision to the agent session=s1"},
        {"message", [](const RequestFiles& paths) { testsupport::makeDirectories(paths.messageFile + "/x"); },
         "Failed to write message file: "},
        {"stale answer", [](const RequestFiles& paths) {
             testsupport::makeDirectories(paths.responseFile);
             testsupport::writeText(paths.responseFile + "/x", "stale");
         }, "A stale answer is in the way ("},
    };
    for (const Case& c : cases) {
        TempDir dir;
        scratch_ = dir.file("scratch");
        testsupport::makeDirectories(scratch_);
        request_.fileKey = "stop";
        c.block(files());
        bool waited = false;
        const WaitResult result = roundTrip([&](double) { waited = true; });
        EXPECT_EQ(result.outcome, WaitResult::Outcome::unanswered) << c.what;
        EXPECT_FALSE(waited) << c.what;
        EXPECT_NE(scratchLog().find(c.logged), std::string::npos) << c.what;
        EXPECT_NE(scratchLog().find("; leaving the decision to the agent session=s1\n"), std::string::npos) << c.what;
    }
}

// Each signal's own withdrawal is the end-to-end tests'; here, its moment.
TEST_F(Polling, ARequestNobodyCanAnswerIsWithdrawnAtTheNextQuarterSecond) {
    struct Case {
        std::function<void()> moveOn;
        std::string reason;
    };
    bool sessionMovedOn = false;
    const Case cases[] = {
        {[] { ::raise(SIGTERM); }, "SIGTERM received"},
        {[&] { sessionMovedOn = true; }, "Answered in the terminal"},
    };
    for (const Case& c : cases) {
        sessionMovedOn = false;
        const WaitResult result = roundTrip(
            [&](double elapsed) {
                if (elapsed == 100.5) c.moveOn();
            },
            [&]() -> std::optional<std::string> {
                if (sessionMovedOn) return "Answered in the terminal";
                return std::nullopt;
            });
        EXPECT_EQ(result.outcome, WaitResult::Outcome::withdrawn);
        EXPECT_EQ(elapsed_, 100.5);
        EXPECT_NE(scratchLog().find(c.reason + " \xE2\x80\x94 dismissing session=s1 and exiting\n"), std::string::npos)
            << c.reason;
    }
    const auto payloads = testsupport::payloadsIn(testsupport::inboxOf(environment_));
    EXPECT_EQ(std::count(payloads.begin(), payloads.end(), R"({"kind":"dismiss","sessionId":"s1"})"), 2);
}

TEST(WakeUrl, UsesTheSchemeWhenItIsAValidUrlScheme) {
    EXPECT_EQ(wakeUrl("voxtrel"), "voxtrel://agent-wake");
    EXPECT_EQ(wakeUrl("my-scheme+x.1"), "my-scheme+x.1://agent-wake");
    for (const char* bad : {"", "1abc", "my scheme", "a:b", "é"}) EXPECT_FALSE(wakeUrl(bad)) << bad;
}
