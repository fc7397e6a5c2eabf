# What `cmake --install` puts where. Components: runtime (the library), common (what does not depend
# on the architecture), logging (the stand-in for the device's logging library), development, tools.
include(CMakePackageConfigHelpers)

set(OSTEL_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/ostel")
set(OSTEL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/OstelApp")
set(OSTEL_ZSH_COMPLETIONS "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" CACHE STRING
    "Where the completions of zsh are installed")

install(TARGETS ostel_app EXPORT OstelAppTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime
  NAMELINK_COMPONENT development
  INCLUDES DESTINATION "${OSTEL_INSTALL_INCLUDEDIR}")
if(TARGET zt_logging)
  install(TARGETS zt_logging EXPORT OstelAppTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT logging
    NAMELINK_COMPONENT development
    INCLUDES DESTINATION "${OSTEL_INSTALL_INCLUDEDIR}")
endif()
get_property(headers GLOBAL PROPERTY OSTEL_PUBLIC_HEADERS)
install(FILES ${headers} DESTINATION "${OSTEL_INSTALL_INCLUDEDIR}" COMPONENT development)

configure_package_config_file(packaging/OstelAppConfig.cmake.in
  "${PROJECT_BINARY_DIR}/OstelAppConfig.cmake" INSTALL_DESTINATION "${OSTEL_INSTALL_CMAKEDIR}"
  PATH_VARS CMAKE_INSTALL_LIBDIR OSTEL_INSTALL_INCLUDEDIR)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/OstelAppConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(EXPORT OstelAppTargets NAMESPACE OstelApp::
  DESTINATION "${OSTEL_INSTALL_CMAKEDIR}" COMPONENT development)
install(
  FILES "${PROJECT_BINARY_DIR}/OstelAppConfig.cmake"
    "${PROJECT_BINARY_DIR}/OstelAppConfigVersion.cmake"
  DESTINATION "${OSTEL_INSTALL_CMAKEDIR}" COMPONENT development)

# ostel_install_configured(INPUT NAME DIRECTORY COMPONENT)
# For files that must name the prefix: it is known when they are installed, not before.
function(ostel_install_configured input name directory component)
  configure_file("${input}" "${PROJECT_BINARY_DIR}/packaging/${name}.in" @ONLY)
  install(CODE "
    set(OSTEL_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
    set(file \"\${CMAKE_INSTALL_PREFIX}/${directory}/${name}\")
    message(STATUS \"Installing: \$ENV{DESTDIR}\${file}\")
    configure_file(\"${PROJECT_BINARY_DIR}/packaging/${name}.in\" \"\$ENV{DESTDIR}\${file}\" @ONLY)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${file}\")"
    COMPONENT ${component})
endfunction()

# Names of the second round stay as they are in the first.
set(OSTEL_PREFIX "@OSTEL_PREFIX@")
ostel_install_configured(packaging/ostel-app.pc.in ostel-app.pc
  "${CMAKE_INSTALL_LIBDIR}/pkgconfig" development)

install(FILES packaging/com.Kaven.Ostel.conf
  DESTINATION "${CMAKE_INSTALL_DATADIR}/dbus-1/system.d" COMPONENT common)
install(FILES packaging/ostel.sysusers DESTINATION lib/sysusers.d RENAME ostel.conf
  COMPONENT common)

if(OSTEL_BUILD_TOOLS)
  install(TARGETS ostelcli ostel-gateway COMPONENT tools)
  ostel_install_configured(packaging/ostel-gateway.service.in ostel-gateway.service
    lib/systemd/system tools)
  install(DIRECTORY gateway/models DESTINATION "${CMAKE_INSTALL_DATADIR}/ostel" COMPONENT tools
    FILES_MATCHING PATTERN "*.json")
  foreach(tool IN ITEMS ostelcli ostel-gateway)
    install(FILES packaging/completions/ostel.bash RENAME ${tool}
      DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
  endforeach()
  install(FILES packaging/completions/_ostel DESTINATION "${OSTEL_ZSH_COMPLETIONS}" COMPONENT tools)
  get_property(man_pages GLOBAL PROPERTY OSTEL_MAN_PAGES)
  install(FILES ${man_pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
endif()
