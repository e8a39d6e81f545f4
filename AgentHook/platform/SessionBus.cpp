#include "platform/SessionBus.hpp"

#include "platform/Streams.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/Files.hpp"
#include "platform/Streams.hpp"
#include "text/Quoting.hpp"
#include "text/Utf8.hpp"


namespace AgentHook::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

// Far above the replies to Hello and NameHasOwner and the NameAcquired
// signal, the only messages a new connection gets; a bigger one is garbage.
constexpr std::uint64_t kMaximumMessage = 1 << 20;
// The authentication line the bus answers with ("OK <guid>" or a refusal).
constexpr std::size_t kMaximumLine = 512;

std::optional<std::string> unescape(const std::string& value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '%') {
            out.push_back(value[i]);
            continue;
        }
        const int high = i + 2 < value.size() ? text::hexDigitValue(value[i + 1]) : -1;
        const int low = i + 2 < value.size() ? text::hexDigitValue(value[i + 2]) : -1;
        if (high < 0 || low < 0) return std::nullopt;
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return out;
}

// ---- Messages ---------------------------------------------------------

// Message building, little-endian, with alignment counted from the message start.
struct Writer {
    std::string bytes;
    void align(std::size_t boundary) {
        while (bytes.size() % boundary != 0) bytes.push_back('\0');
    }
    void byte(char value) { bytes.push_back(value); }
    void uint32(std::uint32_t value) {
        align(4);
        for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>((value >> shift) & 0xff));
    }
    void patch32(std::size_t at, std::uint32_t value) {
        for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>((value >> (8 * i)) & 0xff);
    }
    void string(const std::string& value) {
        uint32(static_cast<std::uint32_t>(value.size()));
        bytes.append(value);
        bytes.push_back('\0');
    }
    void signature(const std::string& value) {
        bytes.push_back(static_cast<char>(value.size()));
        bytes.append(value);
        bytes.push_back('\0');
    }
    void field(char code, char type, const std::string& value) {
        align(8);
        byte(code);
        signature(std::string(1, type));
        if (type == 'g') {
            signature(value);
        } else {
            string(value);
        }
    }
};

// A method call on the bus daemon itself, with an optional string argument.
std::string busMethodCall(std::uint32_t serial, const std::string& member, const std::optional<std::string>& argument) {
    Writer body;
    if (argument) body.string(*argument);
    Writer message;
    message.byte('l');
    message.byte(1);  // method call
    message.byte(0);
    message.byte(1);  // protocol version
    message.uint32(static_cast<std::uint32_t>(body.bytes.size()));
    message.uint32(serial);
    const std::size_t lengthAt = message.bytes.size();
    message.uint32(0);
    const std::size_t fieldsStart = message.bytes.size();
    message.field(1, 'o', "/org/freedesktop/DBus");
    message.field(2, 's', "org.freedesktop.DBus");
    message.field(3, 's', member);
    message.field(6, 's', "org.freedesktop.DBus");
    if (argument) message.field(8, 'g', "s");
    message.patch32(lengthAt, static_cast<std::uint32_t>(message.bytes.size() - fieldsStart));
    message.align(8);
    return message.bytes + body.bytes;
}

std::uint64_t alignUp(std::uint64_t at, std::uint64_t boundary) { return (at + boundary - 1) / boundary * boundary; }

// The caller makes sure that four bytes are there.
std::uint32_t readUint32(std::string_view bytes, std::size_t at, bool bigEndian) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(bigEndian ? i : 3 - i)]);
        value = (value << 8) | byte;
    }
    return value;
}

// Reads values of the header fields array, with alignment counted from the
// message start; every read checks that it stays inside `bytes`.
struct FieldReader {
    std::string_view bytes;  // the message up to the end of its header fields
    std::size_t at;
    bool bigEndian;

