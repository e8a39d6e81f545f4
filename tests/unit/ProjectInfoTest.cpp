#include <gtest/gtest.h>

#include <cstdlib>

#include "bridge/ProjectInfo.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook;
using testsupport::TempDir;

namespace {

void git(const std::string& directory, const std::string& arguments) {
    const std::string command = "git -C '" + directory + "' " + arguments + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

}  // namespace

TEST(ProjectInfo, AsksGitForTheWorkTreeAndItsBranch) {
    TempDir dir;
    const std::string repo = dir.file("app");
    testsupport::makeDirectories(repo + "/src/deep");
    git(repo, "init -q -b feature/voice");
    EXPECT_EQ(runGit({"rev-parse", "--show-toplevel"}, repo + "/src"), repo);  // trailing newline trimmed

    ProjectInfo info = getProjectInfo(repo + "/src/deep");
    EXPECT_EQ(info.projectName, "app");
    EXPECT_EQ(info.gitBranch, "feature/voice");

    git(repo, "-c user.name=t -c user.email=t@t commit -q --allow-empty -m one");
    git(repo, "checkout -q --detach");
    info = getProjectInfo(repo);
    EXPECT_EQ(info.projectName, "app");
    EXPECT_EQ(info.gitBranch, "");
}

