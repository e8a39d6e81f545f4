// The session-bus client and child processes under hostile or slow peers:
// whatever the other side does, the caller never waits past its deadline.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "platform/Process.hpp"
#include "platform/SessionBus.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook::platform;
using testsupport::TempDir;

namespace {

using SteadyClock = std::chrono::steady_clock;

// A generous bound: it catches a missing deadline (a stalled peer would hold
// the caller forever), not a slow one.
constexpr auto kNoLongerThan = std::chrono::seconds(2);

// What a bus says when it accepts the client's credentials.
const std::string kAuthOk = "OK 1234567890abcdef1234567890abcdef\r\n";

// ---- A bus of the test's own ----------------------------------------------

// Waits until the client hangs up (or a few seconds pass), reading what it sends.
void awaitHangUp(int fd) {
    char sink[256];
    pollfd watched{fd, POLLIN, 0};
    while (::poll(&watched, 1, 5000) == 1 && ::read(fd, sink, sizeof sink) > 0) {
    }
}

// Reads the client's authentication line.
bool readAuthentication(int fd) {
    std::string line;
    char c;
    while (line.size() < 512 && ::read(fd, &c, 1) == 1) {
        line.push_back(c);
        if (line.size() >= 2 && line.compare(line.size() - 2, 2, "\r\n") == 0) return true;
    }
    return false;
}

// Sends `bytes` in pieces of `piece` bytes with `pause` between them; stops
// when the client has hung up.
void sendSlowly(int fd, const std::string& bytes, std::size_t piece, std::chrono::milliseconds pause) {
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        const std::size_t size = std::min(piece, bytes.size() - at);
        if (::send(fd, bytes.data() + at, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) return;
        if (pause.count() > 0) std::this_thread::sleep_for(pause);
    }
}


// Listens on a socket in a fresh directory, accepts one client and plays
// `script` with it; every script ends when the client hangs up.
class FakeBus {
public:
    explicit FakeBus(std::function<void(int)> script) {
        const std::string path = dir_.file("bus");
        listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listener_, 4) != 0) {
            ADD_FAILURE() << "cannot listen on " << path;
            return;
        }
        address_ = "unix:path=" + path;
        thread_ = std::thread([this, script = std::move(script)] {
            pollfd watched{listener_, POLLIN, 0};
            if (::poll(&watched, 1, 5000) != 1) return;
            const int fd = ::accept(listener_, nullptr, nullptr);
            if (fd < 0) return;
            script(fd);
            awaitHangUp(fd);
            ::close(fd);
        });
    }
    ~FakeBus() {
        if (thread_.joinable()) thread_.join();
        ::close(listener_);
    }
    const std::string& address() const { return address_; }

private:
    TempDir dir_;
    int listener_ = -1;
    std::string address_;
    std::thread thread_;
};

const std::vector<std::string> kNames = {"com.brightloft.voxtrel", "com.brightloft.voxtrel.debug"};

}  // namespace

TEST(SessionBus, FindsTheSocketOfTheFirstUsableAddressEntry) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"unix:path=/run/user/1000/bus", "/run/user/1000/bus"},
        {"unix:path=/tmp/a%20b/bus,guid=0123abcd", "/tmp/a b/bus"},
        {"unix:guid=0123,abstract=/tmp/dbus-X", std::string(1, '\0') + "/tmp/dbus-X"},
        {"tcp:host=localhost,port=1;unix:path=/s", "/s"},
        {"tcp:host=localhost,port=1", std::nullopt},
        {"unix:path=/bad%2", std::nullopt},
    };
    for (const auto& [address, socket] : cases) EXPECT_EQ(unixSocketOf(address), socket) << address;
}

// Answers from a real bus are the app-detection tests'; here, peers that
// never answer must not hold the caller past its deadline.
TEST(SessionBus, AHostileBusGivesNothingWithinTheDeadline) {
    using std::chrono::milliseconds;
    // A method return announcing a body of 1000 bytes, and that body.
    const std::string message = std::string("l\2\1\1\xe8\3\0\0\1\0\0\0\0\0\0\0", 16) + std::string(1000, '\0');
    struct Case {
        const char* name;
        std::string sent;  // after the client's authentication line
        std::size_t piece;
        milliseconds pause;
        bool hangsUp;
    };
    const Case cases[] = {
        {"stalls after authentication", kAuthOk, 1, milliseconds(0), false},
        {"trickles a message one byte every 50 ms", kAuthOk + message, 1, milliseconds(50), false},
        {"hangs up halfway through a message", kAuthOk + message.substr(0, 100), 100, milliseconds(0), true},
        {"refuses the authentication", "REJECTED EXTERNAL\r\n", 1, milliseconds(0), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FakeBus bus([&c](int fd) {
            readAuthentication(fd);
            sendSlowly(fd, c.sent, c.piece, c.pause);
            if (c.hangsUp) ::shutdown(fd, SHUT_RDWR);
        });
        const auto start = SteadyClock::now();
        EXPECT_EQ(anyNameHasOwner(bus.address(), kNames), std::nullopt);
        EXPECT_LT(SteadyClock::now() - start, kNoLongerThan);
    }
}

namespace {

// True once `pid` has exited (a zombie counts: it no longer runs).
bool hasExited(pid_t pid) {
    const std::string stat = testsupport::readText("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t end = stat.rfind(") ");
    return stat.empty() || (end != std::string::npos && end + 2 < stat.size() && stat[end + 2] == 'Z');
}

}  // namespace

TEST(ChildProcess, AChildThatDoesNotFinishIsKilledAndGivesNothing) {
    // Each stand-in records the processes it starts in "pids".
    const std::pair<const char*, std::string> cases[] = {
        {"never writes nor exits", "echo $$ >> \"$PIDS\"\nexec sleep 30\n"},
        {"closes its output, then hangs", "echo $$ >> \"$PIDS\"\nexec >&-\nexec sleep 30\n"},
        {"exits, leaving a child on its output", "sleep 30 &\necho $! >> \"$PIDS\"\necho main\n"},
        {"writes without end", "echo $$ >> \"$PIDS\"\nexec yes\n"},
    };
    for (const auto& [name, body] : cases) {
        SCOPED_TRACE(name);
        TempDir dir;
        const std::string pids = dir.file("pids");
        const std::string program = dir.file("git");
        testsupport::makeExecutable(program, "#!/bin/sh\nPIDS='" + pids + "'\n" + body);
        const auto start = SteadyClock::now();
        EXPECT_FALSE(runCapturingOutput(program, {"rev-parse", "--show-toplevel"}, std::chrono::milliseconds(300)));
        EXPECT_LT(SteadyClock::now() - start, kNoLongerThan);
        const std::string recorded = testsupport::readText(pids);
        ASSERT_FALSE(recorded.empty());
        const pid_t pid = static_cast<pid_t>(std::stol(recorded));
        const auto killedBy = SteadyClock::now() + kNoLongerThan;
        while (!hasExited(pid) && SteadyClock::now() < killedBy) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_TRUE(hasExited(pid)) << "process " << pid << " still runs";
    }
}
