# Debian's multiarch library directory under every prefix, not only /usr: the dynamic linker,
# pkg-config and find_package search it under /usr/local as well, and the libraries of another
# architecture (a cross build) install beside the host's. Set before any subdirectory can
# include GNUInstallDirs (a GoogleTest built in the tree does), which would settle it to lib.
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT DEFINED CACHE{CMAKE_INSTALL_LIBDIR})
  set(CMAKE_INSTALL_LIBDIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}"
      CACHE PATH "Object code libraries (LIBDIR)")
endif()
