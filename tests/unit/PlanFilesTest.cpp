// Finding the session's plan: the slug the transcript names last, its
// staleness, and the newest plan file when the transcript names none.
#include <gtest/gtest.h>

#include "claude/PlanFiles.hpp"
#include "support/TestSupport.hpp"

using namespace AgentHook::Claude;
using namespace testsupport;

TEST(PlanSlug, TheLastMatchWins) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {R"({"slug":"old-plan"})" "\n" R"({"slug":"new-plan"})", "new-plan"},
        {R"({"slug" :  "a1-b2"} {"slug":"Upper"} {"slug":"under_score"})", "a1-b2"},
        {"\"slug\"\t:\n\xC2\xA0\"x\"", "x"},
        {R"("slug":"")", std::nullopt},
        {R"("slug":"abc)", std::nullopt},
        {R"("slug"="abc")", std::nullopt},
        {R"("Slug":"abc")", std::nullopt},
        {R"("slug":"abc"slug":"def")", "abc"},  // the second would start inside the first match
        {"", std::nullopt},
    };
    for (const auto& [text, slug] : cases) EXPECT_EQ(lastPlanSlug(text), slug) << text;
}

namespace {

class PlanFiles : public ::testing::Test {
protected:
    void SetUp() override {
        variables_.set("HOME", dir_.path());
        makeDirectories(plans_);
    }
    // Writes a plan file last modified `age` seconds ago.
    void plan(const std::string& name, const std::string& text, double age) {
        writeText(plans_ + "/" + name, text);
        setAge(plans_ + "/" + name, age);
    }
    std::string transcript(const std::string& text) {
        writeText(dir_.file("t.jsonl"), text);
        return dir_.file("t.jsonl");
    }

    TempDir dir_;
    ScopedVariables variables_;
    std::string plans_ = dir_.file(".claude/plans");
};

}  // namespace

// A matched slug's age and trimming are the end-to-end tests'.
TEST_F(PlanFiles, ASlugWhoseFileIsMissingOrBlankGivesNothing) {
    plan("newest.md", "# Newest", 0);
    EXPECT_EQ(findMostRecentPlanContent("/w", transcript(R"({"slug":"gone"})"), true), std::nullopt);
    plan("blank.md", " \n", 0);
    EXPECT_EQ(findMostRecentPlanContent("/w", transcript(R"({"slug":"blank"})"), true), std::nullopt);
}

TEST_F(PlanFiles, TheNewestPlanFileWithoutASlug) {
    plan("a.md", "A", 30);
    plan("b.md", "B", 10);
    plan("notes.MD", "not a plan", 0);
    plan("c.txt", "not a plan", 0);
    EXPECT_EQ(findMostRecentPlanContent("/w", std::nullopt, false), "B");
    EXPECT_EQ(findMostRecentPlanContent("/w", transcript(R"({"slug":"Upper_Case"})"), false), "B");
    EXPECT_EQ(findMostRecentPlanContent("/w", dir_.file("missing.jsonl"), false), "B");
    plan("b.md", "   ", 0);  // the newest is blank: no plan
    EXPECT_EQ(findMostRecentPlanContent("/w", std::nullopt, false), std::nullopt);
}
