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
#include <memory>
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

// ---- Messages as a bus daemon sends them ----------------------------------

struct Field {
    char code;
    char type;          // 's', 'o', 'g', 'u' or, for a field of a future version, 'x'
    std::string text;   // for 's', 'o', 'g'
    std::uint64_t number = 0;
};

class Builder {
public:
    explicit Builder(bool bigEndian) : bigEndian_(bigEndian) {}
    std::string bytes;
    void align(std::size_t boundary) {
        while (bytes.size() % boundary != 0) bytes.push_back('\0');
    }
    void number(std::uint64_t value, int size) {
        align(static_cast<std::size_t>(size));
        for (int i = 0; i < size; ++i) {
            const int shift = 8 * (bigEndian_ ? size - 1 - i : i);
            bytes.push_back(static_cast<char>((value >> shift) & 0xff));
        }
    }
    void string(const std::string& value) {
        number(value.size(), 4);
        bytes += value;
        bytes.push_back('\0');
    }
    void signature(const std::string& value) {
        bytes.push_back(static_cast<char>(value.size()));
        bytes += value;
        bytes.push_back('\0');
    }

private:
    bool bigEndian_;
};

std::string busMessage(int type, std::uint32_t serial, const std::vector<Field>& fields, const std::string& body,
                       bool bigEndian = false) {
    Builder header(bigEndian);
    header.bytes = {bigEndian ? 'B' : 'l', static_cast<char>(type), '\x01', '\x01'};
    header.number(body.size(), 4);
    header.number(serial, 4);
    header.number(0, 4);  // the fields' length, set below
    for (const Field& field : fields) {
        header.align(8);
        header.bytes.push_back(field.code);
        header.signature(std::string(1, field.type));
        if (field.type == 'g') {
            header.signature(field.text);
        } else if (field.type == 'u') {
            header.number(field.number, 4);
        } else if (field.type == 'x') {
            header.number(field.number, 8);
        } else {
            header.string(field.text);
        }
    }
    Builder length(bigEndian);
    length.number(header.bytes.size() - 16, 4);
    header.bytes.replace(12, 4, length.bytes);
    header.align(8);
    return header.bytes + body;
}

std::string booleanBody(std::uint32_t value, bool bigEndian = false) {
    Builder body(bigEndian);
    body.number(value, 4);
    return body.bytes;
}

const Field kFromBus{7, 's', "org.freedesktop.DBus"};
const Field kToUs{6, 's', ":1.7"};

std::string methodReturn(std::uint32_t serial, std::uint32_t replySerial, const std::string& signature,
                         const std::string& body, bool bigEndian = false) {
    std::vector<Field> fields{kToUs, {5, 'u', "", replySerial}, kFromBus};
    if (!signature.empty()) fields.push_back({8, 'g', signature});
    return busMessage(2, serial, fields, body, bigEndian);
}

std::string ownerReply(std::uint32_t serial, std::uint32_t replySerial, bool owned, bool bigEndian = false) {
    return methodReturn(serial, replySerial, "b", booleanBody(owned ? 1 : 0, bigEndian), bigEndian);
}

std::string errorReply(std::uint32_t serial, std::uint32_t replySerial) {
    Builder body(false);
    body.string("Unknown method");
    return busMessage(3, serial,
                      {kToUs, {4, 's', "org.freedesktop.DBus.Error.UnknownMethod"}, {5, 'u', "", replySerial},
                       {8, 'g', "s"}, kFromBus},
                      body.bytes);
}

std::string helloReply() {
    Builder body(false);
    body.string(":1.7");
    return methodReturn(1, 1, "s", body.bytes);
}

std::string nameAcquired(std::uint32_t serial) {
    Builder body(false);
    body.string(":1.7");
    return busMessage(4, serial,
                      {{1, 'o', "/org/freedesktop/DBus"}, {2, 's', "org.freedesktop.DBus"}, {3, 's', "NameAcquired"},
                       kToUs, {8, 'g', "s"}, kFromBus},
                      body.bytes);
}

