// libdbus is loaded only when this check runs: linking it would pull libsystemd
// and ten more shared libraries into the start-up of every hook event.
#include "platform/AppDetection.hpp"

#include <cstdlib>
#include <dlfcn.h>
#include <type_traits>

#include "platform/Files.hpp"
#include "platform/Process.hpp"

namespace AgentHook::platform {
namespace {

// The few libdbus-1 entry points we need, with their C signatures. DBusError
// is a public struct of two strings and a bit field; we only hand it around.
struct DBusError {
    const char* name;
    const char* message;
    unsigned int dummy1 : 1, dummy2 : 1, dummy3 : 1, dummy4 : 1, dummy5 : 1;
    void* padding1;
};
struct DBusConnection;

struct DBusLibrary {
    void (*errorInit)(DBusError*);
    void (*errorFree)(DBusError*);
    unsigned (*errorIsSet)(const DBusError*);
    DBusConnection* (*openPrivate)(const char*, DBusError*);
    unsigned (*busRegister)(DBusConnection*, DBusError*);
    unsigned (*nameHasOwner)(DBusConnection*, const char*, DBusError*);
    void (*close)(DBusConnection*);
    void (*unref)(DBusConnection*);
};

bool loadDBus(DBusLibrary& lib) {
    void* handle = ::dlopen("libdbus-1.so.3", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return false;
    auto bind = [handle](auto& slot, const char* symbol) {
        slot = reinterpret_cast<std::remove_reference_t<decltype(slot)>>(::dlsym(handle, symbol));
        return slot != nullptr;
    };
    return bind(lib.errorInit, "dbus_error_init") && bind(lib.errorFree, "dbus_error_free") &&
           bind(lib.errorIsSet, "dbus_error_is_set") &&
           bind(lib.openPrivate, "dbus_connection_open_private") &&
           bind(lib.busRegister, "dbus_bus_register") &&
           bind(lib.nameHasOwner, "dbus_bus_name_has_owner") &&
           bind(lib.close, "dbus_connection_close") && bind(lib.unref, "dbus_connection_unref");
}

// The session bus address, without ever letting libdbus autolaunch a bus.
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

}  // namespace

bool isApplicationRunning(const std::vector<std::string>& identifiers) {
    const std::string address = sessionBusAddress();
    if (address.empty()) return false;
    DBusLibrary lib{};
    if (!loadDBus(lib)) return false;

    DBusError error;
    lib.errorInit(&error);
    DBusConnection* connection = lib.openPrivate(address.c_str(), &error);
    bool running = false;
    if (connection != nullptr && lib.busRegister(connection, &error)) {
        for (const std::string& identifier : identifiers) {
            const bool owned = lib.nameHasOwner(connection, identifier.c_str(), &error);
            if (lib.errorIsSet(&error)) break;
            if (owned) {
                running = true;
                break;
            }
        }
    }
    if (connection != nullptr) {
        lib.close(connection);
        lib.unref(connection);
    }
    lib.errorFree(&error);
    return running;
}

void openUrl(const std::string& url) { startDetached("xdg-open", {url}); }

}  // namespace AgentHook::platform
