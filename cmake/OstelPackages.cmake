# Debian packages of what is installed, one for each component; ./dev package makes and checks them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ostel-app)
set(CPACK_PACKAGE_VENDOR "The libostel_app contributors")
# Each package has its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The libostel_app contributors <ostel@users.noreply.localhost>")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Where the packages' own libraries are looked for.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/lib")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(this_version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_COMPONENTS_ALL)
find_program(GZIP_PROGRAM gzip REQUIRED)
string(TIMESTAMP OSTEL_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)

# ostel_package(COMPONENT NAME SECTION SUMMARY TEXT [DEPENDS text])
function(ostel_package component name section summary text)
  cmake_parse_arguments(arg "" "DEPENDS" "" ${ARGN})
  string(TOUPPER ${component} upper)
  set(prefix CPACK_DEBIAN_${upper}_PACKAGE)
  set(${prefix}_NAME ${name} PARENT_SCOPE)
  set(${prefix}_SECTION ${section} PARENT_SCOPE)
  set(${prefix}_DEPENDS "${arg_DEPENDS}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)

  set(OSTEL_PACKAGE_NAME ${name})
  set(changelog "${PROJECT_BINARY_DIR}/packaging/${name}/changelog.Debian")
  configure_file(packaging/debian/changelog.in "${changelog}" @ONLY)
  execute_process(COMMAND "${GZIP_PROGRAM}" -9nf "${changelog}" COMMAND_ERROR_IS_FATAL ANY)
  install(FILES "${changelog}.gz" packaging/debian/copyright
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" COMPONENT ${component})
endfunction()

ostel_package(common ostel-common misc "bus policy for the data model of a home gateway"
  "Lets root and the members of the group \"ostel\" be applications on the\nsystem bus."
  DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_COMMON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_COMMON_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/postinst")

ostel_package(runtime libostel-app0 libs "application library for the data model of a home gateway"
  "Applications read, write and watch the device's TR-181 data model with it."
  DEPENDS "ostel-common, libzt-logging1 (>= ${this_version})")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")

ostel_package(logging libzt-logging1 libs "stand-in for the logging library of a home gateway"
  "On a device the library of the same name that comes with it takes its place.")
set(CPACK_DEBIAN_LOGGING_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LOGGING_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")

ostel_package(development libostel-app-dev libdevel
  "application library for the data model of a home gateway (development)"
  "The headers, and what pkg-config and CMake need to find the library."
  DEPENDS "libostel-app0 (= ${this_version}), libzt-logging1 (= ${this_version}), libdbus-1-dev")

ostel_package(tools ostel-tools utils "data model of a home gateway on any machine"
  "A gateway that serves a data model, as a service or for development, and\nostelcli, which reads, writes and watches it at the command line."
  DEPENDS "libostel-app0 (>= ${this_version}), libzt-logging1 (>= ${this_version})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)

include(CPack)
