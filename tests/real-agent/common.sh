# What run-scenario.sh (Claude Code) and run-codex-scenario.sh (Codex) share:
# the checks before a run, the work directory, the private session bus, the
# mock model and the stand-in app, bounded waits, the agent's tmux pane, the
# clean-up and what a failure prints.
#
# Sourced once the script has set scenario, hook, companion, setup (the
# agent-hook-setup that registers the hook), mock (its mock model), agent_name
# and tmux_target. The script defines leftover_hooks (the
# hook processes of this run, which clean-up ends) and agent_diagnostics, and
# may redefine stop_agent; it sets agent_pid and session once it knows them.

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
wait_seconds=${REAL_AGENT_WAIT:-60}
scratch=/tmp/voxtrel-agent

mock_pid=""
companion_pid=""
bus_pid=""
# The agent process clean-up waits for, once it has been told to go.
agent_pid=""
session=""

# Skips (77) when the agent at PATH, tmux or node is missing; fails when the
# hook, the companion or agent-hook-setup is not built. The agent runs in the
# project directory, so their paths are made to stand alone.
check_programs() {
  local agent=$1 tool program
  if [ ! -x "$agent" ]; then
    echo "SKIP: $agent_name is not installed at ${agent:-(no path given)}; scripts/real-agent.sh installs the pinned version and runs these tests"
    exit 77
  fi
  for tool in tmux node; do
    if ! command -v "$tool" >/dev/null 2>&1; then
      echo "SKIP: $tool is not installed; scripts/real-agent.sh installs it"
      exit 77
    fi
  done
  for program in "$hook" "$companion" "$setup"; do
    if [ ! -x "$program" ]; then
      echo "FAIL: ${program:-agent-hook-setup} is not built" >&2
      exit 1
    fi
  done
  hook=$(readlink -f "$hook")
  companion=$(readlink -f "$companion")
  setup=$(readlink -f "$setup")
}

# Makes the work directory (named after PREFIX and the scenario): the agent's
# home, the project it works in, the events its hooks got, a bin directory put
# first on its PATH, and the tmux socket. Clean-up removes it on exit.
make_work_dir() {
  work=$(mktemp -d "${TMPDIR:-/tmp}/$1-$scenario.XXXXXX")
  home="$work/home"
  project="$work/project"
  tmux_socket="$work/tmux.sock"
  mkdir -p "$home" "$project" "$work/events" "$work/bin"
  # A hook command of the user's own, added beside agent-hook's entries for
  # every event: it keeps each input whole (the hook's log cuts it at 500
  # characters), a file each.
  recorder="cat > '$work/events'/\"\$(date +%s%N)-\$\$.json\""
  # Where the hook's log stood when this run began: the log holds other
  # tests' lines too, and process ids come round again.
  log_start=$(stat -c %s "$scratch/debug.log" 2>/dev/null || echo 0)
  trap cleanup EXIT
  trap 'exit 1' INT TERM
}

# The hook's log as written since this run began.
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

hook_running() { [ "$(readlink "/proc/$1/exe" 2>/dev/null)" = "$hook" ]; }
no_hook_running() { [ -z "$(leftover_hooks)" ]; }

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

# The agent writes its files while it shuts down, and a hook withdrawing its
# request writes into the inbox: both must be over before the work directory goes.
nothing_left_running() { { [ -z "$agent_pid" ] || process_gone "$agent_pid"; } && no_hook_running; }

# Ends what killing the tmux server does not reach; the script may redefine it.
stop_agent() { :; }

