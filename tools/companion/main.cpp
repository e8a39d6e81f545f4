// agent-hook-companion: a stand-in for the desktop app. It owns the app's bus
// name, watches the inbox, prints every request and answers it from a script
// of answers or from the terminal.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <cstdlib>
#include <functional>
#include <poll.h>
#include <sys/stat.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "BusName.hpp"
#include "Requests.hpp"
#include "bridge/Inbox.hpp"
#include "platform/Clock.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/Files.hpp"

namespace {

using AgentHook::AgentInboxPayload;
namespace platform = AgentHook::platform;

volatile std::sig_atomic_t stopRequested = 0;
extern "C" void onStopSignal(int) { stopRequested = 1; }

constexpr double kPollSeconds = 0.05;

const char* const kUsage =
    "usage: agent-hook-companion [--answer TEXT]... [--delay SECONDS] [--exit-after N] [--bus-name NAME]\n"
    "\n"
    "Stands in for the desktop app: owns com.brightloft.voxtrel on the session bus\n"
    "(when there is one), prints every request that arrives in the inbox and writes\n"
    "the answer to its response file.\n"
    "\n"
    "  --answer TEXT     scripted answer, one per request in arrival order (repeatable);\n"
    "                    written verbatim: a permission takes a reply word (allow, deny,\n"
    "                    always, bypass), a question {\"answers\":[[\"label\"]]}\n"
    "  --delay SECONDS   wait this long before writing each scripted answer (default 0)\n"
    "  --exit-after N    exit after answering N requests\n"
    "  --bus-name NAME   own NAME instead (com.brightloft.voxtrel.debug plays the app's debug build)\n"
    "\n"
    "Once the scripted answers are used up, answers are read from standard input, one\n"
    "line per answer (one per question): a number picks a shown choice, any other text\n"
    "is sent as typed. Without input, further requests are shown and left unanswered.\n";

struct Options {
    std::vector<std::string> answers;
    double delaySeconds = 0;
    long exitAfter = 0;  // 0: run until a signal
    std::string busName = "com.brightloft.voxtrel";
};

void say(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void note(const std::string& text) { std::fprintf(stderr, "companion: %s\n", text.c_str()); }

bool parseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            say(kUsage);
            std::exit(0);
        }
        if (i + 1 >= argc) return false;
        const char* value = argv[++i];
        char* end = nullptr;
        if (option == "--answer") {
            options.answers.emplace_back(value);
        } else if (option == "--delay") {
            options.delaySeconds = std::strtod(value, &end);
            if (end == value || *end != '\0' || !(options.delaySeconds >= 0)) return false;
        } else if (option == "--bus-name") {
            options.busName = value;
        } else if (option == "--exit-after") {
            options.exitAfter = std::strtol(value, &end, 10);
            if (end == value || *end != '\0' || options.exitAfter < 1) return false;
        } else {
            return false;
        }
    }
    return true;
}

// Sleeps in short steps so that a signal ends the wait at once.
void sleepFor(double seconds) {
    while (seconds > 0 && stopRequested == 0) {
        platform::sleepSeconds(std::min(seconds, kPollSeconds));
        seconds -= kPollSeconds;
    }
}

// Consumes a dismiss payload for `sessionId` if one has arrived; other payloads
// are left for the main loop.
bool takeDismissFor(const std::string& inbox, const std::string& sessionId) {
    for (const std::string& path : Companion::payloadFilesInArrivalOrder(inbox)) {
        const std::optional<std::string> bytes = platform::readFile(path);
        const auto payload = bytes ? AgentHook::decodeInboxPayload(*bytes) : std::nullopt;
        if (payload && payload->kind == AgentInboxPayload::Kind::dismiss && payload->sessionId == sessionId) {
            platform::removeFile(path);
            return true;
        }
    }
    return false;
}

// A request whose hook has exited can never be answered: an agent that gives
// up on a hook may kill it with SIGKILL, which leaves no dismiss behind. A
// killed hook that its agent has not reaped yet is a zombie, gone as well.
bool hookGone(const AgentInboxPayload& payload) {
    if (!payload.hookPid || *payload.hookPid <= 0) return false;
    const pid_t pid = *payload.hookPid;
    if (::kill(pid, 0) != 0) return errno == ESRCH;
    const std::optional<std::string> stat = platform::readFile("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t state = stat ? stat->rfind(") ") : std::string::npos;
    return state != std::string::npos && state + 2 < stat->size() && (*stat)[state + 2] == 'Z';
}

// Answers are read from a terminal, a pipe or a file. Any other character
// device is the null device that a background job gets, with nothing to say.
bool standardInputCanAnswer() {
    if (::isatty(STDIN_FILENO) != 0) return true;
    struct stat info{};
    return ::fstat(STDIN_FILENO, &info) == 0 && !S_ISCHR(info.st_mode);
}

enum class LineResult { line, closed, abandoned, stopped };

// One line from the terminal, checking `abandon` every poll step so that a
// prompt whose request is withdrawn does not wait for a reply nobody reads.
LineResult readTerminalLine(std::string& line, const std::function<bool()>& abandon) {
    static std::string pending;
    for (;;) {
        if (const auto newline = pending.find('\n'); newline != std::string::npos) {
            line = pending.substr(0, newline);
            pending.erase(0, newline + 1);
            return LineResult::line;
        }
        if (stopRequested != 0) return LineResult::stopped;
        if (abandon()) return LineResult::abandoned;
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, static_cast<int>(kPollSeconds * 1000)) <= 0) continue;
        char buffer[4096];
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            if (pending.empty()) return LineResult::closed;
            line = std::move(pending);
            pending.clear();
            return LineResult::line;
        }
        pending.append(buffer, static_cast<std::size_t>(count));
    }
}

