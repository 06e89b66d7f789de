# Small helpers so that a subsystem's library sources, public headers and
# tests are each one short stanza in its CMakeLists.txt.

set(KRL_WARNINGS -Wall -Wextra -Wpedantic -Wno-unused-parameter)
set_property(GLOBAL PROPERTY KRL_PUBLIC_HEADERS "")

# Sanitizers apply to everything: library, tests, examples and benchmarks.
macro(krl_apply_sanitizers)
  if(KRLPORT_SANITIZE)
    string(REPLACE ";" "," _krl_san "${KRLPORT_SANITIZE}")
    add_compile_options(-fsanitize=${_krl_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${_krl_san})
  endif()
endmacro()

# krl_sources(a.cpp b.cpp ...): library sources of the calling subsystem.
function(krl_sources)
  foreach(src ${ARGN})
    target_sources(krlport_objects PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${src})
  endforeach()
endfunction()

# krl_platform_sources(lock event ...): for each concern, the backend of the
# system being built: <concern>_win.cpp on Windows, <concern>_posix.cpp else.
function(krl_platform_sources)
  if(WIN32)
    set(suffix _win.cpp)
  else()
    set(suffix _posix.cpp)
  endif()
  foreach(concern ${ARGN})
    target_sources(krlport_objects PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${concern}${suffix})
  endforeach()
endfunction()

# krl_public_headers(a.h ...): headers that `cmake --install` ships. Headers of
# a subsystem that are not listed here are internal and never installed.
function(krl_public_headers)
  file(RELATIVE_PATH rel ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  foreach(h ${ARGN})
    set_property(GLOBAL APPEND PROPERTY KRL_PUBLIC_HEADERS "${rel}/${h}")
  endforeach()
endfunction()

# krl_test(NAME n SOURCES ... [LIBS ...] [SHARED | NOLIB] [POSIX_ONLY]): one GoogleTest
# binary, registered case by case with CTest. Tests link the static library so
# they can reach internal classes; SHARED links the exported library instead,
# and NOLIB neither (a test that loads the shared library itself). Every test
# binary runs in a temporary directory of its own, which KORLAN_ADM names
# (cmake/krl_test_sandbox.cpp), so that no test writes anywhere else.
# POSIX_ONLY marks a binary whose subject exists on Linux only (fork, ELF
# symbol tables, /proc): it is not built for Windows.
function(krl_test)
  if(NOT KRLPORT_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(T "SHARED;NOLIB;POSIX_ONLY" "NAME" "SOURCES;LIBS;LABELS" ${ARGN})
  if(T_POSIX_ONLY AND WIN32)
    return()
  endif()
  add_executable(${T_NAME} ${T_SOURCES} ${PROJECT_SOURCE_DIR}/cmake/krl_test_sandbox.cpp)
  if(T_SHARED)
    target_link_libraries(${T_NAME} PRIVATE krlport)
  elseif(T_NOLIB)
    target_include_directories(${T_NAME} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${T_NAME} PRIVATE ${CMAKE_DL_LIBS})
  else()
    target_link_libraries(${T_NAME} PRIVATE krlport_static)
  endif()
  target_link_libraries(${T_NAME} PRIVATE GTest::gtest GTest::gtest_main Threads::Threads ${T_LIBS})
  target_compile_options(${T_NAME} PRIVATE ${KRL_WARNINGS})
  if(CMAKE_CROSSCOMPILING)
    # Listed when ctest runs, through the emulator, not while building. The
    # first listing makes the Wine prefix (10-30 s, longer on a busy machine).
    gtest_discover_tests(${T_NAME} DISCOVERY_TIMEOUT 300 DISCOVERY_MODE PRE_TEST
      PROPERTIES LABELS "${T_LABELS}")
  else()
    gtest_discover_tests(${T_NAME} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS "${T_LABELS}")
  endif()
endfunction()
