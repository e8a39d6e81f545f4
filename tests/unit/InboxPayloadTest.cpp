// Reading an inbox payload back, as the stand-in app does. The bytes the hook
// writes (decisions and payloads) are compared whole by the end-to-end tests.
#include <gtest/gtest.h>

#include "bridge/AgentInboxPayload.hpp"

using namespace AgentHook;

TEST(InboxPayload, DecodingNeedsAKnownKind) {
    EXPECT_FALSE(decodeInboxPayload(R"({"sessionId":"s1"})"));
    EXPECT_FALSE(decodeInboxPayload(R"({"kind":"Update"})"));
    EXPECT_FALSE(decodeInboxPayload(R"({"kind":"update","hookPid":"12"})"));
    EXPECT_FALSE(decodeInboxPayload(R"({"kind":"update","hookPid":4294967296})"));
    const auto bare = decodeInboxPayload(R"({"kind":"dismiss","extra":[1]})");
    ASSERT_TRUE(bare);
    AgentInboxPayload dismiss;
    dismiss.kind = AgentInboxPayload::Kind::dismiss;
    EXPECT_EQ(*bare, dismiss);
}
