// The plan slug a transcript names last; finding the plan file itself is the
// end-to-end tests'.
#include <gtest/gtest.h>

#include "claude/PlanFiles.hpp"

using namespace AgentHook::Claude;

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
