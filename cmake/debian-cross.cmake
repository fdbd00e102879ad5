# Cross build with a Debian cross compiler (g++-<triple>), its programs run under qemu-user.
# Included by the per-target toolchain files, which set TARVIK_CROSS_TRIPLE,
# TARVIK_CROSS_PROCESSOR and TARVIK_CROSS_QEMU first.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${TARVIK_CROSS_PROCESSOR})

set(CMAKE_C_COMPILER ${TARVIK_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${TARVIK_CROSS_TRIPLE}-g++)

# The target's libraries and headers are the cross compiler's own root; what the tests need
# beyond the C++ runtime is built from source in the tree (GoogleTest) or header-only.
set(TARVIK_CROSS_ROOT /usr/${TARVIK_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH ${TARVIK_CROSS_ROOT})
set(CMAKE_LIBRARY_ARCHITECTURE ${TARVIK_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Every target program (tests, their discovery, the programs tests start) runs under user-mode
# emulation, its dynamic loader and libraries taken from the target's root.
find_program(TARVIK_CROSS_QEMU_PATH ${TARVIK_CROSS_QEMU} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${TARVIK_CROSS_QEMU_PATH} -L ${TARVIK_CROSS_ROOT})

# GCC notes on every std::map instance that the ARM argument passing of some types changed in
# GCC 7: nothing here links code built before that.
string(APPEND CMAKE_CXX_FLAGS_INIT " -Wno-psabi")
