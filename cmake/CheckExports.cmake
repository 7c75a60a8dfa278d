# cmake -DNM=<nm> -DLIBRARY=<shared library> -DLIST=<file> -P CheckExports.cmake
#
# Fails unless the library's dynamic symbols are exactly those of the list, one name per line.
execute_process(COMMAND ${NM} --dynamic --defined-only --format=posix ${LIBRARY}
  OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${table}")
foreach(line IN LISTS lines)
  # name[@version] type value size; a version's own name is an absolute symbol (A)
  if(line MATCHES "^([^ @]+)[^ ]* ([^ ]) " AND NOT CMAKE_MATCH_2 STREQUAL "A")
    list(APPEND exported ${CMAKE_MATCH_1})
  endif()
endforeach()
file(STRINGS ${LIST} expected)

set(surplus ${exported})
list(REMOVE_ITEM surplus ${expected})
set(absent ${expected})
list(REMOVE_ITEM absent ${exported})
if(surplus OR absent)
  message(FATAL_ERROR "${LIBRARY}\nexports beside the list: ${surplus}\ndoes not export: ${absent}")
endif()
