// Grok's session files: the input as the tail of a chat history and of an
// update stream, and as one message body.
#include "FuzzSupport.hpp"
#include "grok/GrokTranscript.hpp"
#include "text/Utf8.hpp"

using namespace AgentHook;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = fuzz::bytesOf(data, size);
    if (const std::optional<text::Json> body = text::parseJson(bytes)) {
        fuzz::require(text::isValidUtf8(Grok::extractText(&*body)), "a message text is UTF-8");
    }

    const std::optional<std::string> answer = Grok::lastFromChatHistoryText(bytes);
    fuzz::require(!answer || !answer->empty(), "an answer from the history is never empty");

    const std::string latest = Grok::lastFromUpdatesText(bytes, std::nullopt);
    const std::string ofPrompt = Grok::lastFromUpdatesText(bytes, std::string("p-42"));
    // The prompt's own chunks when it has some text, else the latest reply.
    fuzz::require(ofPrompt == latest || !ofPrompt.empty(), "an unknown prompt falls back to the latest reply");
    return 0;
}
