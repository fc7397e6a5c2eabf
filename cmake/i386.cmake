# 32-bit x86 with the host's multilib compiler, against the libraries in sysroot/i386
# (made by scripts/sysroot). Programs run in place: the run path names the sysroot, and is kept as
# the inherited kind so that the libraries' own dependencies are found there as well.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CROSSCOMPILING_EMULATOR "")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(OSTEL_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../sysroot/i386")
cmake_path(NORMAL_PATH OSTEL_SYSROOT)
set(OSTEL_SYSROOT_LIB "${OSTEL_SYSROOT}/usr/lib/i386-linux-gnu")
# Headers that differ between word sizes stand apart from those that pkg-config names.
set(OSTEL_I386_FLAGS "-m32 -isystem ${OSTEL_SYSROOT}/usr/include/i386-linux-gnu")
set(CMAKE_C_FLAGS_INIT "${OSTEL_I386_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${OSTEL_I386_FLAGS}")
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
