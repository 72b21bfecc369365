#!/usr/bin/env bash
# What CMake would have Microsoft's compiler and linker do. Nothing is compiled: that takes their headers and libraries.
# usage: msvc_build_test.sh SOURCE FOLDER
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
readonly source=$1
begin_in "$2"

ln -s "$(tool clang)" clang-cl # by this name it takes Microsoft's options
quietly cmake -G Ninja -S "$source" -B out -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=AMD64 \
  "-DCMAKE_C_COMPILER=$PWD/clang-cl" "-DCMAKE_CXX_COMPILER=$PWD/clang-cl" "-DCMAKE_LINKER=$(tool lld-link)" \
  "-DCMAKE_RC_COMPILER=$(tool llvm-rc)" "-DCMAKE_MT=$(tool llvm-mt)" -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY \
  -DCMAKE_BUILD_TYPE=Release -DVARNEX_BUILD_TESTS=OFF -DVARNEX_BUILD_TOOLS=OFF

# expect_options WHAT COMMAND OPTION...: Microsoft's tools take each option with a dash, too.
expect_options() {
  local what=$1 command=" ${2//[ ]-/ /} " option
  shift 2
  for option in "$@"; do
    [[ "$command" == *" $option "* ]] || fail "$what does without $option"
  done
}
ninja -C out -t commands Varnex >commands
expect_options "the compiler" "$(grep 'DllMain\.cpp' commands | head -n 1)" /Zi /guard:cf
expect_options "the linker" "$(tail -n 1 commands)" \
  /DEBUG /OPT:REF /OPT:ICF /guard:cf /CETCOMPAT /INCREMENTAL:NO /pdb:bin/Varnex.pdb
grep -q "symbols.*\"$PWD/out/bin/Varnex.pdb\"" out/cmake_install.cmake || fail "the installation takes another PDB"
finish
