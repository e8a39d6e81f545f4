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

// The same lock on a file of its own (created when missing, mode 0600, never
// through a link), for what has no directory to itself: a session's requests.
class FileLock {
public:
    explicit FileLock(const std::string& path, double seconds = 2.0);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

    bool locked() const { return locked_; }

private:
    int fd_ = -1;
    bool locked_ = false;
};

}  // namespace AgentHook::platform
