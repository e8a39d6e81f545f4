// An advisory lock around a read-modify-write of the files in a directory.
// The lock is taken on the directory itself, not on the file: the file is
// replaced by a rename, so a lock on it would guard the old copy only.
#pragma once

#include <string>

namespace AgentHook::platform {

class DirectoryLock {
public:
    // Waits up to `seconds` for the exclusive lock on `directory`. When it
    // cannot be had, locked() is false and the caller decides: a stuck
    // process must never block the agent for ever.
    explicit DirectoryLock(const std::string& directory, double seconds = 2.0);
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    ~DirectoryLock();

    bool locked() const { return locked_; }

private:
    int fd_ = -1;
    bool locked_ = false;
};

}  // namespace AgentHook::platform
