#!/usr/bin/env bash
# Writes zig-cc, zig-c++, zig-ar and zig-ranlib for one target into DIR: CMake
# takes a compiler as a single program.
#   scripts/zig-wrappers.sh ZIG TARGET DIR
set -euo pipefail
zig=$1 target=$2 dir=$3
mkdir -p "$dir"
write() {
  printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$zig" "$2" >"$dir/$1"
  chmod +x "$dir/$1"
}
write zig-cc "cc -target $target"
write zig-c++ "c++ -target $target"
write zig-ar "ar"
write zig-ranlib "ranlib"
