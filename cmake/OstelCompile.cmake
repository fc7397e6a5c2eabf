# How every target of the project is compiled: the language, the warnings, the sanitizers, and
# file names in messages that start at the project's root.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

if(OSTEL_SANITIZE)
  add_compile_options(-fsanitize=${OSTEL_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${OSTEL_SANITIZE})
endif()

option(OSTEL_SMALL "Make the library as small as its optimisation allows" OFF)
if(OSTEL_SMALL)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  # Functions and loops begin where the last one ended, none is split into a hot and a cold part,
  # and what nobody needs is left out.
  add_compile_options(-ffunction-sections -fdata-sections
                      -falign-functions=1 -falign-jumps=1 -falign-loops=1
                      -fno-reorder-blocks-and-partition)
  # Nor is data aligned for more than it needs, on x86, where GCC does so.
  include(CheckCXXCompilerFlag)
  check_cxx_compiler_flag(-malign-data=abi OSTEL_ALIGNS_DATA)
  if(OSTEL_ALIGNS_DATA)
    add_compile_options(-malign-data=abi)
    add_link_options(-malign-data=abi)
  endif()
  # The library's own calls need no way around, and its segments share pages.
  add_link_options(-Wl,--gc-sections
    "$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:-Wl,-Bsymbolic-functions,-z,noseparate-code>")
endif()

add_library(ostel_build INTERFACE)
target_compile_options(ostel_build INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wcast-qual
  -Wformat-security -Wundef -Wmissing-declarations -Wnull-dereference -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual
    -Wextra-semi -Wzero-as-null-pointer-constant>
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
# Only interfaces that OpenSSL 1.1.1 and 3.x both have.
target_compile_definitions(ostel_build INTERFACE OPENSSL_API_COMPAT=0x10101000L)
target_link_options(ostel_build INTERFACE -Wl,--as-needed)
if(OSTEL_SANITIZE)
  # The compiler's instrumentation makes it see uninitialised values in the standard library's own
  # regular expressions; the plain builds still stop at this warning.
  target_compile_options(ostel_build INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
else()
  target_link_options(ostel_build INTERFACE -Wl,--no-undefined)
endif()
