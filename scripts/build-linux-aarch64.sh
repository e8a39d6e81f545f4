#!/usr/bin/env bash
# Cross-builds agent-hook, agent-hook-setup and the stand-in app for Linux
# aarch64 (static, like the x86_64 programs) with Debian's cross compiler,
# and, unless --no-tests, builds and runs the whole test suite under
# qemu-user (the kernel hands aarch64 programs to qemu through binfmt_misc,
# registered here when it is not yet).
#
#   scripts/build-linux-aarch64.sh [--no-tests] [OUT_DIR]     (default: build-aarch64)
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
tests=ON
if [ "${1:-}" = --no-tests ]; then
  tests=OFF
  shift
fi
out=${1:-build-aarch64}
tools="$repo/build-tools"

"$repo/scripts/cross-setup.sh"

# The end-to-end tests start the aarch64 programs themselves: the kernel must
# know to run them through qemu.
binfmt=/proc/sys/fs/binfmt_misc
if [ "$tests" = ON ] && [ ! -e "$binfmt/qemu-aarch64" ]; then
  [ -e "$binfmt/register" ] || mount -t binfmt_misc binfmt_misc "$binfmt"
  cat /usr/lib/binfmt.d/qemu-aarch64.conf >"$binfmt/register"
fi

export PKG_CONFIG_LIBDIR=/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig
cmake -S "$repo" -B "$out" -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/aarch64-linux-gnu.cmake" \
  -DAGENT_HOOK_HEADERS="$tools/headers" -DAGENT_HOOK_GTEST_SOURCE=/usr/src/googletest \
  -DAGENT_HOOK_BENCH=OFF -DAGENT_HOOK_TESTS="$tests" -DAGENT_HOOK_WERROR=ON -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$out" -j"$(nproc)"
if [ "$tests" = ON ]; then
  ctest --test-dir "$out" --output-on-failure -j"$(nproc)" -LE real-agent
fi
