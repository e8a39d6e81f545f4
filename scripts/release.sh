#!/usr/bin/env bash
# Builds the release archives of every platform into dist/ (as root on a fresh
# Debian 12 machine: it installs what it needs):
#   agent-hook-<version>-linux-x86_64.tar.gz    static, stripped
#   agent-hook-<version>-linux-aarch64.tar.gz   static, stripped (cross-built)
#   agent-hook-<version>-macos-universal.tar.gz arm64 and x86_64, macOS 11 and
#                                               later (cross-built, not run here)
#   SHA256SUMS
# Each archive holds one folder agent-hook-<version>/ with agent-hook,
# agent-hook-setup and README.md. The version is CMake's project version.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
version=$(sed -n 's/^project(agent-hook VERSION \([0-9][0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || { echo "release: no project version in CMakeLists.txt" >&2; exit 1; }
dist="$repo/dist"

scripts/setup.sh
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DAGENT_HOOK_TESTS=OFF -DAGENT_HOOK_BENCH=OFF >/dev/null
cmake --build build-release -j"$(nproc)" --target agent-hook agent-hook-setup
scripts/build-linux-aarch64.sh --no-tests build-release-aarch64
scripts/build-macos.sh build-release-macos

rm -rf "$dist"
mkdir -p "$dist"
# package PLATFORM DIR STRIP: an archive of DIR's two programs and the README,
# the same bytes from the same inputs (fixed owner, order and time).
package() {
  local platform=$1 from=$2 strip=$3
  local name="agent-hook-$version"
  local stage
  stage=$(mktemp -d)
  mkdir "$stage/$name"
  for program in agent-hook agent-hook-setup; do
    install -m 0755 "$from/$program" "$stage/$name/$program"
    [ -z "$strip" ] || "$strip" --strip-all "$stage/$name/$program"
  done
  install -m 0644 README.md "$stage/$name/README.md"
  tar --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$(git log -1 --format=%ct 2>/dev/null || echo 0)" \
    -C "$stage" -cf - "$name" | gzip -n -9 >"$dist/$name-$platform.tar.gz"
  rm -rf "$stage"
}
package linux-x86_64 build-release strip
package linux-aarch64 build-release-aarch64 aarch64-linux-gnu-strip
# Not stripped: a Mach-O's arm64 code signature covers its symbols.
package macos-universal build-release-macos ""

(cd "$dist" && sha256sum -- *.tar.gz >SHA256SUMS)
ls -l "$dist"
cat "$dist/SHA256SUMS"
