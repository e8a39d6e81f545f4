#!/usr/bin/env bash
# Writes AgentHook/entry/startup-order.txt: the symbols of every function that
# the no-app events of the three agents run, as callgrind sees them, so the
# linker puts them side by side. Run it after a change to what an event does,
# then compare bench/startup-bench before and after.
#
#   bench/startup-order.sh [BUILD_DIR]        (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
command -v valgrind >/dev/null || scripts/setup.sh valgrind
cmake --build "$build" --target agent-hook >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/home"
n=0
run() {  # agent, event JSON
  printf '%s' "$2" >"$work/in.json"
  HOME="$work/home" valgrind --tool=callgrind --demangle=no \
    --callgrind-out-file="$work/cg.$1.$((++n))" "$build/agent-hook" "$1" <"$work/in.json" >/dev/null 2>&1 || true
}
# The events bench/startup-bench times, the rule and the disabled session included.
scratch=/tmp/voxtrel-agent
mkdir -p "$scratch"
: >"$scratch/disabled-order-stop"
printf 'npm ' >"$scratch/order-rule-autoaccept-Bash"
trap 'rm -rf "$work" "$scratch/disabled-order-stop" "$scratch/order-rule-autoaccept-Bash"' EXIT
run claude '{"hook_event_name":"PreToolUse","session_id":"order-1","transcript_path":"/nonexistent","cwd":"/tmp","tool_name":"Bash","tool_input":{"command":"ls"}}'
run claude '{"hook_event_name":"Stop","session_id":"order-stop","cwd":"/tmp","stop_hook_active":false}'
run claude '{"hook_event_name":"PermissionRequest","session_id":"order-rule","cwd":"/tmp","tool_name":"Bash","tool_input":{"command":"npm test"}}'
run codex '{"hook_event_name":"PostToolUse","session_id":"order-2","cwd":"/tmp","tool_name":"Bash","tool_input":{"command":"ls"},"tool_response":{}}'
run grok '{"hook_event_name":"post_tool_use","session_id":"order-3","cwd":"/tmp","tool_name":"bash","tool_input":{}}'

# "fn=(id) name" names a function the first time callgrind mentions it.
cat "$work"/cg.* | sed -nE 's/^c?fn=\([0-9]+\) (.+)$/\1/p' | grep -v '^0x\|^(below' | sort -u \
  >AgentHook/entry/startup-order.txt
wc -l AgentHook/entry/startup-order.txt
