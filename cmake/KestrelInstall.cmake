# Install rules: headers, the library, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS kestrel EXPORT KestrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The Qt adapters of the form helpers, exported next to the library.
if(TARGET kestrel_qt)
  install(TARGETS kestrel_qt EXPORT KestrelTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
# The mail provider, beside libkestrel, which loads it from its own folder.
install(TARGETS kestrel_mapi EXPORT KestrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kestrel
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(KESTREL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Kestrel)
install(EXPORT KestrelTargets NAMESPACE Kestrel:: DESTINATION ${KESTREL_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KestrelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KestrelConfig.cmake INSTALL_DESTINATION ${KESTREL_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KestrelConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KestrelConfig.cmake
              ${PROJECT_BINARY_DIR}/KestrelConfigVersion.cmake
        DESTINATION ${KESTREL_CMAKE_DIR})

# The pkg-config file finds its prefix from where it lies, so an installed
# tree can be moved (or installed with --prefix) and still be found.
file(RELATIVE_PATH KESTREL_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kestrel.pc.in ${PROJECT_BINARY_DIR}/kestrel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kestrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
