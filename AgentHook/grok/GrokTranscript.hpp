// Reading Grok's session files to recover the last assistant reply when the
// Stop event carries none. Grok records each session under
// <Grok home>/sessions/<group>/<session id>/ in two line-oriented JSON logs:
// "chat_history.jsonl" (one message per line) and "updates.jsonl" (streamed
// notifications, the reply arriving as chunks). Grok home is GROK_HOME when
// set and not empty, else ~/.grok.
//
// Only the tail of each file is read (64 KiB of the history, 128 KiB of the
// updates), however long the session. Nothing here writes, logs or fails: a
// missing or unreadable file, a tail that is not valid UTF-8 or a line that
// is not the expected JSON all mean "nothing found" (absent or "").
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "text/Json.hpp"

namespace AgentHook::Grok {

inline constexpr std::size_t kChatHistoryTailBytes = 64 * 1024;
inline constexpr std::size_t kUpdatesTailBytes = 128 * 1024;

// The first existing path <sessions root>/<entry>/<sessionId>/<name>, trying
// the root's entries in the order the system lists them. Anything existing
// counts, a directory too.
std::optional<std::string> findSessionFile(const std::string& sessionId, const std::string& name);

// At most the last `maxBytes` bytes of a regular file as UTF-8 text. When the
// file was cut and the bytes hold a line feed, everything up to the first one
// is dropped, so the text starts with a whole line. Nothing when the file
// cannot be read or the bytes are not valid UTF-8 (a cut inside a multi-byte
// character included).
std::optional<std::string> readFileTail(const std::string& path, std::size_t maxBytes);

// The text of a message body (`value` may be null for an absent member): a
// string as it is; for an array of objects only, their string "text" members
// joined without separator; "" for anything else.
std::string extractText(const text::Json* value);

// The last non-empty assistant text in the session's chat history.
std::optional<std::string> lastFromChatHistory(const std::string& sessionId);

// The same, from the text of the history's tail (lines separated by line feeds).
std::optional<std::string> lastFromChatHistoryText(std::string_view tail);

// The reply assembled from the update stream's "agent_message_chunk" lines:
// the chunks of `promptId` when it has non-empty text, else those of the
// prompt whose first chunk came last. The stream is `transcriptPath` when
// something exists there, else the session's "updates.jsonl". "" when none.
std::string lastFromUpdates(const std::string& sessionId, const std::optional<std::string>& promptId,
                            const std::optional<std::string>& transcriptPath);

// The same, from the text of the stream's tail (lines separated by line feeds).
std::string lastFromUpdatesText(std::string_view tail, const std::optional<std::string>& promptId);

// The chat history, then the update stream and the chat history again, up to
// three times with `pause(0.04)` before the second and third try: the hook can
// run before Grok has finished writing. "" when nothing is found.
std::string lastAssistantMessage(const std::string& sessionId, const std::optional<std::string>& promptId,
                                 const std::optional<std::string>& transcriptPath,
                                 const std::function<void(double seconds)>& pause);

// The same, pausing with a real sleep.
std::string lastAssistantMessage(const std::string& sessionId, const std::optional<std::string>& promptId,
                                 const std::optional<std::string>& transcriptPath);

}  // namespace AgentHook::Grok
