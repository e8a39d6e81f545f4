#include "Requests.hpp"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "text/Json.hpp"

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

namespace {

void appendIndented(std::string& out, const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) out += "    " + line + "\n";
}

std::string choicesFor(const std::string& status) {
    if (status == "permission") return "allow / deny / always / bypass, or any other words to refuse with them";
    if (status == "question") return "one line per question: option numbers (e.g. 1 or 1,3) or your own words";
    if (status == "completed") return "free text: what the agent should do next";
    return "free text";
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
    for (const auto& [label, value] : fields) {
        out += std::string(label) + ":" + std::string(9 - std::string_view(label).size(), ' ') +
               value->value_or("(none)") + "\n";
    }
    if (!body) {
        out += "message: (cannot read " + payload.messageFile.value_or("(no message file)") + ")\n";
    } else if (const auto questions = status == "question" ? parseQuestions(*body) : std::nullopt) {
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
    } else {
        out += "message:\n";
        appendIndented(out, *body);
    }
    out += "answer:   " + choicesFor(status) + "\n";
    return out;
}

std::vector<std::string> answerFromLine(const Question& question, const std::string& line) {
    std::vector<std::string> picked;
    std::istringstream numbers(line);
    std::string token;
    bool onlyNumbers = false;
    while (std::getline(numbers, token, ',')) {
        token.erase(0, token.find_first_not_of(" \t"));
        token.erase(token.find_last_not_of(" \t\r") + 1);
        if (token.empty() || token.size() > 3 || !std::all_of(token.begin(), token.end(), [](unsigned char c) { return c >= '0' && c <= '9'; })) {
            onlyNumbers = false;
            break;
        }
        const std::size_t index = std::stoul(token);
        if (index < 1 || index > question.labels.size()) {
            onlyNumbers = false;
            break;
        }
        picked.push_back(question.labels[index - 1]);
        onlyNumbers = true;
    }
    if (onlyNumbers) return picked;
    return {line};
}

std::string encodeAnswers(const std::vector<std::vector<std::string>>& answers) {
    Json root = Json::object();
    root["answers"] = Json::array();
    for (const auto& answer : answers) root["answers"].push_back(answer);
    // Terminal input that is not valid UTF-8 is replaced rather than dropped.
    return root.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Companion