class Responder {
public:
    Responder(Options options, std::string inbox) : options_(std::move(options)), inbox_(std::move(inbox)) {}

    // Returns true once the requested number of answers has been written.
    bool handle(const std::string& path) {
        const std::optional<std::string> bytes = platform::readFile(path);
        if (!bytes) return false;  // withdrawn from under us; nothing to consume
        platform::removeFile(path);
        const std::optional<AgentInboxPayload> payload = AgentHook::decodeInboxPayload(*bytes);
        if (!payload) {
            note("removed unreadable payload " + path);
            return false;
        }
        const std::string session = payload->sessionId.value_or("(none)");
        if (payload->kind == AgentInboxPayload::Kind::dismiss) {
            say("companion: withdrawn: session " + session + "\n");
            return false;
        }
        const std::string request = payload->requestId.value_or(session);
        auto droppedAsGone = [&] {
            if (!hookGone(*payload)) return false;
            say("companion: dropped " + request + ": its hook (pid " + std::to_string(*payload->hookPid) + ") is gone\n");
            return true;
        };
        if (droppedAsGone()) return false;
        const std::optional<std::string> body =
            payload->messageFile ? platform::readFile(*payload->messageFile) : std::nullopt;
        say(Companion::describeRequest(*payload, body));
        if (!payload->responseFile) {
            say("companion: no response file; nothing to answer\n");
            return false;
        }
        const std::optional<std::string> answer = answerFor(*payload, body);
        if (!answer || droppedAsGone()) return false;
        std::string error;
        if (!platform::writeFileAtomically(*payload->responseFile, *answer, &error)) {
            note("cannot write " + *payload->responseFile + ": " + error);
            return false;
        }
        say("companion: answered " + request + ": " + *answer + "\n");
        return options_.exitAfter > 0 && ++answered_ >= options_.exitAfter;
    }

private:
    std::optional<std::string> answerFor(const AgentInboxPayload& payload, const std::optional<std::string>& body) {
        const std::string request = payload.requestId.value_or(payload.sessionId.value_or("(none)"));
        if (nextAnswer_ < options_.answers.size()) {
            sleepFor(options_.delaySeconds);
            if (stopRequested != 0) return std::nullopt;
            return options_.answers[nextAnswer_++];
        }
        if (!inputOpen_) {
            say("companion: left " + request + " unanswered (no scripted answers left, no input)\n");
            return std::nullopt;
        }
        const std::string session = payload.sessionId.value_or("");
        bool withdrawn = false;
        bool gone = false;
        auto abandon = [&] { return (withdrawn = takeDismissFor(inbox_, session)) || (gone = hookGone(payload)); };
        auto ask = [&](const std::string& prompt, std::string& line) {
            say(prompt);
            const LineResult result = readTerminalLine(line, abandon);
            // A terminal echoes what was typed; piped input is echoed here so the transcript reads the same.
            if (result == LineResult::line && !echoed_) say(line + "\n");
            if (result == LineResult::closed) {
                inputOpen_ = false;
                say("\ncompanion: input closed; " + request + " left unanswered\n");
            }
            if (withdrawn) say("\ncompanion: withdrawn: session " + session + " (prompt abandoned)\n");
            if (gone) say("\ncompanion: dropped " + request + ": its hook is gone (prompt abandoned)\n");
            return result == LineResult::line;
        };

        std::string line;
        const auto permission =
            payload.status == "permission" && body ? Companion::parsePermission(*body) : std::nullopt;
        if (permission) {
            if (!ask("choice> ", line)) return std::nullopt;
            return Companion::replyFromLine(permission->choices, line);
        }
        const auto questions = payload.status == "question" && body ? Companion::parseQuestions(*body) : std::nullopt;
        if (!questions || questions->empty()) {
            return ask("answer> ", line) ? std::optional<std::string>(line) : std::nullopt;
        }
        std::vector<std::vector<std::string>> answers;
        for (std::size_t q = 0; q < questions->size(); ++q) {
            if (!ask("question " + std::to_string(q + 1) + "> ", line)) return std::nullopt;
            answers.push_back(Companion::answerFromLine((*questions)[q], line));
        }
        return Companion::encodeAnswers(answers);
    }

    Options options_;
    std::string inbox_;
    std::size_t nextAnswer_ = 0;
    long answered_ = 0;
    bool inputOpen_ = standardInputCanAnswer();
    bool echoed_ = ::isatty(STDIN_FILENO) != 0;
};

int run(int argc, char** argv) {
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    struct sigaction action{};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);  // no SA_RESTART: waits end at once
    ::sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // a reader that went away is no reason to die mid-write

    const std::string inbox = AgentHook::inboxDirectory();
    std::string error;
    if (inbox.empty() || !platform::createDirectories(inbox, &error)) {
        note("cannot create the inbox " + inbox + ": " + (inbox.empty() ? "no home directory" : error));
        return 1;
    }
    std::string busNote;
    Companion::BusName busName(options.busName.c_str(), busNote);
    if (!busNote.empty()) note(busNote);
    say("companion: watching " + inbox + (busName.owned() ? " (owning " + options.busName + ")\n" : "\n"));

    Responder responder(std::move(options), inbox);
    while (stopRequested == 0) {
        busName.pump();
        for (const std::string& path : Companion::payloadFilesInArrivalOrder(inbox)) {
            if (stopRequested != 0) break;
            if (responder.handle(path)) return 0;
        }
        sleepFor(kPollSeconds);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "companion: unexpected failure: %s\n", error.what());
    } catch (...) {
        std::fprintf(stderr, "companion: unexpected failure\n");
    }
    return 1;
}
