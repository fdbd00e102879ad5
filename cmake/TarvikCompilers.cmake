# Before project(): a compiler that the preset names but this machine lacks stops the configure
# step with the Debian package that brings it (bash tools/test.sh installs them all).
foreach(_lang IN ITEMS C CXX)
  set(_compiler "${CMAKE_${_lang}_COMPILER}")
  if(NOT _compiler OR IS_ABSOLUTE "${_compiler}")
    continue()
  endif()
  find_program(_tarvik_compiler_path NAMES ${_compiler} NO_CACHE)
  if(_tarvik_compiler_path)
    continue()
  endif()
  # clang++ -> clang; aarch64-linux-gnu-g++ -> g++-aarch64-linux-gnu, and with a version
  # arm-linux-gnueabihf-g++-12 -> g++-12-arm-linux-gnueabihf
  if(_compiler MATCHES "^clang")
    set(_package clang)
  elseif(_compiler MATCHES "^(.+)-(gcc|g\\+\\+)(-[0-9]+)?$")
    set(_package "${CMAKE_MATCH_2}${CMAKE_MATCH_3}-${CMAKE_MATCH_1}")
  else()
    set(_package "${_compiler}")
  endif()
  message(FATAL_ERROR "The compiler ${_compiler} is not installed: install the Debian package "
                      "${_package} (apt-get install ${_package}).")
endforeach()
