#!/usr/bin/env bash
# Runs agent-hook inside the real Codex CLI, against a local mock of the
# model's API, with the stand-in app answering by script.
#
#   run-codex-scenario.sh SCENARIO CODEX AGENT_HOOK COMPANION
#
# SCENARIO is one of stop (a finished turn goes to the app and the spoken reply
# comes back as the next instruction), or allow, deny, none (the model asks to
# run a command outside the sandbox under --approve-for-me and the app answers
# "allow", a spoken refusal, or nothing at all, which leaves the decision to
# Codex). Exits 0 when the outcome reached the model, 1 when not, 77 (skip) when
# Codex, tmux or node is missing. Set REAL_AGENT_KEEP=1 to keep the work
# directory for a look afterwards.
#
# The hooks are registered as the README says and trusted the way it says: on
# the review screen of an interactive codex, driven through a private tmux
# server. The scenario itself runs in `codex exec`.
set -u

scenario=${1:-}
codex=${2:-}
hook=${3:-}
companion=${4:-}

if [ ! -x "$codex" ]; then
  echo "SKIP: Codex CLI is not installed at ${codex:-(no path given)}; scripts/real-agent.sh installs the pinned version and runs these tests"
  exit 77
fi
for tool in tmux node; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "SKIP: $tool is not installed; scripts/real-agent.sh installs it"
    exit 77
  fi
done
case "$scenario" in
  stop | allow | deny | none) ;;
  *) echo "usage: run-codex-scenario.sh stop|allow|deny|none CODEX AGENT_HOOK COMPANION" >&2; exit 2 ;;
esac
for program in "$hook" "$companion"; do
  if [ ! -x "$program" ]; then
    echo "FAIL: $program is not built" >&2
    exit 1
  fi
done
# Codex runs in the project directory: every path must stand alone.
codex=$(readlink -f "$codex")
hook=$(readlink -f "$hook")
companion=$(readlink -f "$companion")

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
mock="$here/mock-codex-model.mjs"
wait_seconds=${REAL_AGENT_WAIT:-60}
scratch=/tmp/voxtrel-agent

work=$(mktemp -d "${TMPDIR:-/tmp}/real-codex-$scenario.XXXXXX")
home="$work/home"
project="$work/project"
tmux_socket="$work/tmux.sock"
mkdir -p "$home/.codex" "$project" "$work/events" "$work/bin"

mock_pid=""
companion_pid=""
bus_pid=""
exec_pid=""
session=""

# Hook processes of this hook binary working in our project. Codex does not
# end a waiting hook when it exits itself, so a failed run would otherwise
# leave one polling for half an hour.
leftover_hooks() {
  local dir
  for dir in /proc/[0-9]*; do
    [ "$(readlink "$dir/exe" 2>/dev/null)" = "$hook" ] && [ "$(readlink "$dir/cwd" 2>/dev/null)" = "$project" ] &&
      echo "${dir#/proc/}"
  done
}

# The hook's log as written since this test began: it holds other tests'
# lines too, and process ids come round again.
log_start=$(stat -c %s "$scratch/debug.log" 2>/dev/null || echo 0)
new_log() { tail -c +"$((log_start + 1))" "$scratch/debug.log" 2>/dev/null; }

# The process id of each hook log line that mentions this session.
session_log_pids() {
  [ -n "$session" ] || return 0
  new_log | grep -F "$session" | sed -n 's/^\[[^]]*\] \[\([0-9]*\)\].*/\1/p' | sort -u
}

# Every log line of these processes.
hook_log_of() {
  local pids
  pids=$(printf '%s\n' "$@" | paste -sd'|')
  [ -n "$pids" ] && new_log | grep -E "^\[[^]]*\] \[($pids)\] "
}

stop_process() {
  local pid=$1
  [ -n "$pid" ] || return 0
  kill "$pid" 2>/dev/null || return 0
  wait "$pid" 2>/dev/null
}

