// The D-Bus message parser on arbitrary bytes from the bus: it must never read
// outside them, and what it accepts must agree with the length it declares.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/SessionBus.hpp"

using AgentHook::platform::booleanReply;
using AgentHook::platform::BusMessage;
using AgentHook::platform::busMessageLength;
using AgentHook::platform::parseBusMessage;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::optional<std::size_t> length = busMessageLength(bytes);
    const std::optional<BusMessage> message = parseBusMessage(bytes);
    if (!message) return 0;
    // A parsed message lies wholly inside the input, body last, and parses
    // the same from exactly its own bytes.
    if (!length || *length > size || message->body.size() > *length) __builtin_trap();
    if (bytes.substr(*length - message->body.size(), message->body.size()) != message->body) __builtin_trap();
    const std::optional<BusMessage> alone = parseBusMessage(bytes.substr(0, *length));
    if (!alone || alone->replySerial != message->replySerial || alone->body != message->body) __builtin_trap();
    if (const std::optional<bool> answer = booleanReply(*message); answer && message->type != 2) __builtin_trap();
    return 0;
}
