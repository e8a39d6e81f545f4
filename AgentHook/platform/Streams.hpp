// Raw descriptor input and output, unbuffered.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AgentHook::platform {

// Writes all of `bytes` (one write(2) unless the kernel takes less), retrying
// on EINTR. False when the descriptor refuses the bytes.
[[nodiscard]] bool writeAll(int fd, std::string_view bytes);

// Reads `fd` to end of file; nothing when a read fails, or (errno EFBIG)
// when there is more than `limit`.
std::optional<std::string> readAll(int fd, std::size_t limit = SIZE_MAX);

// Waits until `fd` is ready for `events` (or has hung up or failed: the next
// call on it tells which), retrying after signals. False once `deadline` has passed.
bool waitUntilReady(int fd, short events, std::chrono::steady_clock::time_point deadline);

std::string readStandardInput();
// False (errno set) when the reader is gone or the stream is closed.
[[nodiscard]] bool writeStandardOutput(std::string_view bytes);
void writeStandardError(std::string_view bytes);

// Opens the null device on any of the three standard descriptors that is
// closed, so that no file the program opens later takes its number (and
// receives log lines or a decision meant for the agent).
void keepStandardStreamsOpen();

// True when standard output is a socket or a pipe, the only kinds that hang
// up when the reader goes away.
bool standardOutputCanHangUp();

// True when standard output is a socket or pipe whose reader is gone (a
// hang-up or an error); never for a terminal, a file or the null device.
bool standardOutputGone();

}  // namespace AgentHook::platform
