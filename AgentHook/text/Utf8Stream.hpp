// Whether a byte stream is UTF-8 throughout, checked as it arrives in pieces
// of any size (a file read a chunk at a time), at about the cost of reading
// it. Pieces may cut a character anywhere; the answer is that of checking
// all the bytes at once. Invalid input is an answer (false), never an error.
#pragma once

#include <cstddef>
#include <string_view>

#include "text/Simd.hpp"

namespace AgentHook::text {

// The stream's state: the three bytes before the next block, then the bytes
// of a block not yet full. Starts as an empty, valid stream.
struct Utf8Stream {
    unsigned char staged[3 + kUtf8BlockBytes] = {};
    std::size_t filled = 0;
    bool valid = true;
};

// Checks the next piece; once an error is seen, later pieces are not looked at.
void feedUtf8(Utf8Stream& stream, std::string_view piece);

// True when everything fed was UTF-8, a last character cut short counting as
// an error. The stream takes no more pieces afterwards.
bool finishUtf8(Utf8Stream& stream);

}  // namespace AgentHook::text
