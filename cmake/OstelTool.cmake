# ostel_tool(TARGET)
# A program for people: finds the library beside it in whatever prefix both are installed, and has a
# man page that is made from its own help. That takes running it, which a cross build can only with
# an emulator; a program with a sanitizer in it is not for installing.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

if(NOT CMAKE_CROSSCOMPILING OR DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  set(runs_here TRUE)
endif()

function(ostel_tool target)
  file(RELATIVE_PATH to_library "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")
  if(OSTEL_SANITIZE)
    # All that it does itself is to read its command line; optimised, that takes longer to compile
    # than it ever runs.
    target_compile_options(${target} PRIVATE -O0)
  endif()
  if(NOT runs_here OR OSTEL_SANITIZE)
    return()
  endif()
  # Where man looks for the pages of a program in bin.
  set(plain "${PROJECT_BINARY_DIR}/man/man1/${target}.1")
  set(page "${plain}")
  if(OSTEL_PACKAGES)
    set(compress COMMAND gzip -9nf "${page}")
    string(APPEND page .gz)
  endif()
  add_custom_command(OUTPUT "${page}"
    COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/scripts/make-man"
      "${plain}" "${PROJECT_BINARY_DIR}"
      ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}>
    ${compress}
    DEPENDS ${target} "${PROJECT_SOURCE_DIR}/scripts/make-man"
    COMMENT "Making the man page of ${target}" VERBATIM)
  add_custom_target(${target}-man ALL DEPENDS "${page}")
  set_property(GLOBAL APPEND PROPERTY OSTEL_MAN_PAGES "${page}")
endfunction()
