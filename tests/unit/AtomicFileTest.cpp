// The one way files are replaced: whatever fails, the target keeps its old
// bytes and no temporary is left beside it.
#include <gtest/gtest.h>

#include <csignal>
#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/AtomicFile.hpp"
#include "support/TestSupport.hpp"

using AgentHook::platform::AtomicFile;
using namespace testsupport;

namespace {

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    DIR* listing = ::opendir(directory.c_str());
    while (const dirent* entry = listing ? ::readdir(listing) : nullptr) {
        if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..") names.push_back(entry->d_name);
    }
    if (listing) ::closedir(listing);
    std::sort(names.begin(), names.end());
    return names;
}

// Files larger than `bytes` cannot be written while the object lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &saved_);
        oldHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = saved_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &saved_);
        std::signal(SIGXFSZ, oldHandler_);
    }

private:
    rlimit saved_{};
    void (*oldHandler_)(int) = nullptr;
};

}  // namespace

TEST(AtomicFile, EveryFailureLeavesTheTargetAndNoTemporary) {
    for (const AtomicFile::Temporary temporary : {AtomicFile::Temporary::unpredictable, AtomicFile::Temporary::pathDotTmp}) {
        TempDir dir;
        const std::string target = dir.file("x.json");
        writeText(target, "old");
        {
            AtomicFile file(target, AtomicFile::Mode::privateToUser, temporary);
            std::string err;
            {
                const FileSizeLimit limit(4);
                EXPECT_FALSE(file.write("more than four bytes", &err));
            }
            EXPECT_FALSE(err.empty());
            EXPECT_FALSE(file.write("x"));
            std::string later;
            EXPECT_FALSE(file.commit(&later));  // nothing half-written is ever committed
            EXPECT_EQ(later, err);              // and the first failure is the one reported
        }
        {
            // Dropped without a commit.
            AtomicFile file(target, AtomicFile::Mode::privateToUser, temporary);
            EXPECT_TRUE(file.write("abandoned"));
        }
        EXPECT_EQ(readText(target), "old");
        EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"x.json"});
    }
}

// What a killed writer left beside a user's file goes at the next write, and
// nothing else: not a fresh one (a write in progress), not another file's.
TEST(AtomicFile, AUsersFileLosesTheStaleTemporariesOfKilledWrites) {
    TempDir dir;
    const std::string target = dir.file("settings.json");
    const std::pair<std::string, double> planted[] = {
        {"settings.json.tmpAb12Cd", 600},  // stale: goes
        {"settings.json.tmpXy34Zw", 10},   // a write in progress
        {"settings.json.tmpAb12C", 600},   // not our name
        {"other.json.tmpAb12Cd", 600},     // another file's
    };
    for (const auto& [name, age] : planted) {
        writeText(dir.file(name), "{");
        setAge(dir.file(name), age);
    }
    ASSERT_TRUE(AgentHook::platform::writeFileAtomically(target, "{}", nullptr, AtomicFile::Mode::keepTarget));
    EXPECT_EQ(namesIn(dir.path()), (std::vector<std::string>{"other.json.tmpAb12Cd", "settings.json",
                                                             "settings.json.tmpAb12C", "settings.json.tmpXy34Zw"}));
}
