#include "Requests.hpp"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "text/Json.hpp"
#include "text/Utf8.hpp"

namespace Companion {

namespace fs = std::filesystem;
using AgentHook::text::Json;

std::vector<std::string> payloadFilesInArrivalOrder(const std::string& inbox) {
    struct Entry {
        fs::file_time_type modified;
        std::string name;
    };
    std::vector<Entry> entries;
    std::error_code error;
    for (fs::directory_iterator it(inbox, error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (name.size() <= 5 || !name.ends_with(".json")) continue;
        std::error_code statError;
        if (!it->is_regular_file(statError)) continue;
        const auto modified = fs::last_write_time(it->path(), statError);
        if (statError) continue;  // consumed or withdrawn meanwhile
        entries.push_back({modified, name});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.modified != b.modified ? a.modified < b.modified : a.name < b.name;
    });
    std::vector<std::string> paths;
    for (const Entry& entry : entries) paths.push_back(inbox + "/" + entry.name);
    return paths;
}

std::optional<std::vector<Question>> parseQuestions(const std::string& body) {
    const std::optional<Json> root = AgentHook::text::parseJson(body);
    if (!root || !root->is_object()) return std::nullopt;
    const auto list = root->find("questions");
    if (list == root->end() || !list->is_array()) return std::nullopt;
    std::vector<Question> questions;
    for (const Json& item : *list) {
        if (!item.is_object()) return std::nullopt;
        Question question;
        question.header = AgentHook::text::stringMember(item, "header").value_or("");
        question.text = AgentHook::text::stringMember(item, "question").value_or("");
        question.multiSelect = AgentHook::text::boolMember(item, "multiSelect").value_or(false);
        if (const auto options = item.find("options"); options != item.end() && options->is_array()) {
            for (const Json& option : *options) {
                if (!option.is_object()) continue;
                question.labels.push_back(AgentHook::text::stringMember(option, "label").value_or(""));
                question.descriptions.push_back(AgentHook::text::stringMember(option, "description").value_or(""));
            }
        }
        questions.push_back(std::move(question));
    }
    return questions;
}

std::string replyWordFor(const std::string& behavior) {
    if (behavior == "bypass-perms") return "bypass";
    return behavior;  // "allow", "always", "deny" and anything new go as they are
}

std::optional<PermissionRequest> parsePermission(const std::string& body) {
    const std::optional<Json> root = AgentHook::text::parseJson(body);
    if (!root || !root->is_object()) return std::nullopt;
    PermissionRequest request;
    for (const char* key : {"suggestions", "choices"}) {
        const auto list = root->find(key);
        if (list == root->end() || !list->is_array()) continue;
        for (const Json& item : *list) {
            if (!item.is_object()) continue;
            auto label = AgentHook::text::stringMember(item, "label");
            auto behavior = AgentHook::text::stringMember(item, "behavior");
            if (!label || !behavior) continue;
            request.choices.push_back({std::move(*label), *behavior, replyWordFor(*behavior)});
        }
        if (!request.choices.empty()) break;
    }
    if (request.choices.empty()) return std::nullopt;
    request.toolName = AgentHook::text::stringMember(*root, "toolName").value_or("");
    request.details = AgentHook::text::stringMember(*root, "details").value_or("");
    request.context = AgentHook::text::stringMember(*root, "context").value_or("");
    return request;
}

namespace {

void appendIndented(std::string& out, const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) out += (line.empty() ? "" : "    ") + line + "\n";
}

// "label:    text" for one line, an indented block below the label otherwise.
void appendField(std::string& out, const std::string& label, const std::string& text) {
    if (text.find('\n') == std::string::npos) {
        out += label + ":" + std::string(label.size() < 9 ? 9 - label.size() : 1, ' ') + text + "\n";
    } else {
        out += label + ":\n";
        appendIndented(out, text);
    }
}

// The start of a long text (an agent's last message, a whole plan): enough to
// know what the request is about without scrolling the request itself away.
std::string excerpt(std::string_view text) {
    constexpr std::size_t kLines = 8;
    constexpr std::size_t kCharacters = 400;
    text = AgentHook::text::trimmed(text);
    std::string_view kept = AgentHook::text::characterPrefix(text, kCharacters);
    std::size_t newline = std::string_view::npos;
    for (std::size_t lines = 0, from = 0; lines < kLines; ++lines, from = newline + 1) {
        newline = kept.find('\n', from);
        if (newline == std::string_view::npos) break;
    }
    if (newline != std::string_view::npos) kept = kept.substr(0, newline);
    std::string out(kept);
    if (kept.size() < text.size()) {
        const std::size_t more = AgentHook::text::characterCount(text) - AgentHook::text::characterCount(kept);
        out += "\n[... " + std::to_string(more) + " more characters]";
    }
    return out;
}

std::optional<std::string> contextOf(const std::string& body) {
    const std::optional<Json> root = AgentHook::text::parseJson(body);
    if (!root || !root->is_object()) return std::nullopt;
    return AgentHook::text::stringMember(*root, "context");
}

std::string choicesFor(const std::string& status, bool numbered) {
    if (status == "permission") {
        return numbered ? "a choice number, or any other words to send as typed"
                        : "allow / deny / always / bypass, or any other words to refuse with them";
    }
    if (status == "question") return "one line per question: option numbers (e.g. 1 or 1,3) or your own words";
    if (status == "completed") return "free text: what the agent should do next";
    return "free text";
}

// A 1-based choice number within `count`, ignoring surrounding blanks.
std::optional<std::size_t> choiceNumber(std::string token, std::size_t count) {
    token.erase(0, token.find_first_not_of(" \t"));
    token.erase(token.find_last_not_of(" \t\r") + 1);
    if (token.empty() || token.size() > 3 ||
        !std::all_of(token.begin(), token.end(), [](unsigned char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    const std::size_t number = std::stoul(token);
    if (number < 1 || number > count) return std::nullopt;
    return number;
}

}  // namespace

std::string describeRequest(const AgentHook::AgentInboxPayload& payload, const std::optional<std::string>& body) {
    const std::string status = payload.status.value_or("");
    std::string out = "=== request " + payload.requestId.value_or("(no id)") + " ===\n";
    const std::pair<const char*, const std::optional<std::string>*> fields[] = {
        {"agent", &payload.agent},     {"status", &payload.status}, {"summary", &payload.summary},
        {"project", &payload.project}, {"branch", &payload.branch}, {"title", &payload.title},
        {"session", &payload.sessionId}, {"cwd", &payload.cwd},
    };
    for (const auto& [label, value] : fields) appendField(out, label, value->value_or("(none)"));
    bool numbered = false;
    if (!body) {
        out += "message: (cannot read " + payload.messageFile.value_or("(no message file)") + ")\n";
    } else if (const auto questions = status == "question" ? parseQuestions(*body) : std::nullopt) {
        if (const auto context = contextOf(*body); context && !context->empty()) {
            out += "context:\n";
            appendIndented(out, excerpt(*context));
        }
        for (std::size_t q = 0; q < questions->size(); ++q) {
            const Question& question = (*questions)[q];
            out += "question " + std::to_string(q + 1) + " [" + question.header + "]" +
                   (question.multiSelect ? " (several allowed)" : "") + ": " + question.text + "\n";
            for (std::size_t o = 0; o < question.labels.size(); ++o) {
                out += "    " + std::to_string(o + 1) + ". " + question.labels[o];
                if (!question.descriptions[o].empty()) out += " - " + question.descriptions[o];
                out += "\n";
            }
        }
    } else if (const auto permission = status == "permission" ? parsePermission(*body) : std::nullopt) {
        if (!permission->toolName.empty()) appendField(out, "tool", permission->toolName);
        if (!permission->details.empty()) appendField(out, "details", permission->details);
        if (!permission->context.empty()) {
            out += "context:\n";
            appendIndented(out, excerpt(permission->context));
        }
        out += "choices:\n";
        for (std::size_t c = 0; c < permission->choices.size(); ++c) {
            const Choice& choice = permission->choices[c];
            out += "    " + std::to_string(c + 1) + ". " + choice.label + "  (sends \"" + choice.reply + "\")\n";
        }
        numbered = true;
    } else {
        out += "message:\n";
        appendIndented(out, *body);
    }
    out += "answer:   " + choicesFor(status, numbered) + "\n";
    return out;
}

std::vector<std::string> answerFromLine(const Question& question, const std::string& line) {
    std::vector<std::string> picked;
    std::istringstream tokens(line);
    for (std::string token; std::getline(tokens, token, ',');) {
        const std::optional<std::size_t> number = choiceNumber(token, question.labels.size());
        if (!number) return {line};
        picked.push_back(question.labels[*number - 1]);
    }
    if (picked.empty()) return {line};
    return picked;
}

std::string replyFromLine(const std::vector<Choice>& choices, const std::string& line) {
    const std::optional<std::size_t> number = choiceNumber(line, choices.size());
    return number ? choices[*number - 1].reply : line;
}

std::string encodeAnswers(const std::vector<std::vector<std::string>>& answers) {
    Json root = Json::object();
    root["answers"] = Json::array();
    for (const auto& answer : answers) root["answers"].push_back(answer);
    // Terminal input that is not valid UTF-8 is replaced rather than dropped.
    return root.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Companion
