#!/usr/bin/env bash
# Runs agent-hook inside the real Codex CLI, against a local mock of the
# model's API, with the stand-in app answering by script.
#
#   run-codex-scenario.sh SCENARIO CODEX AGENT_HOOK COMPANION SETUP
#
# SCENARIO is one of stop (a finished turn goes to the app and the spoken reply
# comes back as the next instruction), or allow, deny, none (the model asks to
# run a command outside the sandbox under --approve-for-me and the app answers
# "allow", a spoken refusal, or nothing at all, which leaves the decision to
# Codex). Exits 0 when the outcome reached the model, 1 when not, 77 (skip) when
# Codex, tmux or node is missing. Set REAL_AGENT_KEEP=1 to keep the work
# directory for a look afterwards.
#
# SETUP (agent-hook-setup) registers AGENT_HOOK with `install codex` in the
# test's private home (a recorder of every event is added beside its entries),
# and the hooks are trusted the way install's message says: on the review
# screen of an interactive codex, driven through a private tmux server. The
# scenario itself runs in `codex exec`.
set -u

scenario=${1:-}
codex=${2:-}
hook=${3:-}
companion=${4:-}
setup=${5:-}

agent_name="Codex"
tmux_target=real-codex
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
mock="$here/mock-codex-model.mjs"

case "$scenario" in
  stop | allow | deny | none) ;;
  *) echo "usage: run-codex-scenario.sh stop|allow|deny|none CODEX AGENT_HOOK COMPANION SETUP" >&2; exit 2 ;;
esac
check_programs "$codex"
codex=$(readlink -f "$codex")

make_work_dir real-codex
mkdir -p "$home/.codex"

# Hook processes of this hook binary working in our project: the session id
# is known only once codex exec has started.
leftover_hooks() {
  local dir
  for dir in /proc/[0-9]*; do
    hook_running "${dir#/proc/}" && [ "$(readlink "$dir/cwd" 2>/dev/null)" = "$project" ] && echo "${dir#/proc/}"
  done
}

# agent_pid is codex exec, in a process group of its own (the node launcher
# and the native binary); its hooks run in sessions of their own.
stop_agent() { [ -n "$agent_pid" ] && kill -- "-$agent_pid" 2>/dev/null; }
exec_ended() { process_gone "$agent_pid"; }
tui_ended() { [ "$(pane_format '#{pane_dead}')" = 1 ]; }

agent_diagnostics() {
  echo "===== the interactive codex that trusted the hooks ====="
  pane_history
  echo "===== codex exec: standard error ====="
  cat "$work/exec.err" 2>/dev/null
  echo "===== codex exec: standard output ====="
  cat "$work/exec.out" 2>/dev/null
}

start_session_bus
start_mock

# The app's answers to the scenario's requests, in turn.
case "$scenario" in
  stop) answers=("Please also add a test." "") ;;
  allow) answers=("allow" "") ;;
  deny) answers=("No, use the staging database" "") ;;
  # An empty response is no answer: the hook must stay silent.
  none) answers=("" "") ;;
esac
start_companion

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

# agent-hook registered as a user does it (CODEX_HOME is this home's .codex,
# where Codex looks without it), then the recorder added beside agent-hook's
# entries for every event, the way a user's own hooks stand beside them.
hooks_file="$home/.codex/hooks.json"
install_hook codex "$hooks_file"
node - "$hooks_file" "$recorder" <<'EOF' || fail "could not add the recorder beside agent-hook in $hooks_file"
const fs = require('fs');
const [file, command] = process.argv.slice(2);
const config = JSON.parse(fs.readFileSync(file, 'utf8'));
for (const event of ['Stop', 'UserPromptSubmit', 'PermissionRequest']) {
  if (!Array.isArray(config.hooks?.[event])) throw new Error(`install registered nothing for ${event}`);
  config.hooks[event].push({ hooks: [{ type: 'command', command }] });
}
fs.writeFileSync(file, JSON.stringify(config, null, 2) + '\n');
EOF
expect_healthy_status codex
handlers=6

# Codex's own environment: this home, no account, and the mock as the proxy
# for everything not on 127.0.0.1, so that nothing leaves the machine.
proxy="http://127.0.0.1:$port"
write_launcher "$work/codex.sh" -u CODEX_HOME -u OPENAI_API_KEY -u OPENAI_BASE_URL \
  HOME="$home" PATH="$work/bin:$PATH" REAL_AGENT_MOCK_KEY=mock \
  HTTPS_PROXY="$proxy" HTTP_PROXY="$proxy" ALL_PROXY="$proxy" NO_PROXY=127.0.0.1,localhost \
  "$codex"

# Trusting the hooks as the README says: start codex once and accept "Trust
# all and continue". --no-daemon keeps it from leaving a background server.
start_pane "$work/codex.sh --no-daemon"
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
agent_pid=$!
session_known() { session=$(sed -n 's/^session id: //p' "$work/exec.err" | head -n 1); [ -n "$session" ]; }
wait_for "codex exec to start its session" session_known || fail "codex exec printed no session id"
wait_for "codex exec to finish" exec_ended || fail "codex exec did not finish"
wait "$agent_pid"
exec_status=$?
agent_pid=""
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
    marker_written || fail "the command did not run: no marker file"
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
    marker_written || fail "the reviewed command did not run: $output"
    expect_outcomes PermissionRequest 2 0
    ;;
esac
# The closing Stop event's empty answer must leave the turn alone.
[ "$scenario" = stop ] || expect_outcomes Stop 2 0

# The closing Stop event's empty answer must have ended the hook without a decision.
all_answered || fail "the app did not get every request it had an answer for"
wait_for "the hooks to end" no_hook_running || fail "a hook is still running after codex exec finished"

echo "hook runs codex exec reported:"
grep '^hook: .* [A-Z][a-z]*$' "$work/exec.err" | sort | uniq -c
pass
