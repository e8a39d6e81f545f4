#include "bridge/Inbox.hpp"

#include "platform/AppDetection.hpp"
#include "platform/Environment.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/Files.hpp"
#include "platform/Identifiers.hpp"
#include "runtime/Logging.hpp"

namespace AgentHook {

std::string inboxDirectory() {
    const std::string support = platform::applicationSupportDirectory();
    return support.empty() ? std::string() : support + "/voxtrel/agent/inbox";
}

bool writeInboxPayload(const AgentInboxPayload& payload, std::string* path) {
    const std::string directory = inboxDirectory();
    std::string error;
    if (directory.empty()) {
        log("Failed to create inbox directory: no home directory");
        return false;
    }
    if (!platform::createDirectories(directory, &error)) {
        log("Failed to create inbox directory: " + error);
        return false;
    }
    // The temporary is exactly "<UUID>.json.tmp", the name the app knows to
    // skip, so it never reads a partial payload.
    const std::string name = directory + "/" + platform::randomUuid();
    const std::optional<std::string> bytes = encodeInboxPayload(payload);
    if (!bytes) {
        error = "the payload holds text that is not valid UTF-8";
    } else if (platform::writeFileAtomically(name + ".json", *bytes, &error, platform::AtomicFile::Mode::privateToUser,
                                             platform::AtomicFile::Temporary::pathDotTmp)) {
        if (path) *path = name + ".json";
        return true;
    }
    log("Failed to write inbox payload: " + error);
    return false;
}

bool isVoxtrelRunning() {
    return platform::isApplicationRunning({"com.brightloft.voxtrel", "com.brightloft.voxtrel.debug"});
}

std::string detectScheme() {
    return platform::environmentValue("VOXTREL_SCHEME").value_or("voxtrel");
}

std::optional<std::string> wakeUrl(const std::string& scheme) {
    // RFC 3986: ALPHA *( ALPHA / DIGIT / "+" / "-" / "." )
    auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    if (scheme.empty() || !isAlpha(scheme[0])) return std::nullopt;
    for (const char c : scheme) {
        if (!isAlpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.') return std::nullopt;
    }
    return scheme + "://agent-wake";
}

void fireAgentWake() {
    if (const std::optional<std::string> url = wakeUrl(detectScheme())) platform::openUrl(*url);
}

bool deliverToVoxtrel(const AgentInboxPayload& payload, Delivery* delivery) {
    std::string path;
    const bool written = writeInboxPayload(payload, &path);
    const bool running = isVoxtrelRunning();
    if (!running) fireAgentWake();
    if (!written) log("Inbox write failed; deeplink fallback may be needed");
    if (delivery) *delivery = Delivery{std::move(path), running};
    return written;
}

}  // namespace AgentHook
