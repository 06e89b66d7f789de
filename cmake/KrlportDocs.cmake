# The `docs` target: the API reference in HTML, from the installed headers
# only (the list krl_public_headers built), with any Doxygen warning an
# error. Configure still succeeds without Doxygen; the target is then absent.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  message(STATUS "Doxygen not found: the docs target is skipped")
  return()
endif()

get_property(_krl_doc_headers GLOBAL PROPERTY KRL_PUBLIC_HEADERS)
set(KRL_DOCS_INPUT "${PROJECT_SOURCE_DIR}/krlport/krlport.h \\\n    ${KRLPORT_GENERATED_INCLUDEDIR}/krlport/version.h")
set(_krl_doc_paths ${PROJECT_SOURCE_DIR}/krlport/krlport.h ${KRLPORT_GENERATED_INCLUDEDIR}/krlport/version.h)
foreach(h ${_krl_doc_headers})
  string(APPEND KRL_DOCS_INPUT " \\\n    ${PROJECT_SOURCE_DIR}/${h}")
  list(APPEND _krl_doc_paths ${PROJECT_SOURCE_DIR}/${h})
endforeach()
set(KRL_DOCS_OUTPUT ${PROJECT_BINARY_DIR}/docs)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${KRL_DOCS_OUTPUT}/Doxyfile @ONLY)

# Runs every time (it takes about a second): a failed run leaves its pages
# behind, and a file-level dependency would then call them up to date.
list(JOIN _krl_doc_paths "|" _krl_doc_paths_arg)
add_custom_target(docs
  COMMAND ${CMAKE_COMMAND} "-DKRL_DOCS_HEADERS=${_krl_doc_paths_arg}"
          -P ${PROJECT_SOURCE_DIR}/cmake/KrlportDocsCheck.cmake
  COMMAND Doxygen::doxygen ${KRL_DOCS_OUTPUT}/Doxyfile
  WORKING_DIRECTORY ${KRL_DOCS_OUTPUT}
  COMMENT "Doxygen: API reference in ${KRL_DOCS_OUTPUT}/html"
  VERBATIM)
