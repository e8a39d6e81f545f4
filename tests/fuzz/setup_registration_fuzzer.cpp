// agent-hook-setup's edits of a configuration's text: the input as the file's
// bytes. An install must give valid JSON holding each event's entry once and
// every other member as it was, be a no-op the second time, and an uninstall
// after it must leave what an uninstall of the original leaves (and the very
// bytes of the original, when that held nothing of ours and no empty lists).
#include <string>
#include <vector>

#include "FuzzSupport.hpp"
#include "RegistrationEdit.hpp"

using namespace AgentHook::Setup;
using AgentHook::Agent;

namespace {

std::vector<std::string> keysBesideHooks(const OrderedJson& document) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : document.items()) {
        if (key != "hooks") keys.push_back(key);
    }
    return keys;
}

OrderedJson parsed(const std::string& text, const char* what) {
    OrderedJson document;
    fuzz::require(parseOrderedJson(text, &document) && document.is_object(), what);
    return document;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string original(fuzz::bytesOf(data, size));
    OrderedJson before;
    std::string err;
    if (!parseOrderedJson(original, &before) || !hasHooksShape(before, &err)) return 0;
    const std::string hook = "/opt/bin/agent-hook";

    std::string installed = original;
    if (!addRegistration(installed, Agent::claude, hook, &err)) {
        fuzz::require(installed == original, "a refused install changes nothing");
        return 0;
    }
    const OrderedJson after = parsed(installed, "an install gives a JSON object");
    fuzz::require(findRegistration(after, hook).size() == registeredEvents(Agent::claude).size(),
                  "one entry per event");
    fuzz::require(keysBesideHooks(after) == keysBesideHooks(before), "other members keep their order");
    for (const auto& [key, value] : before.items()) {
        if (key != "hooks") fuzz::require(after.at(key) == value, "other members keep their values");
    }
    std::string again = installed;
    fuzz::require(addRegistration(again, Agent::claude, hook, &err) && again == installed, "a second install is a no-op");

    std::string removed = installed;
    fuzz::require(removeRegistration(removed, hook, &err), "an uninstall takes an installed file");
    std::string removedOriginal = original;
    fuzz::require(removeRegistration(removedOriginal, hook, &err), "an uninstall takes the original");
    fuzz::require(sameApartFromRegistration(parsed(removedOriginal, "an uninstall gives a JSON object"),
                                            parsed(removed, "an uninstall gives a JSON object"), hook),
                  "install then uninstall is uninstall");
    // An empty object's inside is not kept ("{ }" comes back as "{}").
    if (findRegistration(before, hook).empty() && !before.empty() && parsed(removed, "") == before) {
        fuzz::require(removed == original, "install then uninstall gives back the bytes");
    }
    return 0;
}
