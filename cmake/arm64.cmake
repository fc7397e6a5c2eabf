# 64-bit ARM.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(OSTEL_ARCH arm64)
set(OSTEL_EMULATED aarch64)
include("${CMAKE_CURRENT_LIST_DIR}/OstelCross.cmake")
