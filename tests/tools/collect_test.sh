#!/usr/bin/env bash
# collect: a support case in a folder, the originals untouched.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

listing() {
  (cd "$folder/A" && find . -type f -printf '%p %s %T@ ' -exec md5sum {} \; | sort)
}

# expect_same NAME ORIGINAL: the collected file is the original.
expect_same() {
  cmp "$folder/case 1/$1" "$2" || fail "$1 is not what was to be collected"
}

expect 2 "DIR is required" collect
expect 2 "extra" collect 'C:\case' extra
expect 1 "neither .*Varnex.dll" collect "$(windows_path "$folder/case 0")" --module-dir 'C:\no such folder'
[ ! -e "$folder/case 0" ] || fail "a folder was made for nothing"

printf '1;85;91;1(then);;\r\n' >"$bin/LocalAlt.dat"
head -c 3000000 /dev/urandom | base64 >"$logs/Varnex.log"
printf 'older\r\n' >"$logs/Varnex_20260131235959.log"
printf 'time\t\tCPU\r\n' >"$logs/CPUUtil.log"
for other in "$logs/Varnex_notes.log" "$logs/Varnex_2026013123595x.log" "$logs/host.exe_00.dmp" "$bin/other.txt"; do
  printf 'does not belong to it\r\n' >"$other"
done
listing >"$folder/before"

expect 0 "^Collected 5 files" collect "$(windows_path "$folder/case 1")" --zip
listing | diff "$folder/before" - || fail "collecting changed the originals"
(cd "$folder/case 1" && ls) >"$folder/names"
diff - "$folder/names" <<'NAMES' || fail "the folder does not hold exactly what belongs to a support case"
CPUUtil.log
KpmCfg.xml
LocalAlt.dat
Varnex.log
Varnex_20260131235959.log
manifest.txt
versions.txt
NAMES
expect_same KpmCfg.xml "$bin/KpmCfg.xml"
expect_same LocalAlt.dat "$bin/LocalAlt.dat"
expect_same Varnex.log "$logs/Varnex.log"
expect_same Varnex_20260131235959.log "$logs/Varnex_20260131235959.log"
expect_same CPUUtil.log "$logs/CPUUtil.log"

for present in KpmCfg.xml LocalAlt.dat Varnex.log Varnex_20260131235959.log CPUUtil.log; do
  grep -q "^copied .*$present  (" "$folder/case 1/manifest.txt" || fail "the manifest does not name $present"
done
for missing in LocalAlt_Backup.dat MemoryUtil.log DiskUtil.log NetworkUtil.log; do
  grep -q "^missing .*$missing" "$folder/case 1/manifest.txt" || fail "the manifest does not name $missing as missing"
done
version=$(varnexhost --version | tr -dc '0-9.')
grep -q "^Varnex.dll  $version" "$folder/case 1/versions.txt" || fail "the module's version is not told"
grep -q "^varnexhost  $version" "$folder/case 1/versions.txt" || fail "the tool's version is not told"
grep -q "^Windows     [0-9]*\.[0-9]*\.[0-9]" "$folder/case 1/versions.txt" || fail "the version of Windows is not told"

# Python's own reader tells whether the archive is one, with everything in it.
(cd "$folder" && python3 - "case 1.zip" "case 1") <<'PYTHON' || fail "the archive is not the folder's"
import pathlib, sys, zipfile
archive, target = zipfile.ZipFile(sys.argv[1]), pathlib.Path(sys.argv[2])
assert archive.testzip() is None
names = sorted(f"{target.name}/{file.name}" for file in target.iterdir())
assert sorted(archive.namelist()) == names, archive.namelist()
for file in target.iterdir():
    assert archive.read(f"{target.name}/{file.name}") == file.read_bytes(), file
log = archive.getinfo(f"{target.name}/Varnex.log")
assert log.compress_size < log.file_size * 0.9, log
assert log.date_time[0] >= 2024, log
PYTHON

expect 1 "not an empty folder" collect "$(windows_path "$folder/case 1")"
mkdir "$folder/case 2"
: >"$folder/case 3.zip"
expect 0 "^Collected 5 files" collect "$(windows_path "$folder/case 2")\\"
[ ! -e "$folder/case 2.zip" ] || fail "an archive was made that nobody asked for"
expect 1 "case 3.zip is there already" collect "$(windows_path "$folder/case 3")" --zip
[ ! -s "$folder/case 3.zip" ] && [ ! -e "$folder/case 3" ] || fail "the archive that was there is not left alone"
expect 1 "not an empty folder" collect "$(windows_path "$bin/KpmCfg.xml")"

# A module that is gone is a finding, too.
mkdir -p "$folder/elsewhere"
mv "$bin/Varnex.dll" "$folder/elsewhere/"
expect 0 "^Collected 5 files" collect "$(windows_path "$folder/case 4")"
grep -q "^Varnex.dll  there is no such file" "$folder/case 4/versions.txt" || fail "the missing module is not told"

finish
