// Owning the app's well-known name on the session bus, which is how the hook
// tells that the app is running. Only an existing bus is used: libdbus is
// never allowed to autolaunch one.
#pragma once

#include <string>

struct DBusConnection;

namespace Companion {

class BusName {
public:
    // Connects and requests `name` without queueing. On any failure the object
    // owns nothing and `note` says why; the caller carries on without a bus.
    BusName(const char* name, std::string& note);
    ~BusName();
    BusName(const BusName&) = delete;
    BusName& operator=(const BusName&) = delete;

    bool owned() const { return connection_ != nullptr; }

    // Handles whatever the bus sent us (pings, introspection) without blocking.
    void pump();

private:
    DBusConnection* connection_ = nullptr;
};

}  // namespace Companion