    bool alignTo(std::size_t boundary) {
        at = static_cast<std::size_t>(alignUp(at, boundary));
        return at <= bytes.size();
    }
    bool skip(std::size_t size) {
        if (!alignTo(size) || bytes.size() - at < size) return false;
        at += size;
        return true;
    }
    std::optional<unsigned char> byte() {
        if (at >= bytes.size()) return std::nullopt;
        return static_cast<unsigned char>(bytes[at++]);
    }
    std::optional<std::uint32_t> uint32() {
        if (!alignTo(4) || bytes.size() - at < 4) return std::nullopt;
        const std::uint32_t value = readUint32(bytes, at, bigEndian);
        at += 4;
        return value;
    }
    // The text and its terminating NUL, after a length of `length`.
    std::optional<std::string_view> terminated(std::size_t length) {
        if (length >= bytes.size() - at || bytes[at + length] != '\0') return std::nullopt;
        const std::string_view value = bytes.substr(at, length);
        at += length + 1;
        return value;
    }
    std::optional<std::string_view> string() {
        const std::optional<std::uint32_t> length = uint32();
        if (!length) return std::nullopt;
        return terminated(*length);
    }
    std::optional<std::string_view> signature() {
        const std::optional<unsigned char> length = byte();
        if (!length) return std::nullopt;
        return terminated(*length);
    }
};

// The type the protocol gives each header field code; 0 for codes it leaves
// to future versions, which a reader skips.
char headerFieldType(unsigned char code) {
    switch (code) {
        case 1: return 'o';  // path
        case 2:              // interface
        case 3:              // member
        case 4:              // error name
        case 6:              // destination
        case 7: return 's';  // sender
        case 5:              // reply serial
        case 9: return 'u';  // number of file descriptors
        case 8: return 'g';  // body signature
        default: return 0;
    }
}

// ---- Talking to the bus under one deadline ------------------------------

// Sleeps a few milliseconds, never past `deadline`. False once it has passed.
bool pauseBriefly(SteadyClock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now());
    if (left.count() <= 0) return false;
    ::poll(nullptr, 0, static_cast<int>(std::min<std::chrono::milliseconds::rep>(left.count(), 5)));
    return true;
}

// A non-blocking connection to the bus, the bytes read but not yet used, and
// the deadline of the whole exchange.
struct Connection {
    int fd;
    SteadyClock::time_point deadline;
    std::string pending;
};

