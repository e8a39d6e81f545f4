#include "platform/SessionBus.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/Files.hpp"
#include "text/Utf8.hpp"


namespace AgentHook::platform {
namespace {

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

struct Reply {
    int type = 0;  // 2 method return, 3 error
    std::uint32_t replySerial = 0;
    std::string body;
    bool bigEndian = false;
};

std::uint32_t readUint32(const std::string& bytes, std::size_t at, bool bigEndian) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[at + (bigEndian ? i : 3 - i)]);
        value = (value << 8) | byte;
    }
    return value;
}

// send(2) rather than write(2): a bus that hangs up must not raise SIGPIPE.
bool sendAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool readExactly(int fd, std::string& out, std::size_t count) {
    const std::size_t start = out.size();
    out.resize(start + count);
    std::size_t done = 0;
    while (done < count) {
        const ssize_t n = ::read(fd, out.data() + start + done, count - done);
        if (n <= 0) {
            if (n < 0 && errno == EINTR) continue;
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

// Reads one message and the header fields it needs; nothing on any failure.
std::optional<Reply> readMessage(int fd) {
    std::string bytes;
    if (!readExactly(fd, bytes, 16)) return std::nullopt;
    Reply reply;
    if (bytes[0] != 'l' && bytes[0] != 'B') return std::nullopt;
    reply.bigEndian = bytes[0] == 'B';
    reply.type = static_cast<unsigned char>(bytes[1]);
    const std::uint32_t bodyLength = readUint32(bytes, 4, reply.bigEndian);
    const std::uint32_t fieldsLength = readUint32(bytes, 12, reply.bigEndian);
    constexpr std::uint32_t kMaximum = 1 << 26;  // the protocol's own limit is 128 MiB
    if (bodyLength > kMaximum || fieldsLength > kMaximum) return std::nullopt;
    const std::size_t headerEnd = (16 + fieldsLength + 7) / 8 * 8;
    if (!readExactly(fd, bytes, headerEnd - 16 + bodyLength)) return std::nullopt;

    std::size_t at = 16;
    const std::size_t fieldsEnd = 16 + fieldsLength;
    while (at < fieldsEnd) {
        at = (at + 7) / 8 * 8;
        if (at + 3 > fieldsEnd) return std::nullopt;
        const char code = bytes[at];
        if (bytes[at + 1] != 1) return std::nullopt;  // every header field has a one-letter type
        const char type = bytes[at + 2];
        at += 4;
        if (type == 'g') {
            at += 1 + static_cast<unsigned char>(bytes[at]) + 1;
        } else if (type == 's' || type == 'o' || type == 'u' || type == 'h') {
            at = (at + 3) / 4 * 4;
            if (at + 4 > fieldsEnd) return std::nullopt;
            const std::uint32_t value = readUint32(bytes, at, reply.bigEndian);
            at += 4;
            if (type == 's' || type == 'o') {
                if (value >= fieldsEnd - at) return std::nullopt;
                at += value + 1;
            } else if (code == 5) {
                reply.replySerial = value;
            }
        } else {
            return std::nullopt;
        }
    }
    reply.body = bytes.substr(headerEnd);
    return reply;
}

std::optional<bool> askDaemon(int fd, const std::vector<std::string>& names) {
    const std::string uid = std::to_string(::getuid());
    std::string hexUid;
    for (const char c : uid) {
        static constexpr char hex[] = "0123456789abcdef";
        hexUid.push_back(hex[(c >> 4) & 0x0f]);
        hexUid.push_back(hex[c & 0x0f]);
    }
    if (!sendAll(fd, std::string(1, '\0') + "AUTH EXTERNAL " + hexUid + "\r\n")) return std::nullopt;
    std::string line;
    char c;
    while (line.size() < 512 && ::read(fd, &c, 1) == 1) {
        line.push_back(c);
        if (line.size() >= 2 && line.compare(line.size() - 2, 2, "\r\n") == 0) break;
    }
    if (line.rfind("OK ", 0) != 0) return std::nullopt;

    // The bus wants Hello first; the questions can follow without waiting.
    std::string request = "BEGIN\r\n" + busMethodCall(1, "Hello", std::nullopt);
    for (std::size_t i = 0; i < names.size(); ++i) {
        request += busMethodCall(static_cast<std::uint32_t>(i + 2), "NameHasOwner", names[i]);
    }
    if (!sendAll(fd, request)) return std::nullopt;

    std::size_t answered = 0;
    bool owned = false;
    while (answered < names.size()) {
        const std::optional<Reply> reply = readMessage(fd);
        if (!reply) return std::nullopt;
        if (reply->type == 3) return std::nullopt;  // an error answers any of our calls
        if (reply->type != 2 || reply->replySerial < 2) continue;  // Hello's reply, signals
        if (reply->body.size() < 4) return std::nullopt;
        owned = owned || readUint32(reply->body, 0, reply->bigEndian) != 0;
        ++answered;
    }
    return owned;
}

}  // namespace

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
    const std::optional<std::string> socketName = unixSocketOf(address);
    if (!socketName) return std::nullopt;
    sockaddr_un target{};
    target.sun_family = AF_UNIX;
    if (socketName->size() >= sizeof target.sun_path) return std::nullopt;
    std::memcpy(target.sun_path, socketName->data(), socketName->size());
    const socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socketName->size() +
                                                    ((*socketName)[0] == '\0' ? 0 : 1));

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return std::nullopt;
    // A wedged bus must not hold the agent up.
    timeval limit{2, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    std::optional<bool> result;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&target), length) == 0) result = askDaemon(fd, names);
    ::close(fd);
    return result;
}

}  // namespace AgentHook::platform
