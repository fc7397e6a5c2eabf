# 32-bit ARM with hardware floating point.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(OSTEL_ARCH armhf)
# The compiler would tell, at each use, of a change between versions that nobody mixes here.
set(OSTEL_ARCH_FLAGS -Wno-psabi)
set(OSTEL_EMULATED arm)
include("${CMAKE_CURRENT_LIST_DIR}/OstelCross.cmake")
