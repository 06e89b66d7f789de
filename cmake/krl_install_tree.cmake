# cmake -DBUILD_DIR=... -DPREFIX=... [-DCONFIG=...] -P krl_install_tree.cmake
# A fresh install of the build tree under PREFIX, for the checks over an
# installed tree: a file left from an earlier install would hide a missing one.
file(REMOVE_RECURSE "${PREFIX}")
set(_config)
if(CONFIG)
  set(_config --config "${CONFIG}")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${PREFIX}" ${_config}
  OUTPUT_QUIET RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${rc}")
endif()
