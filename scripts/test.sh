#!/usr/bin/env bash
# Builds the program, the stand-in app and the tests in build/ (or the
# directory given as the first argument, with any further CMake options after
# it), and runs the whole test suite with ctest.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
build_dir=${1:-build}
shift || true

scripts/setup.sh
cmake -B "$build_dir" -S . -DAGENT_HOOK_TESTS=ON "$@" >/dev/null
cmake --build "$build_dir" -j"$(nproc)"
ctest --test-dir "$build_dir" --output-on-failure -j"$(nproc)"
