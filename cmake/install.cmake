# What `cmake --install` and the Debian packages hold: the libraries for those who run programs, and what it takes to
# build them.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS qorcvmx qorcore EXPORT qorcvmx
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES include/qorcvmx.h include/qorcore.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(DIRECTORY include/qorcvmx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/qorcvmx)
install(EXPORT qorcvmx NAMESPACE qorcvmx:: FILE qorcvmxConfig.cmake DESTINATION ${package_dir} COMPONENT development)
write_basic_package_version_file(qorcvmxConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qorcvmxConfigVersion.cmake DESTINATION ${package_dir} COMPONENT development)

# The way from the .pc file to the prefix, so that an installed tree may be moved.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${pkgconfig_dir} /prefix)
configure_file(cmake/qorcvmx.pc.in qorcvmx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qorcvmx.pc DESTINATION ${pkgconfig_dir} COMPONENT development)

set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/libqorcvmx-dev)
install(FILES README.md NEWS.md DESTINATION ${doc_dir} COMPONENT development)
install(DIRECTORY docs DESTINATION ${doc_dir} COMPONENT development)

# `cpack -G DEB`: one package to run programs, one to build them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "qorcvmx developers <qorcvmx@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(about "Filters, morphology, pyramids, edges, corners, distance maps, segments, optical
flow, statistics, integral images and more, for images in the caller's memory.
.
")
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqorcvmx6.1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${about}This package holds the shared libraries.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqorcvmx-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libqorcvmx6.1 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${about}This package holds the headers and what CMake and pkg-config need.")
# Where dpkg-shlibdeps finds libqorcore.so, which is in the same package.
if(CMAKE_LIBRARY_OUTPUT_DIRECTORY)
  set(core_dir ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
else()
  set(core_dir ${PROJECT_BINARY_DIR}/src)
endif()
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${core_dir})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
include(CPack)
