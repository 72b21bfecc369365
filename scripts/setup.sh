#!/usr/bin/env bash
# Installs what building, testing and running need on Debian 12 and 13; does nothing when all of it is there.
# usage: scripts/setup.sh [--lint] [--coverage]    what scripts/lint.sh and scripts/coverage.sh need besides
set -euo pipefail

# Each release of Debian has one LLVM of its own; its run-time libraries have no package without the number.
case "$(. /etc/os-release 2>/dev/null && echo "${VERSION_ID:-}")" in
  13) llvm=19 ;;
  *) llvm=14 ;;
esac
packages=(g++-mingw-w64-x86-64-win32 mingw-w64-tools wine wine64 cmake ninja-build make git libcli11-dev
          librapidxml-dev libxml2-utils libz-mingw-w64-dev nlohmann-json3-dev python3 zip unzip chromium prometheus
          prometheus-node-exporter clang-$llvm lld-$llvm llvm-$llvm libclang-rt-$llvm-dev)
for extra in "$@"; do
  case "$extra" in
    --lint) packages+=(clang clang-format clang-tidy cppcheck) ;;
    --coverage) packages+=(gcovr) ;;
    *) echo "setup: unknown argument '$extra'" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  if [ "$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null)" != "install ok installed" ]; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if ! command -v apt-get >/dev/null; then
  echo "setup: this needs Debian 12 or 13 (apt-get), or these by hand: ${missing[*]}" >&2
  exit 1
fi
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: not root and no sudo; install as root: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "setup: installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update -qq &&
       DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"; } \
     >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "setup: could not install ${missing[*]}; the lines above are apt-get's" >&2
  exit 1
fi
