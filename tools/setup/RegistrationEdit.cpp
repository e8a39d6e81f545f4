#include "RegistrationEdit.hpp"

#include <algorithm>

#include "JsonText.hpp"
#include "text/Json.hpp"

namespace AgentHook::Setup {
namespace {

OrderedJson groupFor(const EventRegistration& registration, Agent agent, const std::string& hookPath) {
    OrderedJson group = OrderedJson::object();
    if (registration.matcher) group["matcher"] = registration.matcher;
    OrderedJson hook = OrderedJson::object();
    hook["type"] = "command";
    hook["command"] = hookCommand(hookPath, agent);
    hook["timeout"] = kHookTimeoutSeconds;
    group["hooks"] = OrderedJson::array({std::move(hook)});
    return group;
}

// A group's "hooks" list, and which of its hooks are agent-hook's.
struct GroupHooks {
    const JsonSpan* list = nullptr;
    std::vector<std::size_t> own;

    bool onlyOwn() const { return list && !own.empty() && own.size() == list->size(); }
};

GroupHooks groupHooks(std::string_view text, const JsonSpan& group, const std::string& hookPath) {
    GroupHooks found;
    const std::optional<std::size_t> inner = group.kind == JsonSpan::Kind::object ? group.find("hooks") : std::nullopt;
    if (!inner || group.children[*inner].kind != JsonSpan::Kind::array) return found;
    found.list = &group.children[*inner];
    for (std::size_t i = 0; i < found.list->size(); ++i) {
        if (isOwnHook(valueAt(text, found.list->children[i]), hookPath)) found.own.push_back(i);
    }
    return found;
}

// The first group in `list` of agent-hook's entries only (`wanted`: and equal to it).
std::optional<std::size_t> ownGroup(std::string_view text, const JsonSpan& list, const std::string& hookPath,
                                    const OrderedJson* wanted = nullptr) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (groupHooks(text, list.children[i], hookPath).onlyOwn() &&
            (!wanted || valueAt(text, list.children[i]) == *wanted)) {
            return i;
        }
    }
    return std::nullopt;
}

// `text` replaced by an edit's result; false when the edit could not write a value.
bool applied(std::string& text, std::optional<std::string> changed) {
    if (!changed) return false;
    text = std::move(*changed);
    return true;
}

// Where an event's own group goes: in place of the first group of ours only,
// after the first group that shares a hook of ours with the user's, or last.
// False when the group cannot be written.
bool placeGroup(std::string& text, const JsonSpan& list, const OrderedJson& group, const std::string& hookPath) {
    if (const std::optional<std::size_t> own = ownGroup(text, list, hookPath)) {
        if (valueAt(text, list.children[*own]) == group) return true;
        return applied(text, replaceValue(text, list.children[*own], group));
    }
    std::size_t at = list.size();
    for (std::size_t i = 0; i < list.size() && at == list.size(); ++i) {
        if (!groupHooks(text, list.children[i], hookPath).own.empty()) at = i + 1;
    }
    return applied(text, insertChild(text, list, at, std::nullopt, group));
}

// Removes one agent-hook entry that is not in a kept group (`keep` gives, per
// event, the group to keep); a group, event or "hooks" member left empty by
// that goes too. False when there is none left.
template <class Keep>
bool removeOneEntry(std::string& text, const std::string& hookPath, Keep keep) {
    const JsonSpan root = scanJson(text);
    const std::optional<std::size_t> hooksAt = root.find("hooks");
    if (!hooksAt) return false;
    const JsonSpan& hooks = root.children[*hooksAt];
    for (std::size_t event = 0; event < hooks.size(); ++event) {
        const JsonSpan& list = hooks.children[event];
        if (list.kind != JsonSpan::Kind::array) continue;
        const std::optional<std::size_t> kept = keep(hooks.keys[event], list);
        for (std::size_t group = 0; group < list.size(); ++group) {
            const GroupHooks found = groupHooks(text, list.children[group], hookPath);
            if (group == kept || found.own.empty()) continue;
            if (!found.onlyOwn()) {
                text = removeChild(text, *found.list, found.own.front());
            } else if (list.size() > 1) {
                text = removeChild(text, list, group);
            } else if (hooks.size() > 1) {
                text = removeChild(text, hooks, event);
            } else {
                text = removeChild(text, root, *hooksAt);
            }
            return true;
        }
    }
    return false;
}

