# What the build takes from the system, checked when configuring: a missing piece stops the
# configure step with the Debian package that brings it, never a compile error later
# (bash tools/test.sh installs them all).

# tarvik_require(<find_package arguments> DEBIAN <packages> [TARGETS <imported targets>])
macro(tarvik_require name)
  cmake_parse_arguments(_req "" "" "DEBIAN;TARGETS" ${ARGN})
  find_package(${name} ${_req_UNPARSED_ARGUMENTS} QUIET)
  set(_req_missing "")
  if(NOT ${name}_FOUND)
    set(_req_missing ${name})
  endif()
  foreach(_req_target IN LISTS _req_TARGETS)
    if(NOT _req_missing AND NOT TARGET ${_req_target})
      set(_req_missing ${_req_target})
    endif()
  endforeach()
  if(_req_missing)
    list(JOIN _req_DEBIAN " " _req_packages)
    message(FATAL_ERROR "${_req_missing} not found: install the Debian package(s) "
                        "${_req_packages} (apt-get install ${_req_packages}).")
  endif()
endmacro()

# Tests: GoogleTest and GoogleMock, built (TARVIK_GTEST_SOURCE_DIR) or installed.
if(TARVIK_GTEST_SOURCE_DIR)
  if(NOT EXISTS ${TARVIK_GTEST_SOURCE_DIR}/CMakeLists.txt)
    message(FATAL_ERROR "No GoogleTest sources in ${TARVIK_GTEST_SOURCE_DIR}: install the Debian "
                        "package googletest (apt-get install googletest).")
  endif()
else()
  tarvik_require(GTest DEBIAN libgtest-dev libgmock-dev TARGETS GTest::gtest GTest::gmock)
endif()
# nlohmann-json reads the tool's --json output in tests; a header of any architecture's.
find_path(TARVIK_NLOHMANN_JSON_DIR nlohmann/json.hpp NO_CMAKE_FIND_ROOT_PATH)
if(NOT TARVIK_NLOHMANN_JSON_DIR)
  message(FATAL_ERROR "nlohmann/json.hpp not found: install the Debian package "
                      "nlohmann-json3-dev (apt-get install nlohmann-json3-dev).")
endif()
if(TARVIK_BENCH)
  tarvik_require(benchmark DEBIAN libbenchmark-dev TARGETS benchmark::benchmark)
endif()

# Sanitizers and libFuzzer link a runtime of the compiler's: a program must link with them.
set(_tarvik_runtime_flags "")
if(TARVIK_SANITIZE)
  list(JOIN TARVIK_SANITIZE "," _tarvik_san)
  list(APPEND _tarvik_runtime_flags "-fsanitize=${_tarvik_san}")
endif()
if(TARVIK_FUZZ)
  list(APPEND _tarvik_runtime_flags "-fsanitize=fuzzer")
endif()
if(_tarvik_runtime_flags)
  include(CheckCXXSourceCompiles)
  list(JOIN _tarvik_runtime_flags " " CMAKE_REQUIRED_FLAGS)
  set(CMAKE_REQUIRED_LINK_OPTIONS ${_tarvik_runtime_flags})
  set(CMAKE_REQUIRED_QUIET ON)
  set(_tarvik_main "int main() { return 0; }")
  if(TARVIK_FUZZ)
    string(CONCAT _tarvik_main "#include <stddef.h>\n#include <stdint.h>\n"
                  "extern \"C\" int LLVMFuzzerTestOneInput(const uint8_t *, size_t) {\n"
                  "  return 0;\n}\n")
  endif()
  check_cxx_source_compiles("${_tarvik_main}" TARVIK_RUNTIMES_LINK)
  unset(CMAKE_REQUIRED_FLAGS)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(NOT TARVIK_RUNTIMES_LINK)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
      string(REGEX MATCH "^[0-9]+" _major "${CMAKE_CXX_COMPILER_VERSION}")
      set(_package "libclang-rt-${_major}-dev")
    else()
      set(_package
          "the sanitizer runtimes of ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
    endif()
    unset(TARVIK_RUNTIMES_LINK CACHE)
    message(FATAL_ERROR "A program built with ${_tarvik_runtime_flags} does not link: the "
                        "Debian package ${_package} brings the runtimes (apt-get install "
                        "${_package}); if it is installed, these options do not combine.")
  endif()
endif()
