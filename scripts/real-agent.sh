#!/usr/bin/env bash
# Installs the pinned Claude Code into BUILD_DIR/real-agent and the pinned
# Codex CLI into BUILD_DIR/real-agent-codex (with node, npm and tmux from Debian
# when they are missing), builds the hook and the stand-in app, and runs the
# tests that put agent-hook inside the real agents.
#
#   scripts/real-agent.sh [BUILD_DIR]     (default: build)
set -euo pipefail

# The releases the agents' documented behaviour was observed on.
claude_version=2.1.197
codex_version=0.169.0

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-$repo/build}
mkdir -p "$build"
build=$(cd "$build" && pwd)

"$repo/scripts/setup.sh"

missing=()
command -v node >/dev/null 2>&1 || missing+=(nodejs)
command -v npm >/dev/null 2>&1 || missing+=(npm)
command -v tmux >/dev/null 2>&1 || missing+=(tmux)
if [ ${#missing[@]} -gt 0 ]; then
  echo "real-agent: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

prefix="$build/real-agent"
claude="$prefix/node_modules/.bin/claude"
installed=$("$claude" --version 2>/dev/null || true)
if [ "${installed%% *}" != "$claude_version" ]; then
  echo "real-agent: installing @anthropic-ai/claude-code@$claude_version into $prefix"
  mkdir -p "$prefix"
  npm install --prefix "$prefix" --no-audit --no-fund --save-exact "@anthropic-ai/claude-code@$claude_version"
  # The package's postinstall puts the native binary in place of a stub; npm
  # may be set up to skip install scripts, so run it when that happened.
  if ! "$claude" --version >/dev/null 2>&1; then
    (cd "$prefix/node_modules/@anthropic-ai/claude-code" && node install.cjs)
  fi
  installed=$("$claude" --version)
  [ "${installed%% *}" = "$claude_version" ] || { echo "real-agent: got '$installed', wanted $claude_version" >&2; exit 1; }
fi
echo "real-agent: $installed"

# Codex's package pulls in the native binary for this platform as an optional
# dependency; `codex --version` prints "codex-cli VERSION".
codex_prefix="$build/real-agent-codex"
codex="$codex_prefix/node_modules/.bin/codex"
installed=$("$codex" --version 2>/dev/null || true)
if [ "${installed##* }" != "$codex_version" ]; then
  echo "real-agent: installing @openai/codex@$codex_version into $codex_prefix"
  mkdir -p "$codex_prefix"
  npm install --prefix "$codex_prefix" --no-audit --no-fund --save-exact "@openai/codex@$codex_version"
  installed=$("$codex" --version)
  [ "${installed##* }" = "$codex_version" ] || { echo "real-agent: got '$installed', wanted $codex_version" >&2; exit 1; }
fi
echo "real-agent: $installed"

cmake -B "$build" -S "$repo" -DREAL_AGENT_CLAUDE="$claude" -DREAL_AGENT_CODEX="$codex" >/dev/null
cmake --build "$build" -j2 --target agent-hook agent-hook-companion
ctest --test-dir "$build" -L real-agent --output-on-failure
