#include "claude/StopBlocks.hpp"

#include <charconv>

#include "platform/AtomicFile.hpp"
#include "platform/Files.hpp"
#include "runtime/Logging.hpp"

namespace AgentHook::Claude {
namespace {

std::string countFile(const std::string& directory, const std::string& sessionId) {
    return directory + "/" + sessionId + "-stop-blocks";
}

}  // namespace

int stopBlocksInARow(const std::string& directory, const std::string& sessionId, bool stopHookActive) {
    const std::string path = countFile(directory, sessionId);
    if (!stopHookActive) {
        platform::removeFile(path);
        return 0;
    }
    const std::optional<std::string> text = platform::readFile(path);
    int count = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), count).ec != std::errc() || count < 0) {
        return 0;
    }
    return count;
}

void recordStopBlock(const std::string& directory, const std::string& sessionId, int count) {
    const std::string path = countFile(directory, sessionId);
    if (std::string error; !platform::writeFileAtomically(path, std::to_string(count), &error)) {
        log("Stop: cannot record the block count in " + path + ": " + error);
    }
}

}  // namespace AgentHook::Claude
