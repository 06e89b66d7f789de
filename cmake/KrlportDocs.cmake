# The `docs` target: the API reference in HTML, from the installed headers
# only (the list krl_public_headers built), with any Doxygen warning an
# error. Configure still succeeds without Doxygen; the target is then absent.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  message(STATUS "Doxygen not found: the docs target is skipped")
  return()
endif()

get_property(_krl_doc_headers GLOBAL PROPERTY KRL_PUBLIC_HEADERS)
set(KRL_DOCS_INPUT "${PROJECT_SOURCE_DIR}/krlport/krlport.h")
set(_krl_doc_deps ${PROJECT_SOURCE_DIR}/krlport/krlport.h ${PROJECT_SOURCE_DIR}/docs/Doxyfile.in)
foreach(h ${_krl_doc_headers})
  string(APPEND KRL_DOCS_INPUT " \\\n    ${PROJECT_SOURCE_DIR}/${h}")
  list(APPEND _krl_doc_deps ${PROJECT_SOURCE_DIR}/${h})
endforeach()
set(KRL_DOCS_OUTPUT ${PROJECT_BINARY_DIR}/docs)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${KRL_DOCS_OUTPUT}/Doxyfile @ONLY)

add_custom_command(
  OUTPUT ${KRL_DOCS_OUTPUT}/html/index.html
  COMMAND ${CMAKE_COMMAND} -E remove -f ${KRL_DOCS_OUTPUT}/warnings.log
  COMMAND Doxygen::doxygen ${KRL_DOCS_OUTPUT}/Doxyfile
  DEPENDS ${_krl_doc_deps} ${KRL_DOCS_OUTPUT}/Doxyfile
  WORKING_DIRECTORY ${KRL_DOCS_OUTPUT}
  COMMENT "Doxygen: API reference in ${KRL_DOCS_OUTPUT}/html"
  VERBATIM)
add_custom_target(docs DEPENDS ${KRL_DOCS_OUTPUT}/html/index.html)
