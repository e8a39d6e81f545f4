#!/usr/bin/env bash
# Builds the release program and the benchmarks, runs them all and prints a
# summary of the figures against their targets.
#
#   bench/run.sh [BUILD_DIR]        (default: build)
#
# Exit status 0 when every figure meets its target.
set -u
cd "$(dirname "$0")/.."
build=${1:-build}

cmake -B "$build" -S . -DCMAKE_BUILD_TYPE=Release >/dev/null || exit 2
cmake --build "$build" -j2 --target agent-hook static-baseline startup-bench transcript-bench \
  concurrent-log-bench latency-bench title-bench glob-bench grok-history-bench || exit 2

bin="$build/bench"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0

run() {
  echo
  "$@" | tee -a "$log"
  local code=${PIPESTATUS[0]}
  [ "$code" -eq 0 ] || status=1
}

run "$bin/startup-bench"
run "$bin/transcript-bench"
# The same on 1 GiB, against `wc -l` on the file (a 1 GiB temporary file, removed afterwards).
run "$bin/transcript-bench" --megabytes 1024
run "$bin/concurrent-log-bench"
run "$bin/latency-bench"
echo
"$bin/title-bench" --benchmark_format=console | tee -a "$log"
[ "${PIPESTATUS[0]}" -eq 0 ] || status=1
echo
"$bin/glob-bench" --benchmark_format=console | tee -a "$log"
[ "${PIPESTATUS[0]}" -eq 0 ] || status=1
echo
"$bin/grok-history-bench" --benchmark_format=console | tee -a "$log"
[ "${PIPESTATUS[0]}" -eq 0 ] || status=1

# A rough cross-check with hyperfine; it cannot feed standard input, so it
# times only the usage path (no arguments, exit status 64) against the baseline.
if command -v hyperfine >/dev/null; then
  echo
  hyperfine -N -i --warmup 20 --runs 300 --style basic \
    "$build/agent-hook" "$bin/static-baseline" 2>&1 | grep -v -e '^ *Warning' -e 'non-zero exit code'
fi

title_ms=$(awk '/^latestCustomTitle100MB/ { print $2 }' "$log")
# The slowest of the 1 MB rule-matching benchmarks (all report milliseconds).
glob_worst=$(awk '/^(Glob|PrefixRule|DomainRule|NoRuleMatches)[A-Za-z]*1MB / && $2 + 0 >= max { max = $2 + 0; name = $1 }
  END { if (name != "") print max, name }' "$log")
echo
echo "== summary =="
grep -E '^  (claude|codex|grok)' "$log" | sed 's/^  /startup   /'
grep -E 'work before the wait|peak RSS,' "$log" | sed 's/^  /transcript /'
if [ -n "$title_ms" ]; then
  verdict=$(awk -v ms="$title_ms" 'BEGIN { print (ms < 100 ? "ok" : "MISSED") }')
  [ "$verdict" = ok ] || status=1
  echo "title     latestCustomTitle, 100 MB without a custom title: $title_ms ms (target < 100 ms) $verdict"
fi
if [ -n "$glob_worst" ]; then
  read -r glob_ms glob_name <<<"$glob_worst"
  verdict=$(awk -v ms="$glob_ms" 'BEGIN { print (ms < 10 ? "ok" : "MISSED") }')
  [ "$verdict" = ok ] || status=1
  echo "rules     glob and prefix matching, 1 MB target, slowest ($glob_name): $glob_ms ms (target < 10 ms) $verdict"
fi
awk '/^lastAssistantMessageFrom(History|Updates)100MB / { printf "grok      %s: %s %s (reads only the tails)\n", $1, $2, $3 }' "$log"
grep -E 'target: every line whole' "$log" | sed 's/^  target: /log       64 processes at once: /'
exit $status
