// Byte scans that take many bytes per instruction: AVX2 where the processor
// has it (chosen once per process at the first call), else the compilers'
// portable 16-byte vectors (SSE2 on x86-64, NEON on arm64). Both give the
// same answers; callers never see which one ran. Pure functions: they read
// only the bytes their contract names and cannot fail.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace AgentHook::text {

// UTF-8 is checked in blocks of this many bytes.
constexpr std::size_t kUtf8BlockBytes = 16;

// True when no UTF-8 error shows in the `blocks` blocks at `at`: each byte is
// judged by the three before it, which must be readable (the end of the
// previous blocks, or zeros at the start). A sequence still open at the end
// shows as an error in the bytes that follow, so a stream's last blocks are
// followed by a block of zeros.
bool utf8BlocksValid(const unsigned char* at, std::size_t blocks);

// A few bytes at fixed distances from a position. It holds at a position
// when every byte stands at its distance there, inside the text; a probe
// past the end never matches. Unused probes repeat a used one.
struct BytePattern {
    struct Probe {
        char byte = 0;
        std::size_t distance = 0;
    };
    std::array<Probe, 3> probes;
};

// The first position at or after `from` where `first` or `second` holds and
// `confirm` (the caller's closer test, given the whole text) returns true;
// npos when there is none. Positions are confirmed in order, each once.
using ConfirmPosition = bool (*)(std::string_view text, std::size_t at);
std::size_t findEitherPattern(std::string_view text, std::size_t from, const BytePattern& first,
                              const BytePattern& second, ConfirmPosition confirm);

}  // namespace AgentHook::text
