# What `cmake --install` lays out, and what makes the shipped DLL fit to be shipped. scripts/package.sh zips the result.
include(CMakePackageConfigHelpers)

if(MINGW)
  # With symbols, which are taken into a file of their own at installation; small rather than fast, for a measurement a
  # minute; and without the name of the build folder, which the compiler writes beside the name of each source.
  add_library(varnex_shipped INTERFACE)
  target_compile_options(varnex_shipped INTERFACE
    $<$<CONFIG:Release>:-O2>
    $<$<CONFIG:Release>:-g>
    "-ffile-prefix-map=${CMAKE_BINARY_DIR}=.")
  target_link_libraries(varnex_objects PRIVATE varnex_shipped)
  # An exception that nobody catches ends the process, silently: the run-time library's own handler would write to the
  # host's error stream, and brings 45 KB of name decoding for it.
  target_link_options(Varnex PRIVATE "LINKER:--defsym=_ZN9__gnu_cxx27__verbose_terminate_handlerEv=abort")
  # Each section begins at a page of the file, so that a loader can map it where it would have to read and copy it.
  target_link_options(Varnex PRIVATE "LINKER:--file-alignment,4096")
endif()

# The import library goes to lib/ under the name that its linker looks for: libVarnex.dll.a, or Varnex.lib.
install(TARGETS Varnex RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
if(TARGET varnexhost)
  install(TARGETS varnexhost RUNTIME DESTINATION bin)
endif()
install(FILES include/varnex/Varnex.h DESTINATION include/varnex)
install(FILES src/entry/Varnex.def DESTINATION lib)
install(FILES examples/KpmCfg.xml DESTINATION examples)
install(FILES CHANGELOG.md DESTINATION .)
# Of what varnexhost contains.
install(FILES third_party/uplot/LICENSE DESTINATION licenses RENAME uPlot.txt)
install(FILES third_party/licenses/CLI11.txt third_party/licenses/nlohmann-json.txt third_party/licenses/zlib.txt
  DESTINATION licenses)
install(DIRECTORY docs DESTINATION . FILES_MATCHING PATTERN "*.md" PATTERN "*.xsd")

configure_file(cmake/package/README.md.in "${CMAKE_CURRENT_BINARY_DIR}/package-files/README.md" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/package-files/README.md" DESTINATION .)

write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/package-files/VarnexConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  cmake/package/VarnexConfig.cmake
  cmake/package/VarnexTargets.cmake
  "${CMAKE_CURRENT_BINARY_DIR}/package-files/VarnexConfigVersion.cmake"
  DESTINATION lib/cmake/Varnex)

if(MINGW)
  find_program(VARNEX_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 llvm-dlltool-19)
  install(CODE "
    set(VARNEX_OBJCOPY [[${CMAKE_OBJCOPY}]])
    set(VARNEX_STRIP [[${CMAKE_STRIP}]])
    set(VARNEX_LLVM_DLLTOOL [[${VARNEX_LLVM_DLLTOOL}]])
    include([[${CMAKE_CURRENT_LIST_DIR}/package/FinishInstallation.cmake]])")
elseif(MSVC)
  install(FILES "$<TARGET_PDB_FILE:Varnex>" DESTINATION symbols)
endif()

if(VARNEX_BUILD_TESTS AND EXISTS "${PROJECT_SOURCE_DIR}/tests/package/CMakeLists.txt")
  add_subdirectory(tests/package)
endif()
