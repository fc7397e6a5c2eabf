# 32-bit x86 with the host's multilib compiler.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CROSSCOMPILING_EMULATOR "")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(OSTEL_ARCH i386)
set(OSTEL_ARCH_FLAGS -m32)
include("${CMAKE_CURRENT_LIST_DIR}/OstelSysroot.cmake")
