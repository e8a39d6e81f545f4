// App detection on a private session bus, with the stand-in app owning the
// app's identifier: a running app is not woken, a missing one is.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/TestSupport.hpp"

using namespace testsupport;

namespace {

// A dbus-daemon of the test's own, listening on `socket`.
class PrivateBus {
public:
    explicit PrivateBus(const std::string& socket) {
        process_ = start("/usr/bin/dbus-daemon",
                         {"--session", "--nofork", "--print-address", "--address=unix:path=" + socket},
                         {"PATH=/usr/bin:/bin"});
        // The daemon prints its address once it listens.
        char c;
        while (::read(process_.stdoutFd, &c, 1) == 1 && c != '\n') address_.push_back(c);
    }
    ~PrivateBus() {
        ::kill(process_.pid, SIGTERM);
        finish(process_);
    }
    const std::string& address() const { return address_; }

private:
    RunningProcess process_;
    std::string address_;
};

class AppDetection : public ::testing::Test {
protected:
    void SetUp() override {
        if (!exists("/usr/bin/dbus-daemon")) GTEST_SKIP() << "dbus-daemon is not installed";
        environment_ = makeHookEnvironment(dir_);
        session_ = uniqueSessionId("bus");
    }
    void TearDown() override { removeSessionFiles(session_); }

    std::string stopEvent() const {
        return R"({"hook_event_name":"Stop","session_id":")" + session_ +
               R"(","last_assistant_message":"Finished the refactor."})";
    }

    TempDir dir_;
    HookEnvironment environment_;
    std::string session_;
};

}  // namespace

TEST_F(AppDetection, ARunningAppIsNotWokenAndAnswers) {
    // The bus is found through DBUS_SESSION_BUS_ADDRESS, or at $XDG_RUNTIME_DIR/bus.
    for (const bool byAddress : {true, false}) {
        TempDir runtime;
        PrivateBus bus(runtime.file("bus"));
        ASSERT_FALSE(bus.address().empty());
        HookEnvironment environment = environment_;
        if (byAddress) {
            environment.extra["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
        } else {
            environment.extra["XDG_RUNTIME_DIR"] = runtime.path();
        }
        RunningProcess companion =
            start(AGENT_HOOK_COMPANION, {"--answer", "Now write the docs.", "--exit-after", "1"}, environment.build());
        std::string ready;
        char c;
        while (::read(companion.stdoutFd, &c, 1) == 1 && c != '\n') ready.push_back(c);
        ASSERT_NE(ready.find("owning com.brightloft.voxtrel"), std::string::npos) << ready;

        const Finished hook = runHook({"claude"}, stopEvent(), environment);
        finish(companion);
        EXPECT_EQ(hook.status, 0);
        EXPECT_EQ(hook.out, R"({"decision":"block","reason":"Now write the docs."})");
        EXPECT_TRUE(xdgOpenCalls(environment).empty()) << (byAddress ? "address" : "runtime dir");
    }
}

TEST_F(AppDetection, AnAppMissingFromTheBusIsWoken) {
    PrivateBus bus(dir_.file("bus"));
    ASSERT_FALSE(bus.address().empty());
    environment_.extra["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
    const Finished hook = runHook(
        {"claude"}, R"({"hook_event_name":"UserPromptSubmit","session_id":")" + session_ + R"("})", environment_);
    EXPECT_EQ(hook.status, 0);
    EXPECT_EQ(xdgOpenCalls(environment_), std::vector<std::string>{"voxtrel://agent-wake"});
}
