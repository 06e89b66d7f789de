include(CMakePackageConfigHelpers)

# Two install components, split as a distribution splits a library:
# Runtime is what a program needs to run (the shared library under its
# soname), Development what it needs to be built (headers, the .so link, the
# static library, the CMake package and krlport.pc). Whatever is installed
# without a component of its own is for building.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME Development)

install(TARGETS krlport krlport_static EXPORT krlportTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)

get_property(_krl_headers GLOBAL PROPERTY KRL_PUBLIC_HEADERS)
foreach(h ${_krl_headers})
  get_filename_component(dir ${h} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${h} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${dir}
    COMPONENT Development)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/krlport/krlport.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krlport
  COMPONENT Development)
install(FILES ${KRLPORT_GENERATED_INCLUDEDIR}/krlport/version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krlport
  COMPONENT Development)

set(_krl_cmakedir ${CMAKE_INSTALL_LIBDIR}/cmake/krlport)
install(EXPORT krlportTargets NAMESPACE krlport:: DESTINATION ${_krl_cmakedir}
  COMPONENT Development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/krlportConfig.cmake.in
  ${PROJECT_BINARY_DIR}/krlportConfig.cmake INSTALL_DESTINATION ${_krl_cmakedir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/krlportConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/krlportConfig.cmake ${PROJECT_BINARY_DIR}/krlportConfigVersion.cmake
  DESTINATION ${_krl_cmakedir} COMPONENT Development)

# The .pc file finds the prefix from its own place: libdir may be lib,
# lib64 or lib/<multiarch>.
file(RELATIVE_PATH KRL_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
# -lkrlport_r_6 finds the import library libkrlport_r_6.dll.a before the
# static libkrlport_r_6.a on Windows, as it finds the .so before the .a here;
# a static link needs the system libraries as well.
if(WIN32)
  list(TRANSFORM KRLPORT_WIN32_LIBS PREPEND -l OUTPUT_VARIABLE KRL_PC_LIBS_PRIVATE)
  string(REPLACE ";" " " KRL_PC_LIBS_PRIVATE "${KRL_PC_LIBS_PRIVATE}")
else()
  set(KRL_PC_LIBS_PRIVATE "-ldl -lpthread")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/krlport.pc.in ${PROJECT_BINARY_DIR}/krlport.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/krlport.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT Development)

# Debian packages, one per component (cpack -G DEB in the build tree):
# libkrlport6 with the shared library, libkrlport-dev with the rest, which
# depends on exactly the same version of libkrlport6. Configure with
# CMAKE_INSTALL_PREFIX=/usr so that the library lands in the multiarch
# directory, as .ci/package checks.
set(CPACK_PACKAGE_NAME krlport)
set(CPACK_PACKAGE_VENDOR "krlport")
set(CPACK_PACKAGE_CONTACT "krlport maintainers <krlport@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Portability and foundation library under a CORBA object request broker")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkrlport${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# A shlibs file and the ldconfig trigger, as a distribution's library package has.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "The shared library libkrlport_r_${PROJECT_VERSION_MAJOR}, for programs built against it.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkrlport-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libkrlport${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
  "Headers, the static library, the CMake package and the pkg-config file.")
include(CPack)

# Checks over an installed tree. install_tree installs the build under
# install-check/ of the build tree; the checks that read it require it.
if(KRLPORT_BUILD_TESTS)
  set(_krl_check_prefix ${PROJECT_BINARY_DIR}/install-check)
  add_test(NAME install_tree COMMAND ${CMAKE_COMMAND} -DBUILD_DIR=${PROJECT_BINARY_DIR}
    -DPREFIX=${_krl_check_prefix} -DCONFIG=$<CONFIG> -P ${PROJECT_SOURCE_DIR}/cmake/krl_install_tree.cmake)
  set_tests_properties(install_tree PROPERTIES FIXTURES_SETUP krl_install_tree LABELS install)

  # Every function the installed headers declare out of line is a dynamic
  # symbol of the shared library, and none is internal: a declaration that
  # is not links against the static library and fails against the shared one.
  find_package(Python3 COMPONENTS Interpreter QUIET)
  if(NOT WIN32)
    find_program(KRL_CLANGXX NAMES clang++ clang++-14)
  endif()
  if(WIN32)
    # It reads the ELF dynamic symbols of the .so; the DLL's export table is
    # the export test's subject on Windows.
    message(STATUS "Windows build: installed_headers_exported is skipped (it reads an ELF library)")
  elseif(Python3_Interpreter_FOUND AND KRL_CLANGXX)
    add_test(NAME installed_headers_exported COMMAND Python3::Interpreter
      ${PROJECT_SOURCE_DIR}/cmake/krl_check_exports.py ${KRL_CLANGXX}
      ${_krl_check_prefix}/${CMAKE_INSTALL_INCLUDEDIR}
      ${_krl_check_prefix}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:krlport> ${CMAKE_NM})
    set_tests_properties(installed_headers_exported PROPERTIES FIXTURES_REQUIRED krl_install_tree
      LABELS install)
  else()
    message(STATUS "python3 or clang++ not found: installed_headers_exported is skipped")
  endif()

  # Each installed header compiles alone, included as an ordinary header
  # (a pkg-config user's -I), with strict warnings as errors. For Windows the
  # cross compiler checks them, with the Winsock side of the network headers.
  if(CMAKE_CROSSCOMPILING)
    set(KRL_GXX ${CMAKE_CXX_COMPILER})
  else()
    find_program(KRL_GXX NAMES g++)
  endif()
  foreach(_krl_cxx IN ITEMS KRL_GXX KRL_CLANGXX)
    if(NOT ${_krl_cxx})
      continue()
    endif()
    string(TOLOWER ${_krl_cxx} _krl_name)
    string(REGEX REPLACE "^krl_" "" _krl_name ${_krl_name})
    foreach(_krl_std 17 20)
      set(_krl_test installed_headers_compile_${_krl_name}_cxx${_krl_std})
      add_test(NAME ${_krl_test} COMMAND ${CMAKE_COMMAND} -DCOMPILER=${${_krl_cxx}}
        -DSTD=${_krl_std} -DINCLUDE_DIR=${_krl_check_prefix}/${CMAKE_INSTALL_INCLUDEDIR}
        -DWORK_DIR=${PROJECT_BINARY_DIR}/${_krl_test}
        -P ${PROJECT_SOURCE_DIR}/cmake/krl_compile_headers.cmake)
      set_tests_properties(${_krl_test} PROPERTIES FIXTURES_REQUIRED krl_install_tree LABELS install)
    endforeach()
  endforeach()
endif()
