# Runs at the end of `cmake --install`, on the installed files: symbols into a file of their own, and an import library
# for linkers of the Microsoft ABI.
set(sdk "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
# No time of day into any header.
set(ENV{SOURCE_DATE_EPOCH} 0)

function(varnex_run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result ERROR_VARIABLE words)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}: ${result}\n${words}")
  endif()
endfunction()

if(NOT VARNEX_LLVM_DLLTOOL)
  message(FATAL_ERROR "llvm-dlltool makes Varnex.lib and was not found when the build was configured: "
                      "scripts/setup.sh installs it; configure again afterwards.")
endif()

file(MAKE_DIRECTORY "${sdk}/symbols")
varnex_run("${VARNEX_OBJCOPY}" --only-keep-debug "${sdk}/bin/Varnex.dll" "${sdk}/symbols/Varnex.dll.debug")
varnex_run("${VARNEX_STRIP}" "${sdk}/bin/Varnex.dll")
varnex_run("${VARNEX_OBJCOPY}" "--add-gnu-debuglink=${sdk}/symbols/Varnex.dll.debug" "${sdk}/bin/Varnex.dll")
if(EXISTS "${sdk}/bin/varnexhost.exe")
  varnex_run("${VARNEX_STRIP}" "${sdk}/bin/varnexhost.exe")
endif()
varnex_run("${VARNEX_LLVM_DLLTOOL}" -m i386:x86-64 -D Varnex.dll -d "${sdk}/lib/Varnex.def" -l "${sdk}/lib/Varnex.lib")