# Gone, or a zombie nobody has reaped yet.
process_gone() {
  [ ! -e "/proc/$1" ] || [ "$(sed 's/.*) //' "/proc/$1/stat" 2>/dev/null | cut -c1)" = Z ]
}
no_hook_running() { [ -z "$(leftover_hooks)" ]; }
exec_ended() { process_gone "$exec_pid"; }

cleanup() {
  tmux -S "$tmux_socket" kill-server 2>/dev/null
  # codex exec runs in a process group of its own (the node launcher and the
  # native binary); its hooks run in sessions of their own.
  [ -n "$exec_pid" ] && kill -- "-$exec_pid" 2>/dev/null
  local pid
  for pid in $(leftover_hooks); do kill "$pid" 2>/dev/null; done
  wait_within 5 "Codex and the hooks to exit" eval '{ [ -z "$exec_pid" ] || exec_ended; } && no_hook_running' >/dev/null
  stop_process "$companion_pid"
  stop_process "$mock_pid"
  stop_process "$bus_pid"
  [ -n "$session" ] && rm -f "$scratch/$session"-*
  if [ "${REAL_AGENT_KEEP:-0}" = 1 ]; then
    echo "kept $work (session ${session:-unknown})"
  else
    rm -rf "$work"
  fi
}
trap cleanup EXIT
trap 'exit 1' INT TERM

now_ms() { date +%s%3N; }

# Polls a command every twentieth of a second for at most SECONDS.
wait_within() {
  local limit=$1 what=$2
  shift 2
  local deadline=$(($(now_ms) + limit * 1000))
  until "$@"; do
    if [ "$(now_ms)" -ge "$deadline" ]; then
      echo "timed out after ${limit}s waiting for $what"
      return 1
    fi
    sleep 0.05
  done
}
wait_for() { wait_within "$wait_seconds" "$@"; }

tmux_keys() { tmux -S "$tmux_socket" send-keys -t real-codex "$@"; }
screen() { tmux -S "$tmux_socket" capture-pane -p -t real-codex 2>/dev/null; }
screen_shows() { screen | grep -qF -- "$1"; }
tui_ended() { [ "$(tmux -S "$tmux_socket" display-message -p -t real-codex '#{pane_dead}' 2>/dev/null)" = 1 ]; }

