#!/usr/bin/env bash
# usage: cpp_host_test.sh FOLDER
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
begin_in "$1"

cp "$tests/cpp_host/CMakeLists.txt" "$tests/cpp_host/main.cpp" .
configure=(cmake -G Ninja -S . -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-win32
           "-DCMAKE_PREFIX_PATH=$SDK")
quietly "${configure[@]}" -B out
quietly cmake --build out
expect_linked_with libVarnex.dll.a cpp_host
lay_out_agent agent out/cpp_host.exe
cmp out/Varnex.dll "$SDK/bin/Varnex.dll" || fail "the target did not tell where the DLL lies"
same "what the consumer said" "StartWorkingThread(5) = 1
GetAlertRecord(null, ...) = 0" "$(run_windows agent/bin/cpp_host.exe)"
[ -s agent/Logs/Varnex.log ] || fail "the module that the consumer loaded wrote no log"

# A version that this package is not, and a system that it is not for.
"${configure[@]}" -B newer -DWANTED_VERSION=99 >words 2>&1 && fail "a package of version 99 was found"
grep -q 'requested version "99"' words || fail "the version was not why: $(cat words)"
mkdir here
printf 'cmake_minimum_required(VERSION 3.21)\nproject(Here LANGUAGES NONE)\nfind_package(Varnex REQUIRED)\n' >here/CMakeLists.txt
cmake -G Ninja -S here -B here/out "-DCMAKE_PREFIX_PATH=$SDK" >words 2>&1 &&
  fail "the package was found for a system that it is not for"
grep -q 'Varnex is a DLL for 64-bit Windows' words || fail "the system was not why: $(cat words)"
finish
