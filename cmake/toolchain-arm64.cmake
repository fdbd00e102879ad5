# 64-bit ARM (Debian arm64: g++-aarch64-linux-gnu, qemu-user).
set(TARVIK_CROSS_TRIPLE aarch64-linux-gnu)
set(TARVIK_CROSS_PROCESSOR aarch64)
set(TARVIK_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