const std::string kAuthOk = "OK 1234567890abcdef1234567890abcdef\r\n";

// What a bus sends after authentication when the first of two names is not
// owned and the second is.
std::string answers(bool first, bool second) {
    return helloReply() + nameAcquired(2) + ownerReply(3, 2, first) + ownerReply(4, 3, second);
}

// Parses from a buffer of exactly the message's size, so that a sanitizer
// build catches any read past its end.
std::optional<BusMessage> parseExactly(std::string_view bytes) {
    const std::unique_ptr<char[]> exact(new char[bytes.size() + 1]);
    std::memcpy(exact.get(), bytes.data(), bytes.size());
    return parseBusMessage(std::string_view(exact.get(), bytes.size()));
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

void sendAll(int fd, const std::string& bytes) { sendSlowly(fd, bytes, bytes.size(), std::chrono::milliseconds(0)); }

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

TEST(SessionBusMessages, ReadsWhatTheBusSends) {
    struct Case {
        const char* name;
        std::string bytes;
        int type;
        std::uint32_t replySerial;
        std::optional<bool> answer;
        std::string errorName;
    };
    const Case cases[] = {
        {"owned", ownerReply(3, 2, true), 2, 2, true, ""},
        {"not owned", ownerReply(3, 2, false), 2, 2, false, ""},
        {"owned, big-endian", ownerReply(3, 5, true, true), 2, 5, true, ""},
        {"not owned, big-endian", ownerReply(3, 5, false, true), 2, 5, false, ""},
        {"Hello's reply", helloReply(), 2, 1, std::nullopt, ""},
        {"a signal", nameAcquired(2), 4, 0, std::nullopt, ""},
        {"an error", errorReply(4, 2), 3, 2, std::nullopt, "org.freedesktop.DBus.Error.UnknownMethod"},
        {"a header field of a later protocol version",
         busMessage(2, 3, {{5, 'u', "", 2}, {42, 'x', "", 7}, {8, 'g', "b"}}, booleanBody(1)), 2, 2, true, ""},
        {"a boolean that is not 0 or 1", methodReturn(3, 2, "b", booleanBody(2)), 2, 2, std::nullopt, ""},
        {"a string, not a boolean", methodReturn(3, 2, "s", std::string("\1\0\0\0x\0", 6)), 2, 2, std::nullopt,
         ""},
        {"a boolean and more", methodReturn(3, 2, "bb", booleanBody(1) + booleanBody(1)), 2, 2, std::nullopt, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Every prefix is incomplete; the whole parses, and so does the whole with the next message behind it.
        for (std::size_t length = 0; length < c.bytes.size(); ++length) {
            EXPECT_FALSE(parseExactly(std::string_view(c.bytes).substr(0, length))) << length;
        }
        EXPECT_EQ(busMessageLength(c.bytes), c.bytes.size());
        for (const std::string& input : {c.bytes, c.bytes + ownerReply(9, 9, true)}) {
            const std::optional<BusMessage> message = parseExactly(input);
            ASSERT_TRUE(message);
            EXPECT_EQ(message->type, c.type);
            EXPECT_EQ(message->replySerial, c.replySerial);
            EXPECT_EQ(message->errorName, c.errorName);
            EXPECT_EQ(booleanReply(*message), c.answer);
        }
    }
}

TEST(SessionBusMessages, RejectsMalformedMessages) {
    const std::string good = ownerReply(3, 2, true);
    auto changed = [&good](std::size_t at, std::string bytes) {
        std::string out = good;
        out.replace(at, bytes.size(), bytes);
        return out;
    };
    // In `good`, the fields start at 16: destination (16..28), reply serial
    // (32..39), sender (40..68), signature (72..78); the body at 80.
    ASSERT_EQ(good.substr(32, 4), std::string("\5\1u\0", 4));
    ASSERT_EQ(good.substr(40, 4), std::string("\7\1s\0", 4));
    ASSERT_EQ(good.substr(72, 4), std::string("\x08\1g\0", 4));
    const std::pair<const char*, std::string> cases[] = {
        {"an unknown byte order", changed(0, "x")},
        {"protocol version 2", changed(3, "\2")},
        {"type 0", changed(1, std::string(1, '\0'))},
        {"serial 0", changed(8, std::string(4, '\0'))},
        {"a header field of code 0", changed(32, std::string(1, '\0'))},
        {"a header field of a container type", changed(40, std::string("\x2a\1a\0", 4))},
        {"a header field typed with two letters", changed(40, std::string("\7\2ss", 4))},
        {"the reply serial as a string", changed(32, std::string("\5\1s\0", 4))},
        {"reply serial 0", changed(36, std::string(4, '\0'))},
        {"a string longer than the header fields", changed(20, "\xff")},
        {"a string without its terminating NUL", changed(28, "x")},
        {"a signature longer than the header fields", changed(76, "\x7f")},
        {"header fields that end inside a field", changed(12, "\x3b")},
        {"header fields longer than the message", changed(12, "\xff\xff\xff\x0f")},
        {"a body longer than the message", changed(4, "\xff\xff\xff\x0f")},
        {"a reply without the serial it answers", busMessage(2, 3, {{8, 'g', "b"}}, booleanBody(1))},
        {"a body without a signature", methodReturn(3, 2, "", booleanBody(1))},
        {"an error without its name", busMessage(3, 4, {{5, 'u', "", 2}}, "")},
        {"nothing", ""},
        {"text", "REJECTED EXTERNAL\r\n"},
    };
    for (const auto& [name, bytes] : cases) EXPECT_FALSE(parseExactly(bytes)) << name;
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
        {"answers in small pieces", everything, 3, milliseconds(0), Then::waits, true},
        {"stalls after accepting", "", 0, milliseconds(0), Then::waits, std::nullopt},
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
        {"answers with a string", kAuthOk + helloReply() + methodReturn(3, 2, "s", std::string("\1\0\0\0x\0", 6)), 0,
         milliseconds(0), Then::waits, std::nullopt},
    };
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
}

TEST(SessionBus, ASignalDoesNotCutTheWaitShort) {
    // A handler without SA_RESTART: every blocking call it interrupts fails with EINTR.
    struct sigaction handler {};
    handler.sa_handler = [](int) {};
    sigemptyset(&handler.sa_mask);
    struct sigaction previous {};
    ASSERT_EQ(::sigaction(SIGUSR1, &handler, &previous), 0);

    FakeBus bus([](int fd) {
        readAuthentication(fd);
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        sendAll(fd, kAuthOk);
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        sendAll(fd, answers(true, false));
    });
    std::atomic<bool> done{false};
    const pthread_t asker = ::pthread_self();
    std::thread interrupter([&done, asker] {
        while (!done) {
            ::pthread_kill(asker, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    const std::optional<bool> answer = anyNameHasOwner(bus.address(), kNames);
    done = true;
    interrupter.join();
    ::sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(answer, true);
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
        {"writes a line, then hangs", "echo $$ >> \"$PIDS\"\necho main\nexec sleep 30\n"},
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

TEST(ChildProcess, AChildThatFinishesGivesItsOutputAndStatus) {
    TempDir dir;
    const std::string program = dir.file("git");
    testsupport::makeExecutable(program, "#!/bin/sh\nprintf '%s\\n' \"$@\"\nexit 3\n");
    const std::optional<CapturedRun> run = runCapturingOutput(program, {"branch", "--show-current"});
    ASSERT_TRUE(run);
    EXPECT_EQ(run->exitStatus, 3);
    EXPECT_EQ(run->standardOutput, "branch\n--show-current\n");
    // Not started; where the exec failure cannot be reported to the parent
    // (posix_spawn under qemu-user), the child exits 127, as a shell does.
    const std::optional<CapturedRun> missing = runCapturingOutput(dir.file("missing"), {});
    EXPECT_TRUE(!missing || missing->exitStatus == 127);
}
