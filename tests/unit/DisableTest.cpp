#include <gtest/gtest.h>

#include "runtime/Disable.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook;
using testsupport::TempDir;

TEST(Disable, MarkersSwitchOffTheirSessionOrDirectoryOnly) {
    struct Case {
        const char* label;
        std::vector<std::string> markers;  // names after "disabled-"
        std::string session;
        std::string cwd;
        bool disabled;
    };
    const std::string md5Tmp = "d42b9c57d24cf5db3bd8d332dc35437f";  // of "/tmp", as the app names the marker
    const Case cases[] = {
        {"no markers", {}, "s1", "/tmp", false},
        {"session marker", {"s1"}, "s1", "/tmp", true},
        {"other session", {"s1"}, "s2", "/tmp", false},
        {"directory marker", {md5Tmp}, "s2", "/tmp", true},
        {"trailing slash differs", {md5Tmp}, "s2", "/tmp/", false},
        {"empty cwd never matches", {"d41d8cd98f00b204e9800998ecf8427e"}, "s2", "", false},
        {"upper-case digits do not match", {"D42B9C57D24CF5DB3BD8D332DC35437F"}, "s2", "/tmp", false},
    };
    for (const Case& c : cases) {
        TempDir dir;
        for (const std::string& marker : c.markers) testsupport::writeText(dir.path() + "/disabled-" + marker, "");
        EXPECT_EQ(isAgentDisabled(c.session, c.cwd, dir.path()), c.disabled) << c.label;
    }
}

