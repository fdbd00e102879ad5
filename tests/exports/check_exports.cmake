# Holds the built library to the list of exports (modem/exports.txt):
#  - the dynamic symbols the library defines are exactly the list, C++ signatures included;
#  - every symbol its own objects mark for export (default visibility, strong definition) is in
#    the list, so an export added in the code but not to the list fails too.
# Run by ctest: cmake -DNM=... -DREADELF=... -DLIB=... -DOBJECTS=a|b|... -DLIST=... -P this.
foreach(_var NM READELF LIB OBJECTS LIST)
  if(NOT DEFINED ${_var})
    message(FATAL_ERROR "check_exports: ${_var} not given")
  endif()
endforeach()

file(STRINGS ${LIST} _listed)
set(_sorted ${_listed})
list(SORT _sorted)
if(NOT _sorted STREQUAL _listed)
  message(FATAL_ERROR "${LIST} is not sorted (LC_ALL=C sort)")
endif()
list(REMOVE_DUPLICATES _sorted)
if(NOT _sorted STREQUAL _listed)
  message(FATAL_ERROR "${LIST} names a symbol twice")
endif()

# Dynamic symbols defined by the library, demangled.
execute_process(COMMAND ${NM} -D --defined-only -C ${LIB}
                OUTPUT_VARIABLE _nm RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIB}")
endif()
string(REPLACE "\n" ";" _nm_lines "${_nm}")
set(_exported "")
foreach(_line IN LISTS _nm_lines)
  if(_line MATCHES "^[0-9a-f]+ [A-Za-z] (.+)$")
    list(APPEND _exported "${CMAKE_MATCH_1}")
  endif()
endforeach()

# Symbols the library's objects define with default visibility and strong binding.
string(REPLACE "|" ";" _objects "${OBJECTS}")
execute_process(COMMAND ${READELF} -sW -C ${_objects}
                OUTPUT_VARIABLE _elf RESULT_VARIABLE _rc)
if(NOT _rc EQUAL 0)
  message(FATAL_ERROR "${READELF} failed on the library's objects")
endif()
string(REPLACE "\n" ";" _elf_lines "${_elf}")
set(_marked "")
foreach(_line IN LISTS _elf_lines)
  if(_line MATCHES "^ *[0-9]+: [0-9a-f]+ +[0-9a-fx]+ (FUNC|OBJECT|TLS) +GLOBAL +DEFAULT +[0-9]+ (.+)$")
    list(APPEND _marked "${CMAKE_MATCH_2}")
  endif()
endforeach()

set(_missing ${_listed})
list(REMOVE_ITEM _missing ${_exported})
set(_extra ${_exported})
list(REMOVE_ITEM _extra ${_listed})
set(_unlisted ${_marked})
list(REMOVE_ITEM _unlisted ${_listed})
list(REMOVE_DUPLICATES _unlisted)

set(_report "")
foreach(_kind missing extra unlisted)
  foreach(_sym IN LISTS _${_kind})
    string(APPEND _report "  ${_kind}: ${_sym}\n")
  endforeach()
endforeach()
list(LENGTH _listed _count)
if(_report)
  message(FATAL_ERROR
          "The exported interface of ${LIB} differs from ${LIST}.\n"
          "missing: listed but not exported (removed, or its C++ signature changed); "
          "extra: exported but not listed; unlisted: marked for export in the code but not "
          "listed.\nChange the code or, on purpose, the list.\n${_report}")
endif()
message(STATUS "${_count} exports match ${LIST}")
