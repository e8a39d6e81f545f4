#include <gtest/gtest.h>

#include "platform/SessionBus.hpp"

using AgentHook::platform::unixSocketOf;

TEST(SessionBus, FindsTheSocketOfTheFirstUsableAddressEntry) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"unix:path=/run/user/1000/bus", "/run/user/1000/bus"},
        {"unix:path=/tmp/a%20b/bus,guid=0123abcd", "/tmp/a b/bus"},
        {"unix:guid=0123,abstract=/tmp/dbus-X", std::string(1, '\0') + "/tmp/dbus-X"},
        {"tcp:host=localhost,port=1;unix:path=/s", "/s"},
        {"unix:tmpdir=/tmp;unix:path=/second", "/second"},
        {"tcp:host=localhost,port=1", std::nullopt},
        {"unix:path=/bad%2", std::nullopt},
        {"unix:path=", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [address, socket] : cases) EXPECT_EQ(unixSocketOf(address), socket) << address;
}

TEST(SessionBus, NoAnswerWithoutADaemon) {
    EXPECT_FALSE(AgentHook::platform::anyNameHasOwner("unix:path=/nonexistent/bus", {"com.brightloft.voxtrel"}));
    EXPECT_FALSE(AgentHook::platform::anyNameHasOwner("tcp:host=127.0.0.1,port=1", {"com.brightloft.voxtrel"}));
}