bool connectTo(Connection& connection, const sockaddr_un& target, socklen_t length) {
    for (;;) {
        if (::connect(connection.fd, reinterpret_cast<const sockaddr*>(&target), length) == 0) return true;
        if (errno == EAGAIN) {
            // A Unix socket whose listener's backlog is full: a busy bus, not a missing one.
            if (!pauseBriefly(connection.deadline)) return false;
            continue;
        }
        // An interrupted connect goes on in the background, as one in progress does.
        if (errno != EINPROGRESS && errno != EINTR) return false;
        break;
    }
    if (!waitUntilReady(connection.fd, POLLOUT, connection.deadline)) return false;
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(connection.fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

// send(2) rather than write(2): a bus that hangs up must not raise SIGPIPE.
bool sendAll(Connection& connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::send(connection.fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(n));
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
        if (!waitUntilReady(connection.fd, POLLOUT, connection.deadline)) return false;
    }
    return true;
}

// Appends what the bus has sent, waiting for at least one byte. False when
// the bus hung up or failed, or the deadline has passed (checked even while
// bytes keep coming, so a bus that never stops talking is cut off too).
bool receiveMore(Connection& connection) {
    char chunk[4096];
    for (;;) {
        if (SteadyClock::now() >= connection.deadline) return false;
        const ssize_t n = ::recv(connection.fd, chunk, sizeof chunk, 0);
        if (n > 0) {
            connection.pending.append(chunk, static_cast<std::size_t>(n));
            return true;
        }
        if (n == 0) return false;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
        if (!waitUntilReady(connection.fd, POLLIN, connection.deadline)) return false;
    }
}

// One authentication line, without its "\r\n".
std::optional<std::string> receiveLine(Connection& connection) {
    for (;;) {
        const std::size_t end = connection.pending.find("\r\n");
        if (end != std::string::npos) {
            std::string line = connection.pending.substr(0, end);
            connection.pending.erase(0, end + 2);
            return line;
        }
        if (connection.pending.size() > kMaximumLine || !receiveMore(connection)) return std::nullopt;
    }
}

std::optional<BusMessage> receiveMessage(Connection& connection) {
    while (connection.pending.size() < 16) {
        if (!receiveMore(connection)) return std::nullopt;
    }
    const std::optional<std::size_t> length = busMessageLength(connection.pending);
    if (!length) return std::nullopt;
    while (connection.pending.size() < *length) {
        if (!receiveMore(connection)) return std::nullopt;
    }
    std::optional<BusMessage> message = parseBusMessage(connection.pending);
    connection.pending.erase(0, *length);
    return message;
}

std::optional<bool> askDaemon(Connection& connection, const std::vector<std::string>& names) {
    const std::string uid = std::to_string(::getuid());
    std::string hexUid;
    for (const char c : uid) text::appendHexByte(hexUid, static_cast<unsigned char>(c));
    if (!sendAll(connection, std::string(1, '\0') + "AUTH EXTERNAL " + hexUid + "\r\n")) return std::nullopt;
    const std::optional<std::string> line = receiveLine(connection);
    if (!line || line->rfind("OK ", 0) != 0) return std::nullopt;

    // The bus wants Hello first; the questions can follow without waiting.
    std::string request = "BEGIN\r\n" + busMethodCall(1, "Hello", std::nullopt);
    for (std::size_t i = 0; i < names.size(); ++i) {
        request += busMethodCall(static_cast<std::uint32_t>(i + 2), "NameHasOwner", names[i]);
    }
    if (!sendAll(connection, request)) return std::nullopt;

    std::vector<bool> answered(names.size(), false);
    std::size_t answers = 0;
    bool owned = false;
    while (answers < names.size()) {
        const std::optional<BusMessage> message = receiveMessage(connection);
        if (!message) return std::nullopt;
        if (message->type == 3) return std::nullopt;  // an error answers one of our calls
        // Hello's reply and the NameAcquired signal come first.
        if (message->type != 2 || message->replySerial < 2 || message->replySerial - 2 >= names.size()) continue;
        const std::optional<bool> value = booleanReply(*message);
        if (!value) return std::nullopt;
        if (answered[message->replySerial - 2]) continue;
        answered[message->replySerial - 2] = true;
        owned = owned || *value;
        ++answers;
    }
    return owned;
}

}  // namespace

std::optional<std::size_t> busMessageLength(std::string_view bytes) {
    if (bytes.size() < 16 || (bytes[0] != 'l' && bytes[0] != 'B') || bytes[3] != 1) return std::nullopt;
    const bool bigEndian = bytes[0] == 'B';
    const std::uint64_t bodyLength = readUint32(bytes, 4, bigEndian);
    const std::uint64_t fieldsLength = readUint32(bytes, 12, bigEndian);
    const std::uint64_t total = alignUp(16 + fieldsLength, 8) + bodyLength;
    if (total > kMaximumMessage) return std::nullopt;
    return static_cast<std::size_t>(total);
}

