#!/usr/bin/env bash
# Shows two round trips end to end: a Claude Code event goes into the hook, the
# stand-in app (agent-hook-companion) sees the request and replies, and the hook
# turns the reply into a decision on standard output. First a Stop event
# answered with the next instruction, then a permission request for a command
# answered "allow". Uses a throw-away HOME so the real app's inbox is never touched.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

scripts/setup.sh
cmake -B build -S . >/dev/null
cmake --build build -j2 --target agent-hook agent-hook-companion >/dev/null

work=$(mktemp -d)
session="demo-$$-$RANDOM"
companion_pid=""
stop_companion() {
  if [ -n "$companion_pid" ] && kill -0 "$companion_pid" 2>/dev/null; then
    kill "$companion_pid" 2>/dev/null || true
  fi
  [ -z "$companion_pid" ] || wait "$companion_pid" 2>/dev/null || true
  companion_pid=""
}
cleanup() {
  stop_companion
  rm -rf "$work"
  # Every request file of this run starts with its session id.
  rm -f "/tmp/voxtrel-agent/$session"-*
}
trap cleanup EXIT

export HOME="$work/home"
unset XDG_DATA_HOME
mkdir -p "$HOME" "$work/project"

json_escape() { sed -e 's/\\/\\\\/g' -e 's/"/\\"/g' <<<"$1"; }

# start_companion NAME ANSWER: the stand-in app, answering one request with
# ANSWER, its output in $work/NAME.out and $work/NAME.err.
start_companion() {
  build/agent-hook-companion --answer "$2" --exit-after 1 >"$work/$1.out" 2>"$work/$1.err" &
  companion_pid=$!
  # It says it is watching once the inbox exists and the bus name is settled.
  for _ in $(seq 100); do
    grep -q '^companion: watching' "$work/$1.out" && return 0
    kill -0 "$companion_pid" 2>/dev/null || break
    sleep 0.05
  done
  echo "demo: the companion did not start" >&2
  cat "$work/$1.err" >&2
  exit 1
}

# round_trip NAME TITLE ANSWER EVENT [AGENT]: sends EVENT to `agent-hook AGENT`
# (claude by default) while the companion answers ANSWER, then prints what each
# side saw. Fails when the hook exits with an error or decides nothing.
round_trip() {
  local name=$1 title=$2 answer=$3 event=$4 agent=${5:-claude} status=0
  start_companion "$name" "$answer"
  printf '%s' "$event" | build/agent-hook "$agent" >"$work/$name.decision" 2>"$work/$name.hook.err" || status=$?
  # The hook has its answer by now; a companion still running never got the
  # request, so give it a moment to finish and stop it.
  for _ in $(seq 40); do
    kill -0 "$companion_pid" 2>/dev/null || break
    sleep 0.05
  done
  stop_companion

  echo "######## $title ########"
  echo
  echo "== Event sent to the hook =="
  echo "$event"
  echo
  echo "== What the app saw (companion output) =="
  cat "$work/$name.err" "$work/$name.out"
  echo
  echo "== Hook debug log (standard error of agent-hook) =="
  cat "$work/$name.hook.err"
  echo
  echo "== Decision on standard output =="
  cat "$work/$name.decision"
  echo
  echo
  echo "== Exit status: $status =="
  echo
  if [ "$status" -ne 0 ] || [ ! -s "$work/$name.decision" ]; then
    echo "demo: the $name round trip gave no decision" >&2
    exit 1
  fi
}

round_trip stop "1. The agent has finished: Stop, answered with the next instruction" \
  "Great, now add a test for the empty input case." \
  '{"hook_event_name":"Stop","session_id":"'"$session"'","cwd":"'"$(json_escape "$repo")"'","last_assistant_message":"I refactored the parser and all tests pass."}'

round_trip permission "2. The agent wants to run a command: PermissionRequest, answered \"allow\"" \
  "allow" \
  '{"hook_event_name":"PermissionRequest","session_id":"'"$session"'","cwd":"'"$(json_escape "$work/project")"'","tool_name":"Bash","tool_input":{"command":"npm test","description":"Run the tests"},"permission_suggestions":[{"type":"addRules","rules":[{"toolName":"Bash","ruleContent":"npm test:*"}],"behavior":"allow","destination":"localSettings"},{"type":"setMode","mode":"acceptEdits","destination":"session"}]}'

round_trip codex "3. Codex wants to run a command: PermissionRequest, refused in the user's words" \
  "No, publish to the staging registry first." \
  '{"hook_event_name":"PermissionRequest","session_id":"'"$session"'-codex","cwd":"'"$(json_escape "$work/project")"'","permission_mode":"default","tool_name":"Bash","tool_input":{"command":"npm publish","description":"Publish the package"}}' \
  codex

round_trip grok "4. Grok is about to run a command: pre_tool_use, answered \"allow\"" \
  "allow" \
  '{"hookEventName":"pre_tool_use","sessionId":"'"$session"'-grok","cwd":"'"$(json_escape "$work/project")"'","toolName":"run_terminal_command","toolInput":{"command":"make test"}}' \
  grok
