#!/usr/bin/env bash
# Installs the pinned Claude Code into BUILD_DIR/real-agent and the pinned
# Codex CLI into BUILD_DIR/real-agent-codex (with node, npm and tmux from Debian
# when they are missing), builds the hook, the stand-in app and the setup tool
# (which registers the hook), and runs the tests that put agent-hook inside the
# real agents.
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

# Node and npm may come from elsewhere than Debian: only missing commands are asked for.
missing=()
command -v node >/dev/null 2>&1 || missing+=(nodejs)
command -v npm >/dev/null 2>&1 || missing+=(npm)
command -v tmux >/dev/null 2>&1 || missing+=(tmux)
"$repo/scripts/setup.sh" "${missing[@]}"

# The version number in what COMMAND --version prints ("2.1.197 (Claude Code)",
# "codex-cli 0.169.0"); nothing when it does not run.
version_of() { { "$1" --version 2>/dev/null || true; } | grep -oE '[0-9]+(\.[0-9]+)+' | head -n 1 || true; }

# Installs npm PACKAGE@VERSION into PREFIX unless its COMMAND there already
# reports that version.
install_agent() {
  local prefix=$1 package=$2 version=$3 command=$4
  if [ "$(version_of "$command")" != "$version" ]; then
    echo "real-agent: installing $package@$version into $prefix"
    mkdir -p "$prefix"
    npm install --prefix "$prefix" --no-audit --no-fund --save-exact "$package@$version"
    # Claude Code's postinstall puts the native binary in place of a stub; npm
    # may be set up to skip install scripts, so run it when that happened.
    # (Codex's package pulls its binary in as an optional dependency instead.)
    if ! "$command" --version >/dev/null 2>&1 && [ -f "$prefix/node_modules/$package/install.cjs" ]; then
      (cd "$prefix/node_modules/$package" && node install.cjs)
    fi
    local installed
    installed=$(version_of "$command")
    [ "$installed" = "$version" ] || { echo "real-agent: got '${installed:-nothing}', wanted $version" >&2; exit 1; }
  fi
  echo "real-agent: $("$command" --version)"
}

claude="$build/real-agent/node_modules/.bin/claude"
codex="$build/real-agent-codex/node_modules/.bin/codex"
install_agent "$build/real-agent" @anthropic-ai/claude-code "$claude_version" "$claude"
install_agent "$build/real-agent-codex" @openai/codex "$codex_version" "$codex"

cmake -B "$build" -S "$repo" -DREAL_AGENT_CLAUDE="$claude" -DREAL_AGENT_CODEX="$codex" >/dev/null
cmake --build "$build" -j2 --target agent-hook agent-hook-companion agent-hook-setup
ctest --test-dir "$build" -L real-agent --output-on-failure
