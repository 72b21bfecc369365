#!/usr/bin/env bash
# A program of the Microsoft ABI without Microsoft's libraries: only the compiler, the linker, Varnex.lib and KERNEL32.
# usage: msvc_host_test.sh FOLDER
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
begin_in "$1"

clang=$(tool clang) lld_link=$(tool lld-link) dlltool=$(tool llvm-dlltool) rc=$(tool llvm-rc)

cp -r "$tests/msvc_host/." .
quietly "$dlltool" -m i386:x86-64 -d kernel32.def -l kernel32.lib
compile=("$clang" --target=x86_64-pc-windows-msvc -Wall -Wextra -Wpedantic -Werror -O1 -Istand-in -I"$SDK/include")
quietly "${compile[@]}" -std=c99 -c main.c -o main.obj
quietly "${compile[@]}" -x c++ -std=c++17 -fsyntax-only main.c
quietly "$lld_link" /nodefaultlib /subsystem:console /entry:mainCRTStartup /out:host.exe main.obj kernel32.lib \
  "$SDK/lib/Varnex.lib"
same "what the program imports from" "KERNEL32.dll Varnex.dll" "$(imports_of host.exe | xargs)"

lay_out_agent agent host.exe
ended=0
run_windows agent/bin/host.exe >said || ended=$?
same "what the program said" "StartWorkingThread refused 5, GetAlertRecord gave one alert" "$(cat said)"
same "how the program ended" 0 "$ended"

# CMake takes the same library for this ABI.
quietly cmake -G Ninja -S . -B out -DCMAKE_SYSTEM_NAME=Windows "-DCMAKE_C_COMPILER=$clang" \
  "-DCMAKE_RC_COMPILER=$rc" -DCMAKE_C_COMPILER_TARGET=x86_64-pc-windows-msvc \
  -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -DCMAKE_BUILD_TYPE=Release "-DCMAKE_PREFIX_PATH=$SDK"
quietly cmake --build out
expect_linked_with Varnex.lib host
same "what the program that CMake built imports from" "KERNEL32.dll Varnex.dll" "$(imports_of out/host.exe | xargs)"
finish
