// App detection on a private session bus, with the stand-in app owning the
// app's identifier: a running app is not woken.
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
    explicit PrivateBus(const std::string& listen) {
        process_ = start("/usr/bin/dbus-daemon", {"--session", "--nofork", "--print-address", "--address=" + listen},
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

class AppDetection : public HookTest {
protected:
    void SetUp() override {
        if (!exists("/usr/bin/dbus-daemon")) GTEST_SKIP() << "dbus-daemon is not installed";
        HookTest::SetUp();
    }
};

}  // namespace

TEST_F(AppDetection, ARunningAppIsNotWokenAndAnswers) {
    // The bus is found through DBUS_SESSION_BUS_ADDRESS (a socket path or an
    // abstract name), or at $XDG_RUNTIME_DIR/bus.
    // The app's debug build counts as the app.
    enum class Found { byPath, byAbstractName, byRuntimeDirectory };
    const std::pair<Found, std::string> cases[] = {{Found::byPath, "com.brightloft.voxtrel"},
                                                   {Found::byAbstractName, "com.brightloft.voxtrel"},
                                                   {Found::byRuntimeDirectory, "com.brightloft.voxtrel.debug"}};
    for (const auto& [found, name] : cases) {
        TempDir runtime;
        PrivateBus bus(found == Found::byAbstractName ? "unix:abstract=" + runtime.file("abstract")
                                                      : "unix:path=" + runtime.file("bus"));
        ASSERT_FALSE(bus.address().empty());
        HookEnvironment environment = environment_;
        if (found == Found::byRuntimeDirectory) {
            environment.extra["XDG_RUNTIME_DIR"] = runtime.path();
        } else {
            environment.extra["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
        }
        RunningProcess companion =
            start(AGENT_HOOK_COMPANION, {"--answer", "Now write the docs.", "--exit-after", "1", "--bus-name", name},
                  environment.build());
        std::string ready;
        char c;
        while (::read(companion.stdoutFd, &c, 1) == 1 && c != '\n') ready.push_back(c);
        ASSERT_NE(ready.find("owning " + name), std::string::npos) << ready;

        const Finished hook =
            runHook({"claude"}, event("Stop", R"(,"last_assistant_message":"Finished the refactor.")"), environment);
        finish(companion);
        EXPECT_EQ(hook.status, 0);
        EXPECT_EQ(hook.out, R"({"decision":"block","reason":"Now write the docs."})");
        EXPECT_TRUE(xdgOpenCalls(environment).empty()) << bus.address();
    }
}

