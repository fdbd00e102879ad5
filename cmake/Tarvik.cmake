# Helpers shared by the CMake files of the tree.

# Sources of a directory (non-recursive), re-globbed when files come or go.
function(tarvik_glob out)
  set(_all)
  foreach(_dir IN LISTS ARGN)
    file(GLOB _found CONFIGURE_DEPENDS ${_dir}/*.cpp ${_dir}/*.c)
    list(APPEND _all ${_found})
  endforeach()
  set(${out} ${_all} PARENT_SCOPE)
endfunction()
