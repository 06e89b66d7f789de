# The Windows build (mingw-w64, cmake/mingw-w64-x86_64.cmake), run under Wine
# when cross-built from Linux.
#
# GoogleTest has no mingw package: its sources (Debian's /usr/src/googletest)
# are built with the project. Programs and DLLs all go to one directory, so a
# test program finds krlport_r_6.dll beside itself, as Windows looks first.

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

set(KRLPORT_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH
  "GoogleTest sources, built with the project when cross-compiling")
if(CMAKE_CROSSCOMPILING AND NOT KRLPORT_BUILD_TESTS STREQUAL "OFF"
   AND EXISTS ${KRLPORT_GTEST_SOURCE_DIR}/CMakeLists.txt)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(${KRLPORT_GTEST_SOURCE_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set(GTest_FOUND TRUE)
  set(KRLPORT_BUILD_TESTS ON)
endif()

# Tests run under Wine through krl-wine, a wrapper made here for this build
# tree: its own WINEPREFIX, no debugger (a crash must fail the test), the
# mingw runtime DLLs on WINEPATH.
if(CMAKE_CROSSCOMPILING)
  find_program(KRLPORT_WINE NAMES wine64 wine)
  find_program(KRLPORT_WINESERVER NAMES wineserver)
  get_filename_component(_krl_cxx_dir ${CMAKE_CXX_COMPILER} DIRECTORY)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libstdc++-6.dll
    OUTPUT_VARIABLE _krl_libstdcxx OUTPUT_STRIP_TRAILING_WHITESPACE)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libwinpthread-1.dll
    OUTPUT_VARIABLE _krl_winpthread OUTPUT_STRIP_TRAILING_WHITESPACE)
  get_filename_component(_krl_rt1 ${_krl_libstdcxx} DIRECTORY)
  get_filename_component(_krl_rt2 ${_krl_winpthread} DIRECTORY)
  set(KRLPORT_WINEPATH "${PROJECT_BINARY_DIR}/bin;${_krl_rt1};${_krl_rt2}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/krl-wine.in ${PROJECT_BINARY_DIR}/krl-wine @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${PROJECT_BINARY_DIR}/krl-wine)
endif()
