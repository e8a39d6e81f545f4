// The session-bus client and child processes under hostile or slow peers:
// whatever the other side does, the caller gets an answer or nothing, and
// never waits past its deadline.
#include <gtest/gtest.h>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
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

// ---- Messages as a bus daemon sends them (little-endian) -----------------

struct Field {
    char code;
    char type;         // 's', 'o', 'g' (text) or 'u' (number)
    std::string text;
    std::uint32_t number = 0;
};

void align(std::string& bytes, std::size_t boundary) {
    bytes.resize((bytes.size() + boundary - 1) / boundary * boundary, '\0');
}
void putNumber(std::string& bytes, std::size_t value) {
    align(bytes, 4);
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}
void putText(std::string& bytes, const std::string& value, bool signature) {
    if (signature) {
        bytes.push_back(static_cast<char>(value.size()));
    } else {
        putNumber(bytes, value.size());
    }
    bytes += value;
    bytes.push_back('\0');
}

std::string busMessage(int type, std::uint32_t serial, const std::vector<Field>& fields, const std::string& body) {
    std::string bytes = {'l', static_cast<char>(type), '\x01', '\x01'};
    putNumber(bytes, body.size());
    putNumber(bytes, serial);
    putNumber(bytes, 0);  // the fields' length, set below
    for (const Field& field : fields) {
        align(bytes, 8);
        bytes.push_back(field.code);
        putText(bytes, std::string(1, field.type), true);
        if (field.type == 'u') {
            putNumber(bytes, field.number);
        } else {
            putText(bytes, field.text, field.type == 'g');
        }
    }
    std::string length;
    putNumber(length, bytes.size() - 16);
    bytes.replace(12, 4, length);
    align(bytes, 8);
    return bytes + body;
}

std::string bodyOf(const std::string& text) {
    std::string body;
    putText(body, text, false);
    return body;
}

const Field kFromBus{7, 's', "org.freedesktop.DBus"};
const Field kToUs{6, 's', ":1.7"};

std::string ownerReply(std::uint32_t serial, std::uint32_t replySerial, bool owned) {
    std::string body;
    putNumber(body, owned ? 1 : 0);
    return busMessage(2, serial, {kToUs, {5, 'u', "", replySerial}, kFromBus, {8, 'g', "b"}}, body);
}

std::string errorReply(std::uint32_t serial, std::uint32_t replySerial) {
    return busMessage(3, serial,
                      {kToUs, {4, 's', "org.freedesktop.DBus.Error.UnknownMethod"}, {5, 'u', "", replySerial},
                       {8, 'g', "s"}, kFromBus},
                      bodyOf("Unknown method"));
}

std::string helloReply() { return busMessage(2, 1, {kToUs, {5, 'u', "", 1}, kFromBus, {8, 'g', "s"}}, bodyOf(":1.7")); }

std::string nameAcquired(std::uint32_t serial) {
    return busMessage(4, serial,
                      {{1, 'o', "/org/freedesktop/DBus"}, {2, 's', "org.freedesktop.DBus"}, {3, 's', "NameAcquired"},
                       kToUs, {8, 'g', "s"}, kFromBus},
                      bodyOf(":1.7"));
}

const std::string kAuthOk = "OK 1234567890abcdef1234567890abcdef\r\n";

// What a bus sends after authentication when the first of two names is not
// owned and the second is.
std::string answers(bool first, bool second) {
    return helloReply() + nameAcquired(2) + ownerReply(3, 2, first) + ownerReply(4, 3, second);
}

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
        {"unix:tmpdir=/tmp;unix:path=/second", "/second"},
        {"tcp:host=localhost,port=1", std::nullopt},
        {"unix:path=/bad%2", std::nullopt},
        {"unix:path=", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [address, socket] : cases) EXPECT_EQ(unixSocketOf(address), socket) << address;
}

