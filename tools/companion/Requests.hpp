// The app's side of the file protocol: finding payloads in the inbox,
// showing a request to a person, and turning terminal input into a response.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bridge/AgentInboxPayload.hpp"

namespace Companion {

// Complete payload files ("*.json"; a "*.json.tmp" is still being written),
// oldest first by modification time, then by name. Empty when the directory
// cannot be read.
std::vector<std::string> payloadFilesInArrivalOrder(const std::string& inbox);

struct Question {
    std::string header;
    std::string text;
    std::vector<std::string> labels;
    std::vector<std::string> descriptions;
    bool multiSelect = false;
};

// The questions of a "question" request's body; nothing when the body is not
// the expected object.
std::optional<std::vector<Question>> parseQuestions(const std::string& body);

// One answer choice of a permission request and the word that picking it sends.
struct Choice {
    std::string label;
    std::string behavior;
    std::string reply;
};

// What is shown of a permission request's body. Agents differ in what they
// put there, so every member but the choices may be empty.
struct PermissionRequest {
    std::string toolName;
    std::string details;
    std::string context;
    std::vector<Choice> choices;
};

// The word the hook understands for a choice's behavior: it names the choice
// "bypass-perms" but only acts on "bypass". Unknown behaviors are sent as they are.
std::string replyWordFor(const std::string& behavior);

// A permission body: a JSON object whose "suggestions" (or "choices") hold at
// least one object with a text "label" and "behavior". Nothing otherwise, and
// the body is then shown as it is.
std::optional<PermissionRequest> parsePermission(const std::string& body);

// The readable block printed for an update payload; `body` is the message
// file's contents, or nothing when it could not be read.
std::string describeRequest(const AgentHook::AgentInboxPayload& payload, const std::optional<std::string>& body);

// One terminal line as a question's answer: option numbers ("1", "1,3") pick
// labels; anything else is the person's own words.
std::vector<std::string> answerFromLine(const Question& question, const std::string& line);

// One terminal line as a permission reply: a choice's number sends its word;
// anything else is sent as typed.
std::string replyFromLine(const std::vector<Choice>& choices, const std::string& line);

// {"answers":[[...],...]}, one array per question in order.
std::string encodeAnswers(const std::vector<std::vector<std::string>>& answers);

}  // namespace Companion
