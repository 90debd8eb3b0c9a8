# What `cmake --install` puts where (GNUInstallDirs): the library with a
# versioned soname and the name hosts load, its catalogues, the public header,
# pkg-config and CMake package files. The programs and their man pages are in
# tools/. Libraries go to the multiarch folder for every prefix, as Debian's
# own do, so that the 32- and the 64-bit library can stand side by side and
# the relative paths compiled in below hold wherever the tree is put.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries (LIBDIR)")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# libzorbus.so.8.6.0, with libzorbus.so.8 and libzorbus.so beside it: hosts
# dlopen the last name, so it stays in the library's own package.
set_target_properties(zorbus PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(zorbus INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# The installed library finds its catalogues, the installed host program its
# library, relative to themselves.
file(RELATIVE_PATH ZORBUS_LOCALE_FROM_LIBDIR /${CMAKE_INSTALL_LIBDIR} /${CMAKE_INSTALL_LOCALEDIR})
file(RELATIVE_PATH ZORBUS_LIBDIR_FROM_BINDIR /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH ZORBUS_PREFIX_FROM_PCDIR /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
target_compile_definitions(zorbus_core PRIVATE ZORBUS_INSTALLED_LOCALE="${ZORBUS_LOCALE_FROM_LIBDIR}")

install(TARGETS zorbus EXPORT zorbusTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT library
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
install(FILES ${CMAKE_SOURCE_DIR}/include/zorbus.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library)
install(DIRECTORY ${CMAKE_BINARY_DIR}/locale/ DESTINATION ${CMAKE_INSTALL_LOCALEDIR} COMPONENT library
        FILES_MATCHING PATTERN "*.mo")

configure_file(${CMAKE_SOURCE_DIR}/packaging/zorbus.pc.in ${CMAKE_BINARY_DIR}/zorbus.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zorbus.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT library)

set(ZORBUS_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zorbus)
install(EXPORT zorbusTargets NAMESPACE zorbus:: DESTINATION ${ZORBUS_CMAKE_DIR} COMPONENT library)
configure_package_config_file(${CMAKE_SOURCE_DIR}/packaging/zorbusConfig.cmake.in
  ${CMAKE_BINARY_DIR}/zorbusConfig.cmake INSTALL_DESTINATION ${ZORBUS_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/zorbusConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zorbusConfig.cmake ${CMAKE_BINARY_DIR}/zorbusConfigVersion.cmake
        DESTINATION ${ZORBUS_CMAKE_DIR} COMPONENT library)
