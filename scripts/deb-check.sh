#!/usr/bin/env bash
# Manual check of the Debian package (CI does not run it): builds it, shows its
# metadata, installs it with apt in a fresh Debian 12 minbase root without
# network, runs both programs there, then removes and purges it.
# Needs root, debootstrap (`bash scripts/setup.sh debootstrap`) and the Debian
# mirror for the first run.
#
#   scripts/deb-check.sh [ROOT_DIR [BUILD_DIR]]
#
#   ROOT_DIR  bookworm is debootstrapped once into ROOT_DIR/base; every run
#             works on a fresh copy, ROOT_DIR/run (default /var/tmp/agent-hook-deb12)
#   BUILD_DIR where the package is built (default build-deb in the repository)
#   DEB=FILE  check this package instead of building one
#   MIRROR    Debian mirror for debootstrap (default http://deb.debian.org/debian)
set -euo pipefail

repo=$(cd "$(dirname "$0")/.." && pwd)
root_dir=${1:-${ROOT_DIR:-/var/tmp/agent-hook-deb12}}
build_dir=${2:-${BUILD_DIR:-$repo/build-deb}}
mirror=${MIRROR:-http://deb.debian.org/debian}
base=$root_dir/base
run=$root_dir/run

say() { echo "deb-check: $*"; }
fail() { echo "deb-check: FAIL: $*" >&2; exit 1; }

[ "$(id -u)" -eq 0 ] || fail "needs root (debootstrap, chroot, mount)"
command -v debootstrap >/dev/null || fail "debootstrap missing: bash scripts/setup.sh debootstrap"

if [ -z "${DEB:-}" ]; then
  say "building the package in $build_dir"
  cmake -B "$build_dir" -S "$repo" -DCMAKE_BUILD_TYPE=Release -DAGENT_HOOK_TESTS=OFF -DAGENT_HOOK_BENCH=OFF >/dev/null
  cmake --build "$build_dir" -j"$(nproc)" >/dev/null
  rm -f "$build_dir"/agent-hook_*.deb
  (cd "$build_dir" && cpack -G DEB) | grep 'package:' || fail "cpack made no package"
  DEB=$(echo "$build_dir"/agent-hook_*.deb)
fi
[ -f "$DEB" ] || fail "no package at $DEB"
DEB=$(realpath "$DEB")

say "metadata of $DEB"
dpkg-deb -I "$DEB" control
files=$(dpkg-deb -c "$DEB")
echo "$files"
[ -z "$(dpkg-deb -f "$DEB" Depends Pre-Depends)" ] || fail "the package has dependencies, but both programs are static"
for p in agent-hook agent-hook-setup; do
  grep -Eq "^-rwxr-xr-x root/root .* \./usr/bin/$p\$" <<<"$files" || fail "/usr/bin/$p missing or not 0755 root/root"
done
# Only the two programs and their documentation directory.
stray=$(awk '{print $NF}' <<<"$files" |
  grep -Ev '^\./(|usr/|usr/bin/|usr/bin/agent-hook|usr/bin/agent-hook-setup|usr/share/|usr/share/doc/|usr/share/doc/agent-hook/.*)$' || true)
[ -z "$stray" ] || fail "unexpected files in the package: $stray"

cleanup() { if mountpoint -q "$run/proc"; then umount "$run/proc"; fi; }
trap cleanup EXIT

if [ ! -x "$base/usr/bin/apt" ]; then
  say "debootstrapping bookworm (minbase) into $base, once"
  mkdir -p "$root_dir"
  rm -rf "$base.partial"
  debootstrap --variant=minbase bookworm "$base.partial" "$mirror" >"$root_dir/debootstrap.log" ||
    fail "debootstrap failed, see $root_dir/debootstrap.log"
  mv "$base.partial" "$base"
fi
say "fresh root: copying $base to $run"
cleanup  # a /proc left mounted by a killed run would stop the removal
rm -rf --one-file-system "$run"
cp -a "$base" "$run"
name=$(basename "$DEB")
cp "$DEB" "$run/tmp/"
mount -t proc proc "$run/proc"

# Without a network namespace apt could fetch missing dependencies; the package
# must install from the file alone. HOME is a directory nobody has used.
in_root() {
  unshare --net chroot "$run" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/tmp/home \
    LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}
check() {  # check DESCRIPTION COMMAND...: runs COMMAND in the root, fails on non-zero exit
  local what=$1; shift
  say "check: $what"
  in_root "$@" || fail "$what"
}
apt_opts=(-y -q -o Dpkg::Use-Pty=0)  # no pty: the root has no /dev/pts mounted

mkdir -p "$run/tmp/home"
check "apt install /tmp/$name" apt install "${apt_opts[@]}" "/tmp/$name"
check "both programs in /usr/bin" test -x /usr/bin/agent-hook -a -x /usr/bin/agent-hook-setup
version=$(dpkg-deb -f "$DEB" Version)
check "agent-hook-setup --version says $version" sh -c "agent-hook-setup --version | grep -F '$version'"
check "agent-hook-setup --help" sh -c 'agent-hook-setup --help | grep -q "^usage: agent-hook-setup"'
check "agent-hook-setup install claude" agent-hook-setup install claude
check "the registration names /usr/bin/agent-hook" grep -q '"/usr/bin/agent-hook claude"' /tmp/home/.claude/settings.json
check "agent-hook-setup status" agent-hook-setup status
event='{"session_id":"s1","hook_event_name":"PreToolUse","tool_name":"Bash","tool_input":{"command":"ls"}}'
start=$(date +%s%N)
check "agent-hook claude exits 0 on a PreToolUse event within 5 s" \
  sh -c "echo '$event' | timeout 5 agent-hook claude 2>/dev/null"
say "  took $(( ($(date +%s%N) - start) / 1000000 )) ms"
check "agent-hook-setup uninstall claude removes the file that install made" \
  sh -c 'agent-hook-setup uninstall claude && ! test -e /tmp/home/.claude/settings.json'

check "apt remove agent-hook" apt "${apt_opts[@]}" remove agent-hook
check "both programs gone" sh -c '! test -e /usr/bin/agent-hook && ! test -e /usr/bin/agent-hook-setup'
# Without conffiles dpkg forgets the package at removal; purge only what is left.
if in_root dpkg-query -W agent-hook >/dev/null 2>&1; then
  check "apt purge agent-hook" apt "${apt_opts[@]}" purge agent-hook
fi
check "dpkg no longer lists agent-hook" sh -c '! dpkg -l agent-hook >/dev/null 2>&1'
check "no file of the package left" sh -c '! test -e /usr/share/doc/agent-hook'

say "all checks passed in $run"
