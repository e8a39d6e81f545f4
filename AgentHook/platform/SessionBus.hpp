// A minimal client of the D-Bus wire protocol, enough to ask the bus daemon
// whether names are owned. The program is linked statically for start-up
// speed, and libdbus cannot be loaded into a static program; the exchange
// needed here is four small messages.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace AgentHook::platform {

// The whole exchange with the bus (connect, authentication, every write and
// read) must end within this time, measured on a steady clock.
inline constexpr std::chrono::milliseconds kSessionBusDeadline{250};

// The session bus address, without ever starting a bus: DBUS_SESSION_BUS_ADDRESS
// when set and not empty, else "$XDG_RUNTIME_DIR/bus" when that socket exists,
// else "" (no bus).
std::string sessionBusAddress();

// Connects to the first usable "unix:path=" or "unix:abstract=" entry of the
// D-Bus `address`, authenticates as this user and asks NameHasOwner for each
// name. True when any is owned; nothing on any failure (no usable address, a
// refused connection, an error reply, a malformed message, the bus hanging
// up, or kSessionBusDeadline passing before every answer is in). A signal
// that interrupts a wait does not end it early nor extend it.
std::optional<bool> anyNameHasOwner(const std::string& address, const std::vector<std::string>& names);

// The socket of the first usable entry of a D-Bus address: a path, or an
// abstract name starting with '\0'. Values are unescaped ("%2f" → "/").
std::optional<std::string> unixSocketOf(const std::string& address);

// What this client reads of one message from the bus.
struct BusMessage {
    int type = 0;                    // 1 method call, 2 method return, 3 error, 4 signal
    std::uint32_t serial = 0;
    std::uint32_t replySerial = 0;   // 0 when the message answers nothing
    std::string signature;           // of the body; "" when absent
    std::string errorName;           // of an error
    bool bigEndian = false;
    std::string body;
};

// The total length of the message whose fixed 16-byte header starts `bytes`
// (header, header fields, padding, body); nothing when fewer than 16 bytes
// are given, when they are not a message header of protocol version 1, or
// when they declare a message larger than any the bus sends a new connection.
std::optional<std::size_t> busMessageLength(std::string_view bytes);

// Parses the message that starts `bytes`; bytes after it are ignored.
// Nothing when `bytes` holds less than the whole message or it is malformed:
// a type or serial of 0; a header field that runs past the header fields,
// has a code of 0, a type other than a basic one, or not the type the
// protocol gives its code; a reply without the serial it answers, an error
// without its name, a body without a signature. Reads nothing outside `bytes`.
std::optional<BusMessage> parseBusMessage(std::string_view bytes);

// The answer a NameHasOwner reply carries: a method return whose body is one
// boolean. Nothing for any other message.
std::optional<bool> booleanReply(const BusMessage& message);

}  // namespace AgentHook::platform
