include(CMakePackageConfigHelpers)

install(TARGETS krlport krlport_static EXPORT krlportTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

get_property(_krl_headers GLOBAL PROPERTY KRL_PUBLIC_HEADERS)
foreach(h ${_krl_headers})
  get_filename_component(dir ${h} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${h} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${dir})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/krlport/krlport.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krlport)
install(FILES ${KRLPORT_GENERATED_INCLUDEDIR}/krlport/version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/krlport)

set(_krl_cmakedir ${CMAKE_INSTALL_LIBDIR}/cmake/krlport)
install(EXPORT krlportTargets NAMESPACE krlport:: DESTINATION ${_krl_cmakedir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/krlportConfig.cmake.in
  ${PROJECT_BINARY_DIR}/krlportConfig.cmake INSTALL_DESTINATION ${_krl_cmakedir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/krlportConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/krlportConfig.cmake ${PROJECT_BINARY_DIR}/krlportConfigVersion.cmake
  DESTINATION ${_krl_cmakedir})

# The .pc file finds the prefix from its own place: libdir may be lib,
# lib64 or lib/<multiarch>.
file(RELATIVE_PATH KRL_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/krlport.pc.in ${PROJECT_BINARY_DIR}/krlport.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/krlport.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
