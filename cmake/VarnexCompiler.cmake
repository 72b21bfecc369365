# What every target of the project is built with: `target_link_libraries(x PRIVATE varnex_build)`.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)

add_library(varnex_build INTERFACE)
target_compile_definitions(varnex_build INTERFACE
  WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601 UNICODE _UNICODE)

if(MSVC)
  # Written with care; nobody on the team has run this compiler yet.
  target_compile_options(varnex_build INTERFACE /W4 /WX /permissive- /utf-8 /guard:cf)
  target_compile_definitions(varnex_build INTERFACE _CRT_SECURE_NO_WARNINGS)
  # Symbols, which the installation takes along: /Zi here, and /DEBUG, which by itself keeps what nobody uses.
  set(CMAKE_MSVC_DEBUG_INFORMATION_FORMAT ProgramDatabase)
  # Hardening that is not the linker's default: checked jumps, and the shadow stack.
  target_link_options(varnex_build INTERFACE /DEBUG /OPT:REF /OPT:ICF /guard:cf /CETCOMPAT)
else()
  target_compile_options(varnex_build INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
    -ffunction-sections -fdata-sections
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
  target_link_options(varnex_build INTERFACE
    -static
    -Wl,--gc-sections
    # Hardening: address space randomisation, no execution of data.
    -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va
    # The same commit gives the same bytes: no time stamp, no image base hashed from the output path.
    -Wl,--no-insert-timestamp -Wl,--disable-auto-image-base)
  if(VARNEX_UBSAN)
    target_compile_options(varnex_build INTERFACE
      -fsanitize=undefined -fsanitize-undefined-trap-on-error)
  endif()
endif()

if(VARNEX_COVERAGE)
  # Counts what of src/ a test runs: scripts/coverage.sh. Everything else is built as in the release.
  add_library(varnex_counted INTERFACE)
  target_compile_options(varnex_counted INTERFACE --coverage -O0)
  # At the end of the top folder, so that -O0 comes behind the optimisation that the package asks for.
  cmake_language(DEFER CALL target_link_libraries varnex_objects PRIVATE varnex_counted)
  cmake_language(DEFER CALL target_link_options varnex_system INTERFACE --coverage)
endif()
