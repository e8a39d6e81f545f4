#include "text/Utf8Stream.hpp"

#include <algorithm>
#include <cstring>

namespace AgentHook::text {

namespace {
constexpr std::size_t kBlock = kUtf8BlockBytes;
}

void feedUtf8(Utf8Stream& stream, std::string_view piece) {
    const auto* data = reinterpret_cast<const unsigned char*>(piece.data());
    const std::size_t size = piece.size();
    std::size_t used = 0;
    while (stream.valid && used < size) {
        // Whole blocks are checked where they lie once the three bytes before
        // them are in the same piece; the rest goes through the staging block.
        if (stream.filled == 0 && used >= 3 && size - used >= kBlock) {
            const std::size_t blocks = (size - used) / kBlock;
            stream.valid = utf8BlocksValid(data + used, blocks);
            used += blocks * kBlock;
            std::memcpy(stream.staged, data + used - 3, 3);
            continue;
        }
        const std::size_t take = std::min(kBlock - stream.filled, size - used);
        std::memcpy(stream.staged + 3 + stream.filled, data + used, take);
        stream.filled += take;
        used += take;
        if (stream.filled == kBlock) {
            stream.valid = utf8BlocksValid(stream.staged + 3, 1);
            std::memmove(stream.staged, stream.staged + kBlock, 3);
            stream.filled = 0;
        }
    }
}

// Zeros after the end make a sequence cut short at the end show as one
// followed by ASCII.
bool finishUtf8(Utf8Stream& stream) {
    if (!stream.valid) return false;
    std::memset(stream.staged + 3 + stream.filled, 0, kBlock - stream.filled);
    return utf8BlocksValid(stream.staged + 3, 1);
}

}  // namespace AgentHook::text
