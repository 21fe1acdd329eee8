# What `cmake --install` puts down: the library, its two public headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS zu EXPORT zu-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(ZU_STATIC)
  install(FILES $<TARGET_FILE:zu_static> DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(FILES zu/zu.h zu/zu_platform.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zu)
install(EXPORT zu-targets NAMESPACE zu:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zu)

configure_package_config_file(cmake/zu-config.cmake.in ${PROJECT_BINARY_DIR}/zu-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zu)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zu-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zu-config.cmake ${PROJECT_BINARY_DIR}/zu-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zu)

configure_file(cmake/zu.pc.in ${PROJECT_BINARY_DIR}/zu.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zu.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
