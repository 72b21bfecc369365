#!/usr/bin/env bash
# The packaged module once more, from a copy of the sources in a folder of another name and length. About a minute.
# usage: rebuild_test.sh SOURCE_TREE FOLDER
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly source=$1 folder=$2
readonly copy="$folder/a copy of the sources in a folder with quite another name"

begin_in "$folder"
mkdir -p "$copy"
(cd "$source" && cp -r CMakeLists.txt CHANGELOG.md cmake docs examples include scripts src third_party "$copy/")
quietly cmake -G Ninja -S "$copy" -B out --toolchain "$copy/cmake/mingw-w64-x86_64.cmake" -DCMAKE_BUILD_TYPE=Release \
  -DVARNEX_BUILD_TOOLS=OFF -DVARNEX_BUILD_TESTS=OFF
quietly cmake --build out --target Varnex
quietly cmake --install out --prefix "$folder/installed"

for file in bin/Varnex.dll symbols/Varnex.dll.debug lib/libVarnex.dll.a lib/Varnex.lib; do
  cmp "$SDK/$file" "installed/$file" || fail "$file, built in another folder, has other bytes"
done
if [ "$failures" -ne 0 ]; then
  echo "Sources that changed after the package was built:"
  find "$source/src" "$source/cmake" "$source/include" -newer "$SDK/../once" -type f
fi
finish
