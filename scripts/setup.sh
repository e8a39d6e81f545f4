#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need,
# and any packages named as arguments, skipping those already present. Safe to
# run again; needs root for apt-get.
set -euo pipefail

packages=(
  cmake g++ git pkg-config lld
  nlohmann-json3-dev libutf8proc-dev uuid-dev libmd-dev libdbus-1-dev libboost-url1.81-dev
  dbus-daemon
  googletest libgtest-dev libgmock-dev
  libbenchmark-dev hyperfine
  "$@"
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
