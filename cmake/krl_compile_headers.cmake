# cmake -DCOMPILER=... -DSTD=17 -DINCLUDE_DIR=... -DWORK_DIR=... -P krl_compile_headers.cmake
# Compiles every installed header alone, as a user's program includes it: an
# ordinary (not a system) include directory and strict warnings as errors.
# One file per header, all of them in one compiler run.
file(GLOB_RECURSE _headers RELATIVE "${INCLUDE_DIR}" "${INCLUDE_DIR}/*.h")
if(NOT _headers)
  message(FATAL_ERROR "no header under ${INCLUDE_DIR}")
endif()
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
set(_sources)
foreach(h ${_headers})
  string(MAKE_C_IDENTIFIER "${h}" name)
  file(WRITE "${WORK_DIR}/${name}.cpp" "#include <${h}>\n")
  list(APPEND _sources "${WORK_DIR}/${name}.cpp")
endforeach()
execute_process(COMMAND "${COMPILER}" -std=c++${STD} -fsyntax-only
    -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Werror "-I${INCLUDE_DIR}" ${_sources}
  RESULT_VARIABLE rc)
list(LENGTH _headers n)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${n} headers, C++${STD}, ${COMPILER}: not clean")
endif()
message(STATUS "${n} headers compile cleanly alone as C++${STD} with ${COMPILER}")
