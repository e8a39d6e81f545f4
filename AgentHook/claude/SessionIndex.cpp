#include "claude/SessionIndex.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include "platform/Files.hpp"
#include "text/Json.hpp"

namespace AgentHook::Claude {
namespace {

// The bytes of a file in order, a chunk at a time, as an input iterator for
// the JSON parser. A failed read ends the bytes and is remembered.
struct ChunkedBytes {
    const platform::ReadOnlyFile& file;
    std::vector<char> buffer;
    std::size_t position = 0;
    std::size_t filled = 0;
    std::uint64_t offset = 0;
    bool failed = false;

    bool available() {
        if (position < filled) return true;
        const std::optional<std::size_t> read = file.readAt(offset, buffer.data(), buffer.size());
        failed = !read;
        position = 0;
        filled = read.value_or(0);
        offset += filled;
        return filled > 0;
    }
};

class FileBytes {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    FileBytes() = default;  // the end
    explicit FileBytes(ChunkedBytes& source) : source_(source.available() ? &source : nullptr) {}
    reference operator*() const { return source_->buffer[source_->position]; }
    FileBytes& operator++() {
        ++source_->position;
        if (!source_->available()) source_ = nullptr;
        return *this;
    }
    bool operator==(const FileBytes& other) const { return source_ == other.source_; }

private:
    ChunkedBytes* source_ = nullptr;
};

// Keeps only what the lookup needs, with the meaning a parsed tree would
// give: the document must be an object whose "entries" (the last member of
// that name) is an array of objects only; the answer is the first entry
// whose "sessionId" is the session's and whose "summary" is a non-empty
// string (of an entry's members too, the last of a name counts).
struct IndexSummaryReader {
    using Json = text::Json;
    enum class Field { other, sessionId, summary };

    const std::string& sessionId;
    int depth = 0;               // containers open around the next value
    bool entriesNext = false;    // the next value is the top object's "entries"
    bool inEntries = false;      // directly inside the entries array
    bool inEntry = false;        // directly inside one of its objects
    bool entriesUsable = false;  // "entries" seen, an array, objects only so far
    Field field = Field::other;
    std::optional<std::string> entrySessionId = std::nullopt;
    std::optional<std::string> entrySummary = std::nullopt;
    std::optional<std::string> summary = std::nullopt;

    // A value begins at the current depth; `text` holds it when it is a string.
    bool value(bool isObject, bool isArray, std::string* text) {
        if (depth == 0) return isObject;  // anything else has no entries: stop
        if (depth == 1 && entriesNext) {
            entriesNext = false;
            entriesUsable = isArray;
            inEntries = isArray;
            summary.reset();
        } else if (depth == 2 && inEntries) {
            if (!isObject) entriesUsable = false;
            inEntry = isObject;
            entrySessionId.reset();
            entrySummary.reset();
        } else if (depth == 3 && inEntry && field != Field::other) {
            std::optional<std::string>& target = field == Field::sessionId ? entrySessionId : entrySummary;
            target = text != nullptr ? std::optional<std::string>(std::move(*text)) : std::nullopt;
        }
        return true;
    }
    bool open(bool isObject) {
        const bool go = value(isObject, !isObject, nullptr);
        ++depth;
        return go;
    }
    bool close() {
        --depth;
        if (depth == 2 && inEntry) {
            inEntry = false;
            if (!summary && entrySessionId == sessionId && entrySummary && !entrySummary->empty()) {
                summary = std::move(entrySummary);
            }
        } else if (depth == 1 && inEntries) {
            inEntries = false;
        }
        return true;
    }

    bool null() { return value(false, false, nullptr); }
    bool boolean(bool) { return value(false, false, nullptr); }
    bool number_integer(Json::number_integer_t) { return value(false, false, nullptr); }
    bool number_unsigned(Json::number_unsigned_t) { return value(false, false, nullptr); }
    bool number_float(Json::number_float_t, const Json::string_t&) { return value(false, false, nullptr); }
    bool string(Json::string_t& text) { return value(false, false, &text); }
    bool binary(Json::binary_t&) { return value(false, false, nullptr); }
    bool start_object(std::size_t) { return open(true); }
    bool start_array(std::size_t) { return open(false); }
    bool end_object() { return close(); }
    bool end_array() { return close(); }
    bool key(Json::string_t& name) {
        if (depth == 1) entriesNext = name == "entries";
        if (depth == 3 && inEntry) {
            field = name == "sessionId" ? Field::sessionId : name == "summary" ? Field::summary : Field::other;
        }
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) { return false; }

    std::optional<std::string> result() const { return entriesUsable ? summary : std::nullopt; }
};

}  // namespace

std::optional<std::string> indexSummary(std::string_view index, const std::string& sessionId) {
    IndexSummaryReader reader{sessionId};
    if (!text::Json::sax_parse(index.begin(), index.end(), &reader)) return std::nullopt;
    return reader.result();
}

std::optional<std::string> indexSummaryOfFile(const std::string& path, const std::string& sessionId,
                                              const TranscriptLimits& limits) {
    const std::optional<platform::ReadOnlyFile> file = platform::ReadOnlyFile::open(path);
    if (!file || file->size() > limits.longestLine) return std::nullopt;
    ChunkedBytes bytes{*file, std::vector<char>(std::max<std::size_t>(limits.chunk, 1))};
    IndexSummaryReader reader{sessionId};
    const bool parsed = text::Json::sax_parse(FileBytes(bytes), FileBytes(), &reader);
    if (!parsed || bytes.failed) return std::nullopt;
    return reader.result();
}

}  // namespace AgentHook::Claude
