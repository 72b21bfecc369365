#!/usr/bin/env bash
# Makes a minimal Debian, clones the last commit into it, runs a command there as a newcomer would, and removes it again.
# usage: scripts/fresh.sh bookworm|trixie [COMMAND...]        default: scripts/demo.sh && scripts/test.sh
# Needs root, debootstrap, and about 10 GB below build/ (the environment variable TMPDIR names another place).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

suite=${1:-}
case "$suite" in
  bookworm | trixie) shift ;;
  *) sed -n '2,4s/^# //p' "${BASH_SOURCE[0]}" >&2; exit 2 ;;
esac
[ "$(id -u)" -eq 0 ] || { echo "fresh: only root can make a system: sudo scripts/fresh.sh $suite" >&2; exit 1; }
command -v debootstrap >/dev/null || { echo "fresh: install debootstrap first: apt-get install debootstrap" >&2; exit 1; }

mkdir -p "${TMPDIR:-build}"
root=$(mktemp -d "$(cd "${TMPDIR:-build}" && pwd)/fresh-$suite.XXXXXX")
# The mounts belong to a namespace of their own and end with it.
trap 'rm -rf --one-file-system "$root"' EXIT

say() { echo "fresh: $(date +%H:%M:%S) $*"; }

say "making $suite ..."
# From where this machine has its own packages, or from Debian's main mirror.
mirror=$(apt-get indextargets --format '$(SITE)' 'Label: Debian' 2>/dev/null | head -n 1)
debootstrap --variant=minbase "$suite" "$root/system" ${mirror:+"$mirror"} >"$root/debootstrap.log" 2>&1 ||
  { tail -n 20 "$root/debootstrap.log" >&2; exit 1; }
cp -L /etc/resolv.conf "$root/system/etc/"
git clone -q --no-local . "$root/system/root/varnex"

say "running: ${*:-scripts/demo.sh && scripts/test.sh}"
began=$SECONDS status=0
unshare --mount --pid --fork --kill-child bash -euc '
  mount --make-rprivate /
  mount -t proc proc "$1/proc"
  mount --rbind /dev "$1/dev"
  exec chroot "$1" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin bash -c "cd ~/varnex && $2"
' _ "$root/system" "${*:-scripts/demo.sh && scripts/test.sh}" </dev/null || status=$?
say "ended with $status after $(((SECONDS - began) / 60)) min $(((SECONDS - began) % 60)) s"
exit "$status"
