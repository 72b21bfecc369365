#!/usr/bin/env bash
# usage: pack_test.sh SOURCE_TREE BUILD FOLDER VERSION; leaves the unpacked package in FOLDER for the other tests.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly source=$1 build=$2 folder=$3 name=varnex-sdk-$4

begin_in "$folder"
quietly "$source/scripts/package.sh" --built "$build" "$folder/once"
sleep 2 # a zip's times have a step of two seconds
quietly env TZ=Asia/Tokyo "$source/scripts/package.sh" --built "$build" "$folder/twice"
cmp "once/$name.zip" "twice/$name.zip" || fail "packed again, the zip has other bytes"
quietly unzip -q "once/$name.zip"

expected="CHANGELOG.md README.md bin/Varnex.dll bin/varnexhost.exe examples/KpmCfg.xml include/varnex/Varnex.h
licenses/CLI11.txt licenses/nlohmann-json.txt licenses/uPlot.txt licenses/zlib.txt
lib/Varnex.def lib/Varnex.lib lib/cmake/Varnex/VarnexConfig.cmake lib/cmake/Varnex/VarnexConfigVersion.cmake
lib/cmake/Varnex/VarnexTargets.cmake lib/libVarnex.dll.a symbols/Varnex.dll.debug
$(cd "$source" && ls docs/*.md docs/*.xsd)"
# In this order, whichever the file system has, and without entries for folders.
same "the files of the package" "$(tr ' ' '\n' <<<"$expected" | LC_ALL=C sort)" \
  "$(zipinfo -1 "once/$name.zip" | sed "s|^$name/||")"
# The fields that hold owners and finer times.
same "the length of the extra fields" "0 bytes" \
  "$(zipinfo -v "once/$name.zip" | sed -n 's/^ *length of extra field: *//p' | sort -u)"

# Links between the pages lead somewhere; the sources alone are not in the package.
while IFS=: read -r page target; do
  [ -e "$name/$(dirname "$page")/${target%%#*}" ] || fail "$page links to $target, which is not in the package"
done < <(cd "$name" && grep -o '](\([^)#]*\)[^)]*)' README.md CHANGELOG.md docs/*.md | sed 's/](//; s/)$//' |
         grep -v ':https\?:\|:\.\./src/')
finish
