#include "bridge/AgentInboxPayload.hpp"

#include <iterator>

#include <climits>

#include "text/Json.hpp"

namespace AgentHook {
namespace {

using text::Json;

// Every text field with its key, in one table for both directions.
template <class Payload, class Visit>
void forEachTextField(Payload& payload, Visit visit) {
    visit("sessionId", payload.sessionId);
    visit("requestId", payload.requestId);
    visit("agent", payload.agent);
    visit("status", payload.status);
    visit("summary", payload.summary);
    visit("message", payload.message);
    visit("messageFile", payload.messageFile);
    visit("responseFile", payload.responseFile);
    visit("cwd", payload.cwd);
    visit("project", payload.project);
    visit("branch", payload.branch);
    visit("title", payload.title);
}

}  // namespace

std::optional<Agent> agentForCommandWord(std::string_view word) {
    for (const AgentNames& names : kAgents) {
        if (names.commandWord == word) return names.agent;
    }
    return std::nullopt;
}

const AgentNames& namesOf(Agent agent) {
    static_assert(std::size(kAgents) == 3, "one row per agent, in the enumeration's order");
    return kAgents[static_cast<std::size_t>(agent)];
}

std::optional<std::string> encodeInboxPayload(const AgentInboxPayload& payload) {
    Json object = Json::object();
    object["kind"] = payload.kind == AgentInboxPayload::Kind::dismiss ? "dismiss" : "update";
    forEachTextField(payload, [&](const char* key, const std::optional<std::string>& value) {
        if (value) object[key] = *value;
    });
    if (payload.hookPid) object["hookPid"] = *payload.hookPid;
    return text::toCompactJson(object);
}

std::optional<AgentInboxPayload> decodeInboxPayload(std::string_view bytes) {
    const std::optional<Json> object = text::parseJson(bytes);
    if (!object || !object->is_object()) return std::nullopt;
    AgentInboxPayload payload;
    const std::optional<std::string> kind = text::stringMember(*object, "kind");
    if (kind == "update") {
        payload.kind = AgentInboxPayload::Kind::update;
    } else if (kind == "dismiss") {
        payload.kind = AgentInboxPayload::Kind::dismiss;
    } else {
        return std::nullopt;
    }
    bool valid = true;
    forEachTextField(payload, [&](const char* key, std::optional<std::string>& value) {
        valid = text::readOptional(*object, key, value) && valid;
    });
    if (const auto pid = object->find("hookPid"); pid != object->end() && !pid->is_null()) {
        if (!pid->is_number_integer()) return std::nullopt;
        const bool fits = pid->is_number_unsigned() ? pid->get<std::uint64_t>() <= INT32_MAX
                                                    : pid->get<std::int64_t>() >= INT32_MIN &&
                                                          pid->get<std::int64_t>() <= INT32_MAX;
        if (!fits) return std::nullopt;
        payload.hookPid = static_cast<std::int32_t>(pid->get<std::int64_t>());
    }
    if (!valid) return std::nullopt;
    return payload;
}

}  // namespace AgentHook