diagnostics() {
  echo "===== the interactive codex that trusted the hooks ====="
  tmux -S "$tmux_socket" capture-pane -p -S -200 -t real-codex 2>/dev/null | sed -e :a -e '/^\n*$/{$d;N;ba' -e '}'
  echo "===== codex exec: standard error ====="
  cat "$work/exec.err" 2>/dev/null
  echo "===== codex exec: standard output ====="
  cat "$work/exec.out" 2>/dev/null
  echo "===== requests the mock model got ====="
  node -e '
    const fs = require("fs");
    for (const line of fs.readFileSync(process.argv[1], "utf8").split("\n").filter(Boolean)) {
      const entry = JSON.parse(line);
      const body = entry.body ?? {};
      const review = body.text?.format?.schema?.properties?.outcome !== undefined;
      console.log(`${entry.time} ${entry.method} ${entry.url}${review ? " (approval review)" : ""}`);
      if (!Array.isArray(body.input)) continue;
      // What this request added after the instructions and the environment.
      for (const item of body.input.slice(2).filter((item) => item.role !== "developer").slice(-4)) {
        const content = item.content ?? item.output ?? item.arguments ?? "";
        console.log(`  ${item.type} ${item.role ?? ""} ${JSON.stringify(content).slice(0, 400)}`);
      }
    }' "$work/mock.log" 2>&1
  echo "===== companion ====="
  cat "$work/companion.out" "$work/companion.err" 2>/dev/null
  echo "===== events Codex sent to its hooks ====="
  local event
  for event in "$work"/events/*.json; do
    [ -f "$event" ] && { cat "$event"; echo; }
  done
  echo "===== hook log ($scratch/debug.log, this session's processes) ====="
  local pids
  mapfile -t pids < <(session_log_pids)
  hook_log_of "${pids[@]}" | tail -n 80
  echo "===== mock model output ====="
  cat "$work/mock.out" 2>/dev/null
}

fail() {
  echo "FAIL ($scenario): $*"
  diagnostics
  exit 1
}

# The hook sees the stand-in app as running through a private session bus; a
# wake-up URL, should the bus be missing, goes to a no-op xdg-open.
printf '#!/bin/sh\nexit 0\n' >"$work/bin/xdg-open"
chmod +x "$work/bin/xdg-open"
unset DBUS_SESSION_BUS_ADDRESS XDG_DATA_HOME
export XDG_RUNTIME_DIR="$work"
if command -v dbus-daemon >/dev/null 2>&1; then
  dbus-daemon --session --nofork --address="unix:path=$work/bus" --print-address=1 >"$work/bus.address" 2>"$work/bus.err" &
  bus_pid=$!
  wait_for "the session bus" test -s "$work/bus.address" || fail "dbus-daemon did not start: $(cat "$work/bus.err")"
  DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus.address")
  export DBUS_SESSION_BUS_ADDRESS
fi

node "$mock" serve --scenario "$scenario" --log "$work/mock.log" --port-file "$work/port" >"$work/mock.out" 2>&1 &
mock_pid=$!
wait_for "the mock model" test -s "$work/port" || fail "the mock model did not start"
port=$(cat "$work/port")

# The last answer (empty) meets the Stop event after the model's closing
# reply: the hook then leaves the turn alone and nothing is left waiting.
case "$scenario" in
  stop) answers=("Please also add a test." "") ;;
  allow) answers=("allow" "") ;;
  deny) answers=("No, use the staging database" "") ;;
  # An empty response is no answer: the hook must stay silent.
  none) answers=("" "") ;;
esac
companion_args=()
for answer in "${answers[@]}"; do companion_args+=(--answer "$answer"); done
HOME="$home" "$companion" "${companion_args[@]}" >"$work/companion.out" 2>"$work/companion.err" </dev/null &
companion_pid=$!
wait_for "the companion" grep -qs "^companion: watching" "$work/companion.out" || fail "the companion did not start"

# The mock as the model provider. The folder is trusted beforehand, so that the
# hooks review is the only first-run screen; the plugin list, analytics and
# the update check would only reach for the internet.
cat >"$home/.codex/config.toml" <<EOF
model = "mock-model"
model_provider = "mock"
check_for_update_on_startup = false

[model_providers.mock]
name = "Mock"
base_url = "http://127.0.0.1:$port/v1"
wire_api = "responses"
env_key = "REAL_AGENT_MOCK_KEY"

[features]
plugins = false

[tui]
show_tooltips = false

[analytics]
enabled = false

[projects."$project"]
trust_level = "trusted"
EOF

# The README's registration, plus a separate recorder entry per event that
# keeps each input whole (the hook's log cuts it at 500 characters).
node - "'$hook' codex" "$work/events" >"$home/.codex/hooks.json" <<'EOF'
const [command, events] = process.argv.slice(2);
const entry = { hooks: [{ type: 'command', command, timeout: 1860 }] };
const recorder = { hooks: [{ type: 'command', command: `cat > '${events}'/"$(date +%s%N)-$$.json"` }] };
const hooks = {};
for (const event of ['Stop', 'UserPromptSubmit', 'PermissionRequest']) hooks[event] = [entry, recorder];
console.log(JSON.stringify({ hooks }, null, 2));
EOF
handlers=6

# Codex's own environment: this home, no account, and the mock as the proxy
# for everything not on 127.0.0.1, so that nothing leaves the machine.
{
  echo '#!/bin/sh'
  echo "cd '$project' || exit 1"
  printf 'exec env -u CODEX_HOME -u OPENAI_API_KEY -u OPENAI_BASE_URL HOME=%q PATH=%q REAL_AGENT_MOCK_KEY=mock' "$home" "$work/bin:$PATH"
  printf ' HTTPS_PROXY=%q HTTP_PROXY=%q ALL_PROXY=%q NO_PROXY=127.0.0.1,localhost' \
    "http://127.0.0.1:$port" "http://127.0.0.1:$port" "http://127.0.0.1:$port"
  printf ' %q "$@"\n' "$codex"
} >"$work/codex.sh"
chmod +x "$work/codex.sh"

# Trusting the hooks as the README says: start codex once and accept "Trust
# all and continue". --no-daemon keeps it from leaving a background server.
tmux -S "$tmux_socket" -f /dev/null new-session -d -s real-codex -x 160 -y 50 "$work/codex.sh --no-daemon" \; \
  set-option -t real-codex remain-on-exit on || fail "tmux did not start"
# The screen can be drawn before Codex reads keys, and a key sent then is
# lost: each key is sent again every half second until it has taken effect.
press_until() {
  local key=$1
  shift
  local deadline=$(($(now_ms) + wait_seconds * 1000)) next=0
  until "$@"; do
    [ "$(now_ms)" -lt "$deadline" ] || return 1
    if [ "$(now_ms)" -ge "$next" ]; then
      tmux_keys "$key"
      next=$(($(now_ms) + 500))
    fi
    sleep 0.05
  done
}
trusted_count() { grep -c '^trusted_hash = ' "$home/.codex/config.toml"; }
all_trusted() { [ "$(trusted_count)" -ge "$handlers" ]; }
wait_for "the hooks review" screen_shows "Hooks need review" || fail "Codex did not ask to review the new hooks"
press_until 2 screen_shows "› 2. Trust all and continue" || fail "could not select \"Trust all and continue\""
press_until Enter all_trusted || fail "Codex saved trust for $(trusted_count) of $handlers hooks"
wait_for "Codex's prompt" screen_shows "Ask Codex to do anything" || fail "Codex did not reach its prompt after the review"
# The first Ctrl-C only arms the quit.
press_until C-c tui_ended || fail "the interactive codex did not exit on Ctrl-C"

case "$scenario" in
  stop) prompt="Finish the task"; exec_args=() ;;
  # PermissionRequest reaches hooks in codex exec only here.
  *) prompt="Write hi into the file named marker"; exec_args=(--approve-for-me) ;;
esac
setsid "$work/codex.sh" exec --skip-git-repo-check "${exec_args[@]}" "$prompt" </dev/null >"$work/exec.out" 2>"$work/exec.err" &
exec_pid=$!
session_known() { session=$(sed -n 's/^session id: //p' "$work/exec.err" | head -n 1); [ -n "$session" ]; }
wait_for "codex exec to start its session" session_known || fail "codex exec printed no session id"
wait_for "codex exec to finish" exec_ended || fail "codex exec did not finish"
wait "$exec_pid"
exec_status=$?
exec_pid=""
[ "$exec_status" = 0 ] || fail "codex exec exited with status $exec_status"

call_id=$(node "$mock" call-id "$scenario")
tool_output() { node "$mock" tool-output "$work/mock.log" "$call_id" 2>/dev/null; }
json_text() { node -e 'console.log(JSON.parse(process.argv[1]))' "$1"; }
reviews() { node "$mock" reviews "$work/mock.log"; }
# Codex prints "hook: <Event> <Outcome>" on standard error for every hook run
# of an event; the recorder beside agent-hook always completes.
outcomes() { grep -c "^hook: $1 $2\$" "$work/exec.err"; }
expect_outcomes() {
  local event=$1 completed=$2 blocked=$3
  [ "$(outcomes "$event" Completed)" = "$completed" ] && [ "$(outcomes "$event" Blocked)" = "$blocked" ] ||
    fail "Codex reported $event hooks $(outcomes "$event" Completed) times Completed and $(outcomes "$event" Blocked) times Blocked," \
      "expected $completed and $blocked"
}
# The app's request of this status, as the companion printed it.
app_request() {
  awk -v status="$1" '/^=== request / { shown = 0 } /^status: / { shown = ($2 == status) } shown' "$work/companion.out"
}

# An output Codex cannot take (an unknown key, bad JSON) shows up as Failed.
! grep -q '^hook: .* Failed$' "$work/exec.err" || fail "Codex reported a failed hook run: $(grep '^hook: .* Failed$' "$work/exec.err" | sort -u)"

case "$scenario" in
  stop)
    app_request completed | grep -qxF "    I finished the task." || fail "the finished turn's message did not reach the app"
    # Codex wraps a Stop hook's reason in a <hook_prompt> element; inside it
    # the reply must be word for word.
    got_reply=$(node "$mock" user-text "$work/mock.log" | node -e '
      const reply = process.argv[1];
      const texts = require("fs").readFileSync(0, "utf8").split("\n").filter(Boolean).map((line) => JSON.parse(line));
      const found = texts.some((text) => text === reply || new RegExp("^<hook_prompt[^>]*>([\\s\\S]*)</hook_prompt>$").exec(text)?.[1] === reply);
      console.log(found ? "yes" : "no");' "Please also add a test.")
    [ "$got_reply" = yes ] || fail "the spoken reply never reached the model as a user message"
    # Blocked once with the reply, then Completed with no answer; the recorder completes both times.
    expect_outcomes Stop 3 1
    ;;
  allow)
    app_request permission | grep -qxF "details:  echo hi > marker" || fail "the app was not shown the command"
    output=$(tool_output) || fail "the command's result never came back to the model"
    json_text "$output" | grep -qxF "Process exited with code 0" || fail "the command failed: $output"
    [ "$(cat "$project/marker" 2>/dev/null)" = hi ] || fail "the command did not run: no marker file"
    # Allowed by the hook: Codex's own reviewer was never asked.
    [ "$(reviews)" = 0 ] || fail "Codex still ran its automatic approval review"
    expect_outcomes PermissionRequest 2 0
    ;;
  deny)
    output=$(tool_output) || fail "the refused command never came back to the model"
    json_text "$output" | grep -qF "No, use the staging database" || fail "the refusal's words did not reach the model: $output"
    [ ! -e "$project/marker" ] || fail "the refused command ran anyway"
    [ "$(reviews)" = 0 ] || fail "Codex still ran its automatic approval review"
    expect_outcomes PermissionRequest 1 1
    ;;
  none)
    app_request permission | grep -qxF "details:  echo hi > marker" || fail "the app was not shown the command"
    # Undecided by the hook, so Codex asked its own reviewer (which the mock
    # makes allow) and the command ran.
    [ "$(reviews)" -ge 1 ] || fail "Codex did not decide on its own: no automatic approval review"
    output=$(tool_output) || fail "the command's result never came back to the model"
    [ "$(cat "$project/marker" 2>/dev/null)" = hi ] || fail "the reviewed command did not run: $output"
    expect_outcomes PermissionRequest 2 0
    ;;
esac
# The closing Stop event's empty answer must leave the turn alone.
[ "$scenario" = stop ] || expect_outcomes Stop 2 0

# Every scripted answer written: the closing Stop event has been answered too,
# and its empty answer ended the hook without a decision.
[ "$(grep -c '^companion: answered' "$work/companion.out")" -ge "${#answers[@]}" ] ||
  fail "the app did not get every request it had an answer for"
wait_for "the hooks to end" no_hook_running || fail "a hook is still running after codex exec finished"

echo "PASS ($scenario): session $session"
grep '^hook: .* [A-Z][a-z]*$' "$work/exec.err" | sort | uniq -c
[ "${REAL_AGENT_VERBOSE:-0}" = 1 ] && diagnostics
exit 0