TEST(SessionBus, NoAnswerWithoutADaemon) {
    EXPECT_FALSE(anyNameHasOwner("unix:path=/nonexistent/bus", {"com.brightloft.voxtrel"}));
    EXPECT_FALSE(anyNameHasOwner("tcp:host=127.0.0.1,port=1", {"com.brightloft.voxtrel"}));
}

TEST(SessionBus, AFakeBusGetsAnAnswerOrNothingWithinTheDeadline) {
    using std::chrono::milliseconds;
    const std::string everything = kAuthOk + answers(false, true);
    const std::string cut = everything.substr(0, everything.size() - 10);
    std::string signals;
    for (std::uint32_t serial = 2; serial < 50; ++serial) signals += nameAcquired(serial);
    enum class Then { waits, hangsUp, repeatsForever };
    // After the client's authentication line, the bus sends `sent` in pieces
    // of `piece` bytes (0: at once) with `pause` between them.
    struct Case {
        const char* name;
        std::string sent;
        std::size_t piece;
        milliseconds pause;
        Then then;
        std::optional<bool> answer;
    };
    const Case cases[] = {
        {"answers: the second name is owned", everything, 0, milliseconds(0), Then::waits, true},
        {"answers: neither name is owned", kAuthOk + answers(false, false), 0, milliseconds(0), Then::waits, false},
        {"answers in small pieces", everything, 3, milliseconds(1), Then::waits, true},
        {"stalls after authentication", kAuthOk, 0, milliseconds(0), Then::waits, std::nullopt},
        {"trickles one byte every 50 ms", everything, 1, milliseconds(50), Then::waits, std::nullopt},
        {"stalls halfway through a reply", cut, 0, milliseconds(0), Then::waits, std::nullopt},
        {"hangs up halfway through a reply", cut, 0, milliseconds(0), Then::hangsUp, std::nullopt},
        {"never stops sending signals", kAuthOk + helloReply() + signals, 0, milliseconds(0), Then::repeatsForever,
         std::nullopt},
        {"refuses the authentication", "REJECTED EXTERNAL\r\n", 0, milliseconds(0), Then::waits, std::nullopt},
        {"answers with an error", kAuthOk + helloReply() + nameAcquired(2) + errorReply(3, 2), 0, milliseconds(0),
         Then::waits, std::nullopt},
        {"answers with garbage", kAuthOk + helloReply() + std::string(200, '\x5a'), 0, milliseconds(0), Then::waits,
         std::nullopt},
        {"announces a message larger than any reply",
         kAuthOk + std::string("l\2\1\1\xff\xff\xff\x07\1\0\0\0\0\0\0\0", 16), 0, milliseconds(0), Then::waits,
         std::nullopt},
    };
    // Signals keep coming all along, through a handler without SA_RESTART:
    // every blocking call they interrupt fails with EINTR, and no wait may
    // end early for it.
    struct sigaction handler {};
    handler.sa_handler = [](int) {};
    sigemptyset(&handler.sa_mask);
    struct sigaction previous {};
    ASSERT_EQ(::sigaction(SIGUSR1, &handler, &previous), 0);
    std::atomic<bool> done{false};
    std::thread interrupter([&done, asker = ::pthread_self()] {
        while (!done) {
            ::pthread_kill(asker, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FakeBus bus([&c, &signals](int fd) {
            readAuthentication(fd);
            sendSlowly(fd, c.sent, c.piece == 0 ? c.sent.size() : c.piece, c.pause);
            if (c.then == Then::hangsUp) ::shutdown(fd, SHUT_RDWR);
            if (c.then == Then::repeatsForever) {
                while (::send(fd, signals.data(), signals.size(), MSG_NOSIGNAL) > 0) {
                }
            }
        });
        const auto start = SteadyClock::now();
        EXPECT_EQ(anyNameHasOwner(bus.address(), kNames), c.answer);
        EXPECT_LT(SteadyClock::now() - start, kNoLongerThan);
    }
    done = true;
    interrupter.join();
    ::sigaction(SIGUSR1, &previous, nullptr);
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
