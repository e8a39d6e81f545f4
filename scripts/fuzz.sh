#!/usr/bin/env bash
# Fuzzes every decoder: builds each tests/fuzz/*_fuzzer.cpp as a libFuzzer
# target with clang, AddressSanitizer and UndefinedBehaviorSanitizer in
# build-fuzz/, and runs each for SECONDS (default 5), as many at once as there
# are processors, starting from a copy of its seed corpus
# (tests/fuzz/corpus/<name>/ for <name>_fuzzer), which is replayed first; the
# inputs it finds never land in the repository.
#
# Exits non-zero at the first target that crashes (a sanitizer report, a
# failed check, a time-out or running out of memory), after printing the
# saved input's path and a hex dump of it. Installs clang when it is missing
# (Debian 12: clang-14 and libclang-rt-14-dev, which holds libFuzzer).
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
seconds=${1:-5}
build_dir=build-fuzz

scripts/setup.sh clang-14 libclang-rt-14-dev

# Debug without NDEBUG keeps the JSON library's assertions; -O1 keeps it fast.
cmake -B "$build_dir" -S . -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS=-O1 -DCMAKE_CXX_FLAGS=-O1 \
  -DAGENT_HOOK_FUZZ=ON -DAGENT_HOOK_TESTS=OFF -DAGENT_HOOK_BENCH=OFF >/dev/null
cmake --build "$build_dir" --target agent-hook-fuzzers -j"$(nproc)"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
artifacts="$repo/$build_dir/fuzz-artifacts"
mkdir -p "$artifacts"
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# One target: its seeds replayed, then fuzzed for the rest of its time.
fuzz_target() {
  local fuzzer=$1 name corpus
  name=$(basename "$fuzzer" _fuzzer)
  corpus="$work/$name"
  mkdir -p "$corpus"
  if [ -d "tests/fuzz/corpus/$name" ]; then
    cp -R "tests/fuzz/corpus/$name/." "$corpus/"
  fi
  rm -f "$artifacts/$name"-*
  if ! "$fuzzer" -max_total_time="$seconds" -timeout=10 -artifact_prefix="$artifacts/$name-" \
    -print_final_stats=1 "$corpus" >"$work/$name.log" 2>&1; then
    tail -n 60 "$work/$name.log"
    for input in "$artifacts/$name"-*; do
      [ -e "$input" ] || continue
      echo "fuzz: $name crashed on $input:"
      od -A x -t x1z -v "$input" | head -n 64
    done
    return 1
  fi
  echo "fuzz: $name for ${seconds}s: $(grep -E '^stat::number_of_executed_units' "$work/$name.log" | awk '{ print $2 }') runs"
}

# As many targets at once as there are processors.
failed=0
running=0
for fuzzer in "$build_dir"/fuzz/*_fuzzer; do
  fuzz_target "$fuzzer" &
  running=$((running + 1))
  if [ "$running" -ge "$(nproc)" ]; then
    wait -n || failed=1
    running=$((running - 1))
  fi
done
while [ "$running" -gt 0 ]; do
  wait -n || failed=1
  running=$((running - 1))
done
[ "$failed" -eq 0 ] || { echo "fuzz: a target crashed" >&2; exit 1; }
echo "fuzz: no crash"
