#include "BusName.hpp"

#include <cstdlib>
#include <dbus/dbus.h>

#include "platform/SessionBus.hpp"

namespace Companion {

BusName::BusName(const char* name, std::string& note) {
    const std::string address = AgentHook::platform::sessionBusAddress();
    if (address.empty()) {
        note = "no session bus; not owning " + std::string(name);
        return;
    }
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* connection = dbus_connection_open_private(address.c_str(), &error);
    if (connection != nullptr && dbus_bus_register(connection, &error)) {
        const int reply = dbus_bus_request_name(connection, name, DBUS_NAME_FLAG_DO_NOT_QUEUE, &error);
        if (reply == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER || reply == DBUS_REQUEST_NAME_REPLY_ALREADY_OWNER) {
            connection_ = connection;
        } else if (!dbus_error_is_set(&error)) {
            note = std::string(name) + " is already owned by another process";
        }
    }
    if (dbus_error_is_set(&error)) note = "session bus: " + std::string(error.message);
    if (connection_ == nullptr && connection != nullptr) {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
    dbus_error_free(&error);
}

BusName::~BusName() {
    if (connection_ == nullptr) return;
    dbus_connection_close(connection_);
    dbus_connection_unref(connection_);
}

void BusName::pump() {
    if (connection_ == nullptr) return;
    // libdbus answers Peer calls itself and unknown methods with an error.
    while (dbus_connection_read_write_dispatch(connection_, 0) &&
           dbus_connection_get_dispatch_status(connection_) == DBUS_DISPATCH_DATA_REMAINS) {
    }
}

}  // namespace Companion
