if(TARGET Varnex::Varnex)
  return()
endif()

get_filename_component(_varnex_sdk "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
# Two import libraries for the one DLL: each family of linkers has its own.
if(MINGW)
  set(_varnex_import_library "${_varnex_sdk}/lib/libVarnex.dll.a")
else()
  set(_varnex_import_library "${_varnex_sdk}/lib/Varnex.lib")
endif()

foreach(_varnex_file "${_varnex_sdk}/bin/Varnex.dll" "${_varnex_import_library}"
                     "${_varnex_sdk}/include/varnex/Varnex.h")
  if(NOT EXISTS "${_varnex_file}")
    message(FATAL_ERROR "The Varnex package is not complete: ${_varnex_file} is missing.")
  endif()
endforeach()

add_library(Varnex::Varnex SHARED IMPORTED)
set_target_properties(Varnex::Varnex PROPERTIES
  IMPORTED_LOCATION "${_varnex_sdk}/bin/Varnex.dll"
  IMPORTED_IMPLIB "${_varnex_import_library}"
  INTERFACE_INCLUDE_DIRECTORIES "${_varnex_sdk}/include")

unset(_varnex_file)
unset(_varnex_import_library)
unset(_varnex_sdk)
