# find_package(Varnex): gives the target Varnex::Varnex. Nothing in here names a folder of the machine that built it, so
# the package may lie anywhere.
if(NOT WIN32)
  set(Varnex_FOUND FALSE)
  set(Varnex_NOT_FOUND_MESSAGE "Varnex is a DLL for 64-bit Windows; this project is configured for ${CMAKE_SYSTEM_NAME}.")
  return()
endif()

include("${CMAKE_CURRENT_LIST_DIR}/VarnexTargets.cmake")
