#!/usr/bin/env bash
# Shows one round trip end to end: a Claude Code Stop event goes into the hook,
# the stand-in app (agent-hook-companion) sees the request and replies, and the
# hook turns the reply into a decision on standard output. Uses a throw-away
# HOME so the real app's inbox is never touched.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

scripts/setup.sh
cmake -B build -S . >/dev/null
cmake --build build -j2 --target agent-hook agent-hook-companion >/dev/null

work=$(mktemp -d)
session="demo-$$-$RANDOM"
companion_pid=""
cleanup() {
  if [ -n "$companion_pid" ] && kill -0 "$companion_pid" 2>/dev/null; then
    kill "$companion_pid" 2>/dev/null || true
    wait "$companion_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
  rm -f "/tmp/voxtrel-agent/$session-stop-message.txt" "/tmp/voxtrel-agent/$session-stop-response.txt"
}
trap cleanup EXIT

export HOME="$work/home"
unset XDG_DATA_HOME
mkdir -p "$HOME"

build/agent-hook-companion --answer "Great, now add a test for the empty input case." --exit-after 1 \
  >"$work/companion.out" 2>"$work/companion.err" &
companion_pid=$!

# The companion says it is watching once the inbox exists and the bus name is settled.
for _ in $(seq 100); do
  grep -q '^companion: watching' "$work/companion.out" && break
  kill -0 "$companion_pid" 2>/dev/null || break
  sleep 0.05
done
if ! grep -q '^companion: watching' "$work/companion.out"; then
  echo "demo: the companion did not start" >&2
  cat "$work/companion.err" >&2
  exit 1
fi

json_escape() { sed -e 's/\\/\\\\/g' -e 's/"/\\"/g' <<<"$1"; }
event='{"hook_event_name":"Stop","session_id":"'"$session"'","cwd":"'"$(json_escape "$repo")"'","last_assistant_message":"I refactored the parser and all tests pass."}'

status=0
printf '%s' "$event" | build/agent-hook claude >"$work/decision.out" 2>"$work/hook.err" || status=$?
wait "$companion_pid" 2>/dev/null || true
companion_pid=""

echo "== Event sent to the hook =="
echo "$event"
echo
echo "== What the app saw (companion output) =="
cat "$work/companion.err" "$work/companion.out"
echo
echo "== Hook debug log (standard error of agent-hook) =="
cat "$work/hook.err"
echo
echo "== Decision on standard output: =="
cat "$work/decision.out"
echo
echo
echo "== Exit status: $status =="
