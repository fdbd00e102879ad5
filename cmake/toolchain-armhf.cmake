# 32-bit ARM, hard-float ABI (Debian armhf: g++-arm-linux-gnueabihf, qemu-user).
set(TARVIK_CROSS_TRIPLE arm-linux-gnueabihf)
set(TARVIK_CROSS_PROCESSOR arm)
set(TARVIK_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
