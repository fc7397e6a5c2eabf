# Shared by the toolchain files of ARM: Debian's cross compiler from the sysroot, and an emulator that
# runs what it builds.
include("${CMAKE_CURRENT_LIST_DIR}/OstelSysroot.cmake")
set(CMAKE_C_COMPILER "${OSTEL_SYSROOT}/cross/gcc")
set(CMAKE_CXX_COMPILER "${OSTEL_SYSROOT}/cross/g++")
foreach(tool IN ITEMS AR RANLIB NM OBJCOPY OBJDUMP READELF STRIP)
  string(TOLOWER ${tool} name)
  set(CMAKE_${tool} "${OSTEL_SYSROOT}/cross/${name}")
endforeach()
set(CMAKE_SYSROOT "${OSTEL_SYSROOT}")
set(CMAKE_CROSSCOMPILING_EMULATOR
    "qemu-${OSTEL_EMULATED};-L;${OSTEL_SYSROOT}/usr/${CMAKE_LIBRARY_ARCHITECTURE}")