// Room for a registration: an object whose "hooks" member, if any, is an
// object, with no member named twice where the edit works (which of two
// the agent reads is unclear: such a file is not changed).
bool hasRoomForHooks(std::string_view text, std::string* err) {
    const JsonSpan root = scanJson(text);
    const auto count = [](const JsonSpan& object, const std::string& key) {
        return std::count(object.keys.begin(), object.keys.end(), key);
    };
    const auto fail = [&](std::string what) {
        *err = std::move(what);
        return false;
    };
    if (root.kind != JsonSpan::Kind::object) return fail("the document is not a JSON object");
    if (count(root, "hooks") > 1) return fail("it has two \"hooks\" members");
    const std::optional<std::size_t> hooks = root.find("hooks");
    if (!hooks) return true;
    if (root.children[*hooks].kind != JsonSpan::Kind::object) return fail("its \"hooks\" member is not an object");
    for (const std::string& event : root.children[*hooks].keys) {
        if (count(root.children[*hooks], event) > 1) return fail("its \"hooks\" member names \"" + event + "\" twice");
    }
    return true;
}

// The document without empty event lists and without an empty "hooks" member.
OrderedJson withoutEmptyHooks(OrderedJson document) {
    const auto hooks = document.is_object() ? document.find("hooks") : document.end();
    if (hooks == document.end() || !hooks->is_object()) return document;
    for (auto event = hooks->begin(); event != hooks->end();) {
        event = event->is_array() && event->empty() ? hooks->erase(event) : std::next(event);
    }
    if (hooks->empty()) document.erase(hooks);
    return document;
}

// What keeps the document from being edited: not JSON, no room for hooks, or
// a member named twice where the edit works.
bool isEditable(const std::string& text, std::string* err) {
    // Checked without building the tree: a large file is edited in a small
    // multiple of its size.
    if (!text::isKeptJsonDocument(text)) {
        *err = "the document is not valid JSON";
        return false;
    }
    return hasRoomForHooks(text, err);
}

bool fail(std::string* err, std::string what) {
    *err = std::move(what);
    return false;
}

constexpr const char* kUnwritablePath = "the hook's path is not valid UTF-8";

}  // namespace

bool addRegistration(std::string& text, Agent agent, const std::string& hookPath, std::string* err) {
    if (!isEditable(text, err)) return false;
    std::vector<std::pair<std::string, OrderedJson>> groups;
    for (const EventRegistration& registration : registeredEvents(agent)) {
        groups.emplace_back(registration.event, groupFor(registration, agent, hookPath));
    }

    const JsonSpan root = scanJson(text);
    const std::optional<std::size_t> hooksAt = root.find("hooks");
    if (!hooksAt) {
        // Nothing of ours can be there yet: one new member holds it all.
        OrderedJson all = OrderedJson::object();
        for (const auto& [event, group] : groups) all[event] = OrderedJson::array({group});
        if (!applied(text, insertChild(text, root, root.size(), "hooks", all))) return fail(err, kUnwritablePath);
        return true;
    }
    for (const auto& [event, group] : groups) {
        const std::optional<std::size_t> list = root.children[*hooksAt].find(event);
        if (list && root.children[*hooksAt].children[*list].kind != JsonSpan::Kind::array) {
            return fail(err, "its \"hooks\" member's \"" + event + "\" is not a list");
        }
    }
    for (const auto& [event, group] : groups) {
        const JsonSpan now = scanJson(text);
        const JsonSpan& hooks = now.children[*hooksAt];
        const std::optional<std::size_t> list = hooks.find(event);
        const bool placed = list ? placeGroup(text, hooks.children[*list], group, hookPath)
                                 : applied(text, insertChild(text, hooks, hooks.size(), event, OrderedJson::array({group})));
        if (!placed) return fail(err, kUnwritablePath);
    }
    const auto keep = [&](const std::string& event, const JsonSpan& list) -> std::optional<std::size_t> {
        for (const auto& [name, group] : groups) {
            if (name == event) return ownGroup(text, list, hookPath, &group);
        }
        return std::nullopt;
    };
    while (removeOneEntry(text, hookPath, keep)) {
    }
    return true;
}

bool removeRegistration(std::string& text, const std::string& hookPath, std::string* err) {
    if (!isEditable(text, err)) return false;
    const auto keepNothing = [](const std::string&, const JsonSpan&) { return std::optional<std::size_t>(); };
    while (removeOneEntry(text, hookPath, keepNothing)) {
    }
    return true;
}

bool sameApartFromRegistration(const OrderedJson& earlier, const OrderedJson& now, const std::string& hookPath) {
    return findRegistration(earlier, hookPath).empty() && findRegistration(now, hookPath).empty() &&
           withoutEmptyHooks(earlier) == withoutEmptyHooks(now);
}
}  // namespace AgentHook::Setup
