#!/usr/bin/env bash
# usage: binaries_test.sh VERSION SOURCE_TREE BUILD
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly version=$1 source=$2 build=$3
readonly dll="$SDK/bin/Varnex.dll" exe="$SDK/bin/varnexhost.exe" symbols="$SDK/symbols/Varnex.dll.debug"
readonly objdump=x86_64-w64-mingw32-objdump strings=x86_64-w64-mingw32-strings
readonly cb_most=$((300 * 1024 - 1))

# high-entropy address space randomisation, dynamic base, no execution of data; and relocations, without which the
# system cannot move anything.
for binary in "$dll" "$exe"; do
  same "DLL characteristics of $(basename "$binary")" 00000160 \
    "$($objdump -p "$binary" | sed -n 's/^DllCharacteristics\t*//p')"
  sections=$($objdump -h "$binary")
  [[ "$sections" == *" .reloc "* ]] || fail "$(basename "$binary") has no relocations"
  [[ "$sections" != *" .debug_"* ]] || fail "$(basename "$binary") is not stripped"
  [[ "$($objdump -t "$binary")" == *"no symbols"* ]] || fail "$(basename "$binary") has a symbol table"
done

same "what the DLL imports from" "ADVAPI32.dll IPHLPAPI.DLL KERNEL32.dll msvcrt.dll ole32.dll OLEAUT32.dll pdh.dll USER32.dll" \
  "$(imports_of "$dll" | xargs)"
system_library='advapi32|crypt32|dbghelp|iphlpapi|kernel32|msvcrt|ole32|oleaut32|pdh|psapi|shell32|shlwapi|user32|version|ws2_32'
imported=$(imports_of "$exe")
[[ "$imported" == *KERNEL32* ]] || fail "the imports of varnexhost.exe cannot be read"
others=$(echo "$imported" | grep -Eiv "^($system_library)\.dll$" || true)
same "what varnexhost.exe imports from beside the system's libraries" "" "$others"

listed=$(sed -n '/^EXPORTS/,$p' "$SDK/lib/Varnex.def" | sed '1d; s/^ *//; /^$/d' | LC_ALL=C sort)
exported=$($objdump -p "$dll" | sed -n '/^\[Ordinal\/Name Pointer\]/,/^$/s/^.*\] \(+base\[[ 0-9]*\] *[0-9a-f]* \)\?//p' |
           sed '1d' | LC_ALL=C sort)
same "the exports" "$listed" "$exported"
same "the name in the export table" Varnex.dll "$($objdump -p "$dll" | sed -n 's/^Name \t*[0-9a-f]* //p')"
same "the DLL that libVarnex.dll.a names" Varnex.dll "$(x86_64-w64-mingw32-dlltool -I "$SDK/lib/libVarnex.dll.a")"
for library in libVarnex.dll.a Varnex.lib; do
  same "the exports in $library" "$listed" \
    "$(x86_64-w64-mingw32-nm "$SDK/lib/$library" 2>/dev/null | sed -n 's/.* I __imp_//p' | LC_ALL=C sort)"
done

resource=$($strings -el "$dll")
same "the version in the DLL's resource" "FileVersion $version OriginalFilename Varnex.dll ProductVersion $version" \
  "$(grep -A1 -x 'FileVersion\|OriginalFilename\|ProductVersion' <<<"$resource" | grep -vx -- -- | xargs)"

# The names of folders: of any in what runs, of this build's in what describes it.
for encoding in s l; do
  for binary in "$dll" "$exe"; do
    same "folders of the build machine that $(basename "$binary") names" "" \
      "$($strings -a -e$encoding "$binary" | grep -E '(^|[^[:alnum:]_.*])/(usr|home|root|tmp|build|work|opt|var|mnt)/')"
  done
done
same "files of the package that name the folders they were built in" "" "$(grep -rlaF -e "$source" -e "$build" "$SDK")"

[ "$(stat -c %s "$dll")" -le "$cb_most" ] || fail "the DLL has $(stat -c %s "$dll") bytes, more than $cb_most"

# The symbols are those of this DLL, and lead to lines of this source.
python3 - "$dll" "$symbols" <<'CHECK' || fail "the debug link of the DLL does not fit the symbols"
import sys, zlib
dll, symbols = (open(name, 'rb').read() for name in sys.argv[1:])
name = b'Varnex.dll.debug\0'
at = dll.index(name) + (len(name) + 3) // 4 * 4
sys.exit(dll[at:at + 4] != zlib.crc32(symbols).to_bytes(4, 'little'))
CHECK
address=$(x86_64-w64-mingw32-nm "$symbols" | sed -n 's/ T StartWorkingThread$//p')
line=$(x86_64-w64-mingw32-addr2line -e "$symbols" "0x$address")
[[ "$line" =~ ^(\./)+src/entry/AlertControl\.cpp:[1-9] ]] || fail "the symbols place StartWorkingThread at $line"
finish
