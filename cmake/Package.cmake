# Debian packages with CPack (`cpack -G DEB` in a build folder): the library
# with its catalogues, header and build files; the host program and tools.
# The normal build gives the amd64 packages, the 32-bit build the i386 ones.
set(ZORBUS_PACKAGE_MAINTAINER "zorbus developers <zorbus-dev@example.org>"
    CACHE STRING "Maintainer field of the Debian packages")
set(ZORBUS_LIBRARY_PACKAGE libzorbus${PROJECT_VERSION_MAJOR})
set(ZORBUS_HOST_PACKAGE zorbus-host)
set(ZORBUS_PACKAGE_RELEASE 1)

# Each package's copyright file and changelog, as Debian expects them, and
# lintian's overrides, each with its reason.
configure_file(${CMAKE_SOURCE_DIR}/packaging/changelog.in ${CMAKE_BINARY_DIR}/packaging/changelog.Debian @ONLY)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz
  COMMAND gzip -9nkf ${CMAKE_BINARY_DIR}/packaging/changelog.Debian
  DEPENDS ${CMAKE_BINARY_DIR}/packaging/changelog.Debian VERBATIM)
add_custom_target(zorbus_package_docs ALL DEPENDS ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz)
foreach(component library host)
  string(TOUPPER ${component} upper)
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${ZORBUS_${upper}_PACKAGE} COMPONENT ${component})
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/lintian/${ZORBUS_${upper}_PACKAGE}
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zorbus)
set(CPACK_PACKAGE_VENDOR "zorbus developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${ZORBUS_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library host)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZORBUS_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${ZORBUS_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
endif()

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${ZORBUS_LIBRARY_PACKAGE})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The linker cache is refreshed by dpkg's ldconfig trigger; scripts of our own
# keep CPack from calling ldconfig in generated ones.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/packaging/triggers
    ${CMAKE_SOURCE_DIR}/packaging/postinst ${CMAKE_SOURCE_DIR}/packaging/postrm)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "USB test component of a hardware-diagnostics suite
libzorbus.so is loaded by a diagnostics host and driven with XML commands:
it discovers the machine's USB controllers and devices and runs their tests
and diagnoses. This package holds the library, its translation catalogues,
the public header zorbus.h and the pkg-config and CMake package files.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME ${ZORBUS_HOST_PACKAGE})
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS
    "${ZORBUS_LIBRARY_PACKAGE} (= ${PROJECT_VERSION}-${ZORBUS_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_HOST_DESCRIPTION "host program and tools for the USB test component
zorbus-host loads libzorbus.so as a diagnostics host does and runs its
commands from the command line: catalogue, discovery, tests and diagnoses,
shown as tables or written as JUnit XML and JSON reports for CI servers and
factory lines. zorbus-state lists and copies the component's state files.")

include(CPack)
