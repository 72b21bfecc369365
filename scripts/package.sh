#!/usr/bin/env bash
# Makes the integrator's package, build/package/varnex-sdk-VERSION.zip; the same commit gives the same bytes.
# usage: scripts/package.sh                        builds the release preset first
#        scripts/package.sh --built BUILD OUTPUT   packs what is built in the folder BUILD, into the folder OUTPUT
set -euo pipefail

if [ "${1:-}" = --built ]; then
  build=${2:?--built needs the build folder} output=${3:?--built needs the output folder}
  mkdir -p "$output"
  build=$(cd "$build" && pwd) output=$(cd "$output" && pwd)
  cd "$(dirname "${BASH_SOURCE[0]}")/.."
elif [ $# -eq 0 ]; then
  cd "$(dirname "${BASH_SOURCE[0]}")/.."
  build=$PWD/build/release output=$PWD/build/package
  mkdir -p "$output"
  scripts/build.sh release Varnex varnexhost
else
  sed -n '3,4s/^# //p' "${BASH_SOURCE[0]}" >&2
  exit 2
fi

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
[ -n "$version" ] || { echo "package: $build is not a configured build" >&2; exit 1; }
name="varnex-sdk-$version"
# Every file gets the time of the commit; a source tree without its history gets the oldest time that a zip can hold.
epoch=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || echo 315532800)}

stage=$(mktemp -d "$output/stage.XXXXXX")
trap 'rm -rf "$stage"' EXIT
if ! cmake --install "$build" --prefix "$stage/$name" >"$stage/install.log" 2>&1 ||
   [ ! -e "$stage/$name/bin/varnexhost.exe" ]; then
  cat "$stage/install.log" >&2
  echo "package: could not install from $build; is all of it built?" >&2
  exit 1
fi
chmod -R u=rwX,go=rX "$stage/$name"
find "$stage/$name" -exec touch -d "@$epoch" {} +
# Sorted names, no folder entries and no extra fields (owners, finer times); UTC, as a zip holds local times.
(cd "$stage" && find "$name" -type f | LC_ALL=C sort | TZ=UTC zip -q -9 -X -D "$name.zip" -@)
mv -f "$stage/$name.zip" "$output/$name.zip"
echo "$output/$name.zip"
