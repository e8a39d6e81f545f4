#!/usr/bin/env bash
# What can be checked here of macOS programs that cannot run here: each file
# is a universal Mach-O (arm64 and x86_64), asks for macOS 11 at most,
# loads only system libraries, and carries a code signature on arm64 (macOS
# on Apple silicon runs no unsigned code).
#   scripts/check-macos.sh FILE...
set -euo pipefail
status=0
bad() { echo "check-macos: $1: $2" >&2; status=1; }
for file in "$@"; do
  archs=$(llvm-lipo-14 -archs "$file" 2>/dev/null || true)
  [[ " $archs " == *" arm64 "* && " $archs " == *" x86_64 "* ]] || bad "$file" "not universal (architectures: ${archs:-none})"
  for arch in $archs; do
    headers=$(llvm-objdump-14 --macho --private-headers --arch="$arch" "$file")
    minos=$(awk '/cmd LC_BUILD_VERSION/ { found = 1 } found && $1 == "minos" { print $2; exit }' <<<"$headers")
    [ "$minos" = 11.0 ] || bad "$file" "$arch asks for macOS ${minos:-(none)}, not 11.0"
    libraries=$(llvm-objdump-14 --macho --dylibs-used --arch="$arch" "$file" | tail -n +2 | awk '{ print $1 }' | sed '/^$/d')
    while read -r library; do
      case "$library" in
        /usr/lib/libSystem.B.dylib | /usr/lib/libc++.1.dylib | /usr/lib/libc++abi.dylib | /usr/lib/libobjc.A.dylib | /System/Library/Frameworks/*) ;;
        *) bad "$file" "$arch loads $library, which is not a system library" ;;
      esac
    done <<<"$libraries"
    if [ "$arch" = arm64 ] && ! grep -q "cmd LC_CODE_SIGNATURE" <<<"$headers"; then
      bad "$file" "arm64 code carries no code signature"
    fi
  done
  echo "check-macos: $file: $archs; macOS 11.0; loads $(llvm-objdump-14 --macho --dylibs-used --arch=arm64 "$file" | tail -n +2 | awk '{ print $1 }' | paste -sd' ')"
done
exit $status