# The agents do not end a waiting hook when they exit themselves, so a failed
# run would otherwise leave one polling for half an hour.
cleanup() {
  tmux_run kill-server 2>/dev/null
  stop_agent
  local pid
  for pid in $(leftover_hooks); do kill "$pid" 2>/dev/null; done
  wait_within 5 "$agent_name and the hooks to exit" nothing_left_running >/dev/null
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

# The agent's terminal: the one pane of a private tmux server, 160 by 50,
# kept on screen after the agent exits.
tmux_run() { tmux -S "$tmux_socket" "$@"; }
start_pane() {
  tmux_run -f /dev/null new-session -d -s "$tmux_target" -x 160 -y 50 "$1" \; \
    set-option -t "$tmux_target" remain-on-exit on || fail "tmux did not start"
}
pane_format() { tmux_run display-message -p -t "$tmux_target" "$1" 2>/dev/null; }
tmux_keys() { tmux_run send-keys -t "$tmux_target" "$@"; }
screen() { tmux_run capture-pane -p -t "$tmux_target" 2>/dev/null; }
screen_shows() { screen | grep -qF -- "$1"; }
# The pane's last 200 lines of history, trailing blank lines left out.
pane_history() {
  tmux_run capture-pane -p -S -200 -t "$tmux_target" 2>/dev/null | sed -e :a -e '/^\n*$/{$d;N;ba' -e '}'
}

# Writes FILE, an executable script that runs `env ARGS... "$@"` in the project.
write_launcher() {
  local file=$1
  shift
  {
    echo '#!/bin/sh'
    echo "cd '$project' || exit 1"
    printf 'exec env'
    printf ' %q' "$@"
    echo ' "$@"'
  } >"$file"
  chmod +x "$file"
}

# agent-hook-setup as the user runs it, in the private home (CODEX_HOME there
# too, GROK_HOME unset), with the hook built for this test.
run_setup() {
  env -u GROK_HOME HOME="$home" CODEX_HOME="$home/.codex" "$setup" "$@" --hook "$hook"
}

# Registers agent-hook with AGENT (claude or codex) by `agent-hook-setup
# install AGENT`; fails unless it succeeds and writes FILE, the configuration
# the agent reads.
install_hook() {
  local agent=$1 file=$2
  run_setup install "$agent" >"$work/install.out" 2>&1 ||
    fail "agent-hook-setup install $agent exited with status $?: $(cat "$work/install.out")"
  [ -s "$file" ] || fail "agent-hook-setup install $agent did not write $file: $(cat "$work/install.out")"
}

# `agent-hook-setup status AGENT` on the configuration the agent will load
# (agent-hook's entries and the user's own beside them) must call it healthy.
expect_healthy_status() {
  local agent=$1
  run_setup status "$agent" >"$work/status.out" 2>&1 ||
    fail "agent-hook-setup status $agent exited with status $? after install: $(cat "$work/status.out")"
}

marker_written() { [ "$(cat "$project/marker" 2>/dev/null)" = hi ]; }

# Every scripted answer written: the closing Stop event has been answered too.
all_answered() { [ "$(grep -c '^companion: answered' "$work/companion.out")" -ge "${#answers[@]}" ]; }

diagnostics() {
  agent_diagnostics
  echo "===== agent-hook-setup install and status ====="
  cat "$work/install.out" "$work/status.out" 2>/dev/null
  echo "===== requests the mock model got ====="
  node "$mock" requests "$work/mock.log" 2>&1
  echo "===== companion ====="
  cat "$work/companion.out" "$work/companion.err" 2>/dev/null
  echo "===== events $agent_name sent to its hooks ====="
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

pass() {
  echo "PASS ($scenario): session $session"
  [ "${REAL_AGENT_VERBOSE:-0}" = 1 ] && diagnostics
  exit 0
}

# The hook sees the stand-in app as running through a private session bus; a
# wake-up URL, should the bus be missing, goes to a no-op xdg-open.
start_session_bus() {
  printf '#!/bin/sh\nexit 0\n' >"$work/bin/xdg-open"
  chmod +x "$work/bin/xdg-open"
  unset DBUS_SESSION_BUS_ADDRESS XDG_DATA_HOME
  export XDG_RUNTIME_DIR="$work"
  command -v dbus-daemon >/dev/null 2>&1 || return 0
  dbus-daemon --session --nofork --address="unix:path=$work/bus" --print-address=1 >"$work/bus.address" 2>"$work/bus.err" &
  bus_pid=$!
  wait_for "the session bus" test -s "$work/bus.address" || fail "dbus-daemon did not start: $(cat "$work/bus.err")"
  DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus.address")
  export DBUS_SESSION_BUS_ADDRESS
}

# Starts the mock model on the scenario and sets `port` to where it listens.
start_mock() {
  node "$mock" serve --scenario "$scenario" --log "$work/mock.log" --port-file "$work/port" >"$work/mock.out" 2>&1 &
  mock_pid=$!
  wait_for "the mock model" test -s "$work/port" || fail "the mock model did not start"
  port=$(cat "$work/port")
}

# Starts the stand-in app, answering the requests in turn with `answers`. The
# last answer (empty) meets the Stop event after the model's closing reply:
# the hook then leaves the turn alone and nothing is left waiting.
start_companion() {
  local args=() answer
  for answer in "${answers[@]}"; do args+=(--answer "$answer"); done
  HOME="$home" "$companion" "${args[@]}" >"$work/companion.out" 2>"$work/companion.err" </dev/null &
  companion_pid=$!
  wait_for "the companion" grep -qs "^companion: watching" "$work/companion.out" || fail "the companion did not start"
}
