// An advisory lock around a read-modify-write. For the files of a directory
// it is taken on the directory itself, not on a file: a file replaced by a
// rename would leave a lock on it guarding the old copy only. What has no
// directory to itself (a session's requests) takes it on a file of its own
// (created when missing, mode 0600, never through a link).
#pragma once

#include <string>

namespace AgentHook::platform {

class Lock {
public:
    enum class On { directory, file };

    // Waits up to `seconds` for the exclusive lock on `path`. When it cannot
    // be had, locked() is false and the caller decides: a stuck process must
    // never block the agent for ever.
    explicit Lock(const std::string& path, double seconds = 2.0, On on = On::directory);
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock();

    bool locked() const { return locked_; }

private:
    int fd_ = -1;
    bool locked_ = false;
};

}  // namespace AgentHook::platform
