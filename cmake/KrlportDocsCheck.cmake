# Run by the docs target: every documented header opens with a @file comment.
# Doxygen checks the members of a documented file only, so a header without
# one would let its undocumented free functions pass without a warning.
# Input: KRL_DOCS_HEADERS, paths separated by |.
string(REPLACE "|" ";" _headers "${KRL_DOCS_HEADERS}")
set(_missing "")
foreach(h ${_headers})
  file(STRINGS "${h}" _file_doc REGEX "^/// @file" LIMIT_COUNT 1)
  if(NOT _file_doc)
    list(APPEND _missing "${h}")
  endif()
endforeach()
if(_missing)
  list(JOIN _missing "\n  " _list)
  message(FATAL_ERROR "headers without a /// @file comment:\n  ${_list}")
endif()
