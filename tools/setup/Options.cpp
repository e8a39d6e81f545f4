#include "Options.hpp"

namespace AgentHook::Setup {

const char* const kUsage =
    "usage: agent-hook-setup install|uninstall claude|codex|grok|all [--project DIR] [--hook PATH] [--dry-run]\n"
    "       agent-hook-setup status [claude|codex|grok|all] [--project DIR] [--hook PATH] [--json]\n";

const char* const kHelp =
    "Registers agent-hook with coding agents, and shows what is registered.\n"
    "\n"
    "Commands:\n"
    "  install AGENT     add agent-hook's hooks to the agent's configuration (an older\n"
    "                    agent-hook entry is replaced; the file's other contents stay)\n"
    "  uninstall AGENT   remove agent-hook's hooks, and nothing else\n"
    "  status [AGENT]    what is registered where, whether it will work, and the app's side;\n"
    "                    exit status 1 when something registered is not healthy\n"
    "AGENT is claude (Claude Code), codex (Codex CLI), grok (Grok CLI) or all.\n"
    "\n"
    "Options:\n"
    "  --project DIR     the project's configuration in DIR instead of the user's\n"
    "  --hook PATH       the agent-hook to register (default: the one beside this program)\n"
    "  --dry-run         show the change as a unified diff and write nothing\n"
    "  --json            status for scripts\n"
    "  --help, --version\n"
    "\n"
    "Files: ~/.claude/settings.json, ~/.codex/hooks.json ($CODEX_HOME), ~/.grok/hooks/agent-hook.json\n"
    "($GROK_HOME); with --project, DIR/.claude/settings.json, DIR/.codex/hooks.json and\n"
    "DIR/.grok/hooks/agent-hook.json. A changed file's old bytes are kept in FILE.agent-hook.bak.\n";

namespace {

std::string absolute(const std::string& path, const std::string& workingDirectory) {
    if (!path.empty() && path.front() == '/') return path;
    std::string base = workingDirectory;
    if (base.empty() || base.back() != '/') base += '/';
    return path == "." ? workingDirectory : base + path;
}

ParsedOptions usageError(std::string error) { return ParsedOptions{std::nullopt, std::move(error)}; }

}  // namespace

ParsedOptions parseOptions(const std::vector<std::string>& arguments, const std::string& workingDirectory) {
    Options options;
    std::vector<std::string> words;
    bool help = false, version = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string argument = arguments[i];
        std::optional<std::string> value;
        if (argument.starts_with("--")) {
            if (const std::size_t equals = argument.find('='); equals != std::string::npos) {
                value = argument.substr(equals + 1);
                argument.erase(equals);
            }
        }
        auto takeValue = [&]() -> std::optional<std::string> {
            if (value) return value;
            if (i + 1 < arguments.size()) return arguments[++i];
            return std::nullopt;
        };
        if (argument == "--help" || argument == "-h") {
            help = true;
        } else if (argument == "--version") {
            version = true;
        } else if (argument == "--dry-run" || argument == "--json") {
            if (value) return usageError(argument + " takes no value");
            (argument == "--json" ? options.json : options.dryRun) = true;
        } else if (argument == "--project" || argument == "--hook") {
            const std::optional<std::string> given = takeValue();
            if (!given || given->empty()) return usageError(argument + " needs a value");
            (argument == "--project" ? options.project : options.hookPath) = absolute(*given, workingDirectory);
        } else if (argument.starts_with("-") && argument != "-") {
            return usageError("unknown option " + argument);
        } else {
            words.push_back(argument);
        }
    }
    if (help || version) {
        options.command = help ? Command::help : Command::version;
        return ParsedOptions{options, {}};
    }
    if (words.empty()) return usageError("no command given");
    const std::string& command = words[0];
    if (command == "install") {
        options.command = Command::install;
    } else if (command == "uninstall") {
        options.command = Command::uninstall;
    } else if (command == "status") {
        options.command = Command::status;
    } else {
        return usageError("unknown command " + command);
    }
    const bool isStatus = options.command == Command::status;
    if (words.size() > 2) return usageError("too many arguments");
    if (words.size() < 2 && !isStatus) return usageError(command + " needs an agent");
    const std::string agent = words.size() == 2 ? words[1] : "all";
    if (agent == "all") {
        options.agents = allAgents();
    } else if (const std::optional<Agent> named = agentNamed(agent)) {
        options.agents = {*named};
    } else {
        return usageError("unknown agent " + agent);
    }
    if (isStatus && options.dryRun) return usageError("--dry-run is for install and uninstall");
    if (!isStatus && options.json) return usageError("--json is for status");
    return ParsedOptions{options, {}};
}

}  // namespace AgentHook::Setup
