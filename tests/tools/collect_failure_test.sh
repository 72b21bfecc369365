#!/usr/bin/env bash
# collect, when something is in its way: what can be had is collected, nothing is left half-written, and the originals
# are untouched.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

listing() {
  (cd "$folder/A" && find . -type f -printf '%p %s %T@ ' -exec md5sum {} \; | sort)
}

# expect_names FOLDER NAME...: the folder holds exactly these.
expect_names() {
  local where=$1
  shift
  [ "$(cd "$folder/$where" && ls -A | xargs)" = "$*" ] || fail "$where holds $(ls -A "$folder/$where" | xargs), expected $*"
}

# expect_manifest FOLDER PATTERN
expect_manifest() {
  grep -q "$2" "$folder/$1/manifest.txt" || fail "no '$2' in the manifest of $1: $(cat "$folder/$1/manifest.txt")"
}

# expect_limited BLOCKS PATTERN ARGUMENTS...: as expect 1, but no file of varnexhost's gets larger than so many blocks of
# 1024 bytes, as on a disk that becomes full: a write that crosses the limit is cut there, and the next is refused. What it
# says goes through a pipe, which has no such limit.
expect_limited() {
  local blocks=$1 pattern=$2 ended
  shift 2
  ended=$({ (trap '' XFSZ && ulimit -f "$blocks" && varnexhost "$@" 2>&1; echo "ended with $?") || true; } |
    cat >"$folder/output"; sed -n 's/^ended with //p' "$folder/output")
  if [ "$ended" != 1 ] || ! grep -q -e "$pattern" "$folder/output"; then
    fail "varnexhost $*, at most $blocks blocks a file: ended with $ended, expected 1 and '$pattern' in:"
    cat "$folder/output"
  fi
}

varnexhost --version >"$folder/output" # Wine's server, should none be there, is not to begin within the limit
printf '1;85;91;1(then);;\r\n' >"$bin/LocalAlt.dat"
head -c 300000 /dev/urandom >"$logs/Varnex.log"
head -c 50000 /dev/urandom >"$logs/CPUUtil.log"
head -c 20000 /dev/urandom >"$logs/DiskUtil.log"
printf 'older\r\n' >"$logs/Varnex_20260131235959.log"
listing >"$folder/before"

# The disk is full in the middle of the log: all else is collected, and nothing is left of that copy.
expect_limited 100 "Varnex.log cannot be written: .*error" collect "$(windows_path "$folder/full log")" --zip
expect_names "full log" CPUUtil.log DiskUtil.log KpmCfg.xml LocalAlt.dat Varnex_20260131235959.log manifest.txt versions.txt
grep -q "^Collected 5 files" "$folder/output" || fail "the rest was not said to be collected: $(cat "$folder/output")"
expect_manifest "full log" "^failed .*Varnex.log cannot be written: "
expect_manifest "full log" "^copied .*DiskUtil.log  (20000 bytes"
cmp "$folder/full log/DiskUtil.log" "$logs/DiskUtil.log" || fail "what came after the failure is not whole"
cmp "$folder/full log/KpmCfg.xml" "$bin/KpmCfg.xml" || fail "what came before the failure is not whole"
(cd "$folder" && python3 - <<'PYTHON') || fail "the archive is not the folder's"
import pathlib, zipfile
archive = zipfile.ZipFile("full log.zip")
assert archive.testzip() is None
assert sorted(archive.namelist()) == sorted(f"full log/{file.name}" for file in pathlib.Path("full log").iterdir())
PYTHON

# The disk is full in the middle of the archive: the folder is whole, and says so.
rm "$logs/Varnex.log"
listing >"$folder/before"
expect_limited 60 "full archive.zip cannot be written: .*error" collect "$(windows_path "$folder/full archive")" --zip
[ ! -e "$folder/full archive.zip" ] || fail "half an archive was left"
expect_names "full archive" CPUUtil.log DiskUtil.log KpmCfg.xml LocalAlt.dat Varnex_20260131235959.log manifest.txt versions.txt
grep -q "^Collected 5 files in .*full archive\. manifest" "$folder/output" || fail "not said: $(cat "$folder/output")"

# Not even room for the list of versions: the reason for each, nothing left but the empty folder.
expect_limited 0 "versions.txt cannot be written: .*error" collect "$(windows_path "$folder/full disk")" --zip
grep -q "manifest.txt cannot be written: .*error" "$folder/output" || fail "the manifest's loss is not told"
grep -q "^Collected 0 files in .*full disk\.$" "$folder/output" || fail "not said: $(cat "$folder/output")"
expect_names "full disk"
[ ! -e "$folder/full disk.zip" ] || fail "an archive was left on a full disk"

# A folder that cannot be made, one that nothing can be written to, and an archive's name that a folder has.
expect 1 "KpmCfg.xml.case cannot be made: .*error" collect "$(windows_path "$bin/KpmCfg.xml/case")"
closed=/proc/tty/ldisc # closed to root, too
if [ "$(id -u)" -ne 0 ]; then
  closed="$folder/closed"
  mkdir -m 555 "$closed"
fi
expect 1 "KpmCfg.xml cannot be made: .*error" collect "$(windows_path "$closed")"
grep -q "^Collected 0 files" "$folder/output" || fail "files are said to lie where none can be: $(cat "$folder/output")"
mkdir "$folder/taken.zip"
expect 1 "taken.zip is there already" collect "$(windows_path "$folder/taken")" --zip
[ ! -e "$folder/taken" ] || fail "a folder was made for nothing"

# A file that its owner keeps for himself.
begin_report_server keep "$(windows_path "$logs/CPUUtil.log")" 60000
expect 1 "CPUUtil.log cannot be opened: .*error 32" collect "$(windows_path "$folder/kept")"
grep -q "^Collected 4 files" "$folder/output" || fail "the rest was not collected: $(cat "$folder/output")"
expect_names kept DiskUtil.log KpmCfg.xml LocalAlt.dat Varnex_20260131235959.log manifest.txt versions.txt
expect_manifest kept "^failed .*CPUUtil.log cannot be opened: .*error 32"
end_servers

listing | diff "$folder/before" - || fail "collecting changed the originals"

# A log that was there when collecting began, and is gone before its turn comes: the alert file is waited for meanwhile.
begin_report_server alerts "$(windows_path "$logs/Varnex_20260131235959.log")"
(
  for turn in $(seq 100); do
    [ ! -s "$folder/vanished/KpmCfg.xml" ] || break
    sleep 0.1
  done
  rm "$logs/Varnex_20260131235959.log"
) &
expect 0 "^Collected 4 files" collect "$(windows_path "$folder/vanished")"
expect_manifest vanished "^missing .*Varnex_20260131235959.log"
expect_names vanished CPUUtil.log DiskUtil.log KpmCfg.xml LocalAlt.dat manifest.txt versions.txt

finish
