// Delivery to the app: a payload lands complete, under a fresh UUID name, in
// the app's inbox; when the app is not running its wake-up URL is opened.
#pragma once

#include <string>

#include "bridge/AgentInboxPayload.hpp"

namespace AgentHook {

// Application Support + "/voxtrel/agent/inbox"; "" when there is no home.
std::string inboxDirectory();

// Writes a temporary beside "<UUID>.json" and moves it there. True when the final
// file exists (its path in `path`); failures are logged and leave no temporary file.
[[nodiscard]] bool writeInboxPayload(const AgentInboxPayload& payload, std::string* path = nullptr);

// Either app identifier ("com.brightloft.voxtrel", "com.brightloft.voxtrel.debug") running.
bool isVoxtrelRunning();

// VOXTREL_SCHEME when set (whatever its value), else "voxtrel".
std::string detectScheme();

// scheme + "://agent-wake", or nothing when the scheme is not a valid URL scheme.
std::optional<std::string> wakeUrl(const std::string& scheme);

// Opens the wake-up URL; does nothing for an invalid scheme.
void fireAgentWake();

// Where a payload went, and whether the app was running as it did.
struct Delivery {
    std::string path;
    bool appRunning = false;
};

// Delivers `payload`, wakes the app if it is not running, and logs a failed
// delivery. The order every sender uses. False when the payload could not be written.
bool deliverToVoxtrel(const AgentInboxPayload& payload, Delivery* delivery = nullptr);

}  // namespace AgentHook
