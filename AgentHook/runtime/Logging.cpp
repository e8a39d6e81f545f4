#include "runtime/Logging.hpp"

#include <unistd.h>

#include "platform/Clock.hpp"
#include "platform/Files.hpp"
#include "platform/Streams.hpp"
#include "text/Utf8.hpp"

namespace AgentHook {

std::string formatLogLine(std::string_view message) {
    std::string line;
    line.reserve(message.size() + 40);
    line.append("[").append(platform::isoTimestampUtc()).append("] [");
    line.append(std::to_string(::getpid())).append("] ");
    line.append(message).push_back('\n');
    return line;
}

void logTo(std::string_view directory, std::string_view message) {
    const std::string line = formatLogLine(message);
    platform::writeStandardError(line);
    const std::string path = std::string(directory) + "/debug.log";
    // The directory nearly always exists; create it only when the append fails.
    if (std::string ignored;
        !platform::appendToFile(path, line) && platform::makePrivateDirectory(std::string(directory), &ignored)) {
        // Logging never fails its caller: a line the file refuses is on standard error.
        static_cast<void>(platform::appendToFile(path, line));
    }
}

void log(std::string_view message) { logTo(kScratchDirectory, message); }

std::string inputRecord(std::string_view bytes) {
    std::string record = "Input (" + std::to_string(bytes.size()) + " bytes): ";
    if (text::isValidUtf8(bytes)) {
        record.append(text::characterPrefix(bytes, 500));
    } else {
        record.append("(binary)");
    }
    return record;
}

std::string readAndLogStdin() {
    std::string bytes = platform::readStandardInput();
    log(inputRecord(bytes));
    return bytes;
}

}  // namespace AgentHook
