// A minimal client of the D-Bus wire protocol, enough to ask the bus daemon
// whether names are owned. The program is linked statically for start-up
// speed, and libdbus cannot be loaded into a static program; the exchange
// needed here is four small messages.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace AgentHook::platform {

// The session bus address, without ever starting a bus: DBUS_SESSION_BUS_ADDRESS
// when set and not empty, else "$XDG_RUNTIME_DIR/bus" when that socket exists,
// else "" (no bus).
std::string sessionBusAddress();

// Connects to the first usable "unix:path=" or "unix:abstract=" entry of the
// D-Bus `address`, authenticates as this user and asks NameHasOwner for each
// name. True when any is owned; nothing on any failure (no usable address, a
// refused connection, an error reply, two seconds without an answer).
std::optional<bool> anyNameHasOwner(const std::string& address, const std::vector<std::string>& names);

// The socket of the first usable entry of a D-Bus address: a path, or an
// abstract name starting with '\0'. Values are unescaped ("%2f" → "/").
std::optional<std::string> unixSocketOf(const std::string& address);

}  // namespace AgentHook::platform