std::optional<BusMessage> parseBusMessage(std::string_view bytes) {
    const std::optional<std::size_t> length = busMessageLength(bytes);
    if (!length || bytes.size() < *length) return std::nullopt;
    BusMessage message;
    message.bigEndian = bytes[0] == 'B';
    message.type = static_cast<unsigned char>(bytes[1]);
    message.serial = readUint32(bytes, 8, message.bigEndian);
    if (message.type == 0 || message.serial == 0) return std::nullopt;
    const std::size_t bodyLength = readUint32(bytes, 4, message.bigEndian);
    const std::size_t fieldsEnd = 16 + std::size_t{readUint32(bytes, 12, message.bigEndian)};

    FieldReader fields{bytes.substr(0, fieldsEnd), 16, message.bigEndian};
    while (fields.at < fieldsEnd) {
        if (!fields.alignTo(8)) return std::nullopt;
        const std::optional<unsigned char> code = fields.byte();
        const std::optional<std::string_view> type = fields.signature();
        if (!code || *code == 0 || !type || type->size() != 1) return std::nullopt;
        const char expected = headerFieldType(*code);
        if (expected != 0 && (*type)[0] != expected) return std::nullopt;
        switch ((*type)[0]) {
            case 's':
            case 'o': {
                const std::optional<std::string_view> value = fields.string();
                if (!value) return std::nullopt;
                if (*code == 4) message.errorName = *value;
                break;
            }
            case 'g': {
                const std::optional<std::string_view> value = fields.signature();
                if (!value) return std::nullopt;
                if (*code == 8) message.signature = *value;
                break;
            }
            case 'u': {
                const std::optional<std::uint32_t> value = fields.uint32();
                if (!value || (*code == 5 && *value == 0)) return std::nullopt;
                if (*code == 5) message.replySerial = *value;
                break;
            }
            case 'y':
                if (!fields.skip(1)) return std::nullopt;
                break;
            case 'n':
            case 'q':
                if (!fields.skip(2)) return std::nullopt;
                break;
            case 'b':
            case 'i':
            case 'h':
                if (!fields.skip(4)) return std::nullopt;
                break;
            case 'x':
            case 't':
            case 'd':
                if (!fields.skip(8)) return std::nullopt;
                break;
            default:
                return std::nullopt;
        }
    }
    // A reply names the call it answers; an error names itself; a body has a signature.
    if ((message.type == 2 || message.type == 3) && message.replySerial == 0) return std::nullopt;
    if (message.type == 3 && message.errorName.empty()) return std::nullopt;
    if (bodyLength != 0 && message.signature.empty()) return std::nullopt;
    message.body = bytes.substr(static_cast<std::size_t>(alignUp(fieldsEnd, 8)), bodyLength);
    return message;
}

std::optional<bool> booleanReply(const BusMessage& message) {
    if (message.type != 2 || message.signature != "b" || message.body.size() != 4) return std::nullopt;
    const std::uint32_t value = readUint32(message.body, 0, message.bigEndian);
    if (value > 1) return std::nullopt;
    return value == 1;
}

std::string sessionBusAddress() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address != nullptr && *address != '\0') {
        return address;
    }
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0') {
        const std::string socket = std::string(runtime) + "/bus";
        if (fileExists(socket)) return "unix:path=" + socket;
    }
    return {};
}

std::optional<std::string> unixSocketOf(const std::string& address) {
    std::size_t start = 0;
    while (start <= address.size()) {
        const std::size_t end = std::min(address.find(';', start), address.size());
        const std::string entry = address.substr(start, end - start);
        start = end + 1;
        if (entry.rfind("unix:", 0) != 0) continue;
        std::size_t keyStart = 5;
        while (keyStart < entry.size()) {
            const std::size_t keyEnd = std::min(entry.find(',', keyStart), entry.size());
            const std::string pair = entry.substr(keyStart, keyEnd - keyStart);
            keyStart = keyEnd + 1;
            const std::size_t equals = pair.find('=');
            if (equals == std::string::npos) continue;
            const std::string key = pair.substr(0, equals);
            const std::optional<std::string> value = unescape(pair.substr(equals + 1));
            if (!value || value->empty()) continue;
            if (key == "path") return value;
            if (key == "abstract") return std::string(1, '\0') + *value;
        }
    }
    return std::nullopt;
}

std::optional<bool> anyNameHasOwner(const std::string& address, const std::vector<std::string>& names) {
    const SteadyClock::time_point deadline = SteadyClock::now() + kSessionBusDeadline;
    const std::optional<std::string> socketName = unixSocketOf(address);
    if (!socketName) return std::nullopt;
    sockaddr_un target{};
    target.sun_family = AF_UNIX;
    if (socketName->size() >= sizeof target.sun_path) return std::nullopt;
    std::memcpy(target.sun_path, socketName->data(), socketName->size());
    const socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socketName->size() +
                                                    ((*socketName)[0] == '\0' ? 0 : 1));

    Connection connection{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), deadline, {}};
    if (connection.fd < 0) return std::nullopt;
    std::optional<bool> result;
    if (connectTo(connection, target, length)) result = askDaemon(connection, names);
    ::close(connection.fd);
    return result;
}

}  // namespace AgentHook::platform
