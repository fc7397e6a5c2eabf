# Shared by the toolchain files: builds against the libraries in sysroot/OSTEL_ARCH, which
# scripts/sysroot makes. Programs run in place: the run path names the sysroot, and is kept as the
# inherited kind so that the libraries' own dependencies are found there as well.
set(CMAKE_SYSTEM_NAME Linux)
set(OSTEL_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../sysroot/${OSTEL_ARCH}")
cmake_path(NORMAL_PATH OSTEL_SYSROOT)
set(OSTEL_SYSROOT_LIB "${OSTEL_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
# Headers that differ between architectures stand apart from those that pkg-config names.
string(STRIP "${OSTEL_ARCH_FLAGS} -isystem ${OSTEL_SYSROOT}/usr/include/${CMAKE_LIBRARY_ARCHITECTURE}"
       OSTEL_ARCH_FLAGS)
set(CMAKE_C_FLAGS_INIT "${OSTEL_ARCH_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${OSTEL_ARCH_FLAGS}")
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT
      "-Wl,--disable-new-dtags -Wl,-rpath,${OSTEL_SYSROOT_LIB} -Wl,-rpath-link,${OSTEL_SYSROOT_LIB} -L${OSTEL_SYSROOT_LIB}")
endforeach()
set(ENV{PKG_CONFIG_LIBDIR} "${OSTEL_SYSROOT_LIB}/pkgconfig:${OSTEL_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${OSTEL_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH "${OSTEL_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
