# Header-only libraries of the tools and tests, from the distribution's packages. Each is linked into the build
# tree by itself: the system include folder on the cross compiler's path would bring the host's C headers. The test
# framework is the exception: it lies in third_party/, so that every system has the same version.
set(VARNEX_THIRD_PARTY_DIR "${CMAKE_BINARY_DIR}/third_party")

function(varnex_link_header_tree name)
  foreach(prefix /usr/include /usr/local/include)
    if(EXISTS "${prefix}/${name}")
      file(MAKE_DIRECTORY "${VARNEX_THIRD_PARTY_DIR}")
      file(CREATE_LINK "${prefix}/${name}" "${VARNEX_THIRD_PARTY_DIR}/${name}" SYMBOLIC)
      return()
    endif()
  endforeach()
  message(FATAL_ERROR "The headers '${name}' are not installed; scripts/setup.sh installs what the build needs.")
endfunction()

if(NOT MSVC)
  if(VARNEX_BUILD_TESTS OR VARNEX_BUILD_TOOLS)
    varnex_link_header_tree(rapidxml)
  endif()
  if(VARNEX_BUILD_TOOLS)
    varnex_link_header_tree(CLI)
    varnex_link_header_tree(nlohmann)
  endif()
endif()

add_library(varnex_third_party INTERFACE)
target_include_directories(varnex_third_party SYSTEM INTERFACE "${VARNEX_THIRD_PARTY_DIR}"
                                                               "${PROJECT_SOURCE_DIR}/third_party")
