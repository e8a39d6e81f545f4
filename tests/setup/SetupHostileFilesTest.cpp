// A user's configuration replaced by something that is not a regular file,
// or that is far too large: every command ends at once with a clear line,
// and nothing that is not a regular file is ever replaced.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include <nlohmann/json.hpp>

#include "SetupRun.hpp"

using testsupport::readText;
using testsupport::writeText;

TEST(SetupHostileFiles, EveryCommandEndsAndReplacesNothingOdd) {
    struct Case {
        const char* what;
        const char* file;  // under HOME
        std::function<void(const std::string& path)> plant;
        const char* said;     // by install, status and uninstall of the file's agent
        bool onlyWhenWriting = false;  // said by install alone
    };
    const Case cases[] = {
        {"settings a FIFO", "/.claude/settings.json",
         [](const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); }, "not a regular file"},
        // As root a rename over the link's target would replace the device itself.
        {"settings a link to /dev/null", "/.claude/settings.json",
         [](const std::string& path) { ASSERT_EQ(::symlink("/dev/null", path.c_str()), 0); }, "not a regular file"},
        {"settings over 16 MiB", "/.claude/settings.json",
         [](const std::string& path) { writeText(path, "{\"x\":\"" + std::string(16u << 20, ' ') + "\"}"); },
         "larger than 16 MiB"},
        {"the backup a FIFO", "/.claude/settings.json.agent-hook.bak",
         [](const std::string& path) {
             writeText(path.substr(0, path.size() - 15), "{}");
             ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
         },
         "will not replace", true},
        {"Grok's config.toml a FIFO", "/.grok/config.toml",
         [](const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); }, nullptr},
    };
    for (const Case& c : cases) {
        const setuptest::SetupHome home;
        const std::string path = home.home + c.file;
        testsupport::makeDirectories(path.substr(0, path.rfind('/')));
        c.plant(path);
        const bool claude = std::string(c.file).starts_with("/.claude");
        const testsupport::Finished install = home.run({"install", claude ? "claude" : "grok"});
        const testsupport::Finished status = home.run({"status", claude ? "claude" : "grok"});
        const testsupport::Finished uninstall = home.run({"uninstall", claude ? "claude" : "grok"});
        if (claude && c.said) {
            EXPECT_EQ(install.status, 1) << c.what;
            EXPECT_NE(install.err.find(c.said), std::string::npos) << c.what << ": " << install.err;
            EXPECT_EQ(uninstall.status, c.onlyWhenWriting ? 0 : 1) << c.what;
        } else {
            EXPECT_EQ(install.status, 0) << c.what << ": " << install.err;
        }
        if (c.said && !c.onlyWhenWriting) {
            EXPECT_NE((status.out + status.err).find(c.said), std::string::npos) << c.what;
        }
        struct stat info;
        ASSERT_EQ(::stat("/dev/null", &info), 0);
        EXPECT_TRUE(S_ISCHR(info.st_mode)) << c.what;
        if (!std::string(c.what).ends_with("over 16 MiB")) {
            ASSERT_EQ(::lstat(path.c_str(), &info), 0);
            EXPECT_FALSE(S_ISREG(info.st_mode)) << c.what;  // left as it was
        }
    }
}

// `sudo -E agent-hook-setup install` on a user's home: everything created or
// replaced there stays the user's, so the user and the agents can write it.
TEST(SetupHostileFiles, RootWritingAUsersHomeLeavesEverythingTheUsers) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    const setuptest::SetupHome home;
    const uid_t user = 4242;
    ASSERT_EQ(::chown(home.home.c_str(), user, user), 0);
    ASSERT_EQ(home.run({"install", "all"}).status, 0);
    ASSERT_EQ(home.run({"uninstall", "all"}).status, 0);  // replaced, and backed up
    ASSERT_EQ(home.run({"install", "all"}).status, 0);
    std::size_t seen = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.home)) {
        struct stat info;
        ASSERT_EQ(::lstat(entry.path().c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, user) << entry.path();
        EXPECT_EQ(info.st_gid, user) << entry.path();
        ++seen;
    }
    EXPECT_GE(seen, 8u);  // .claude, .codex, .grok, .grok/hooks, three files, backups
}
