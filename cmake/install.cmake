# The files that `cmake --install` installs. None of them names the prefix, so the installation may choose another one,
# and the folder may be moved.
include(CMakePackageConfigHelpers)

set(zu_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zu)
foreach(library zu zu_static)
  if(TARGET ${library})
    install(TARGETS ${library} EXPORT zu-targets
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
      RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
if(TARGET zu-helper)
  install(TARGETS zu-helper RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR}/${zu_private_folder})
  install(TARGETS zu-command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(TARGET zu-helper AND CMAKE_SYSTEM_NAME STREQUAL Linux)
  # The template of the units for services. It names the helper by its full path, so it is written when it is installed.
  foreach(whose system=multi-user.target user=default.target)
    string(REPLACE "=" ";" whose ${whose})
    list(GET whose 0 folder)
    list(GET whose 1 target)
    install(CODE "
      set(ZU_HELPER \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/${zu_private_folder}/zu-helper\")
      set(ZU_WANTED_BY ${target})
      configure_file(\"${PROJECT_SOURCE_DIR}/helper/zu@.service.in\"
        \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/systemd/${folder}/zu@.service\" @ONLY)")
  endforeach()
endif()
if(TARGET taskd)
  install(TARGETS taskd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The program finds the library in the folder that both were installed to.
  file(RELATIVE_PATH to_library ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(taskd PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")
endif()

install(FILES zu/zu.h zu/zu_platform.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zu)
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(EXPORT zu-targets NAMESPACE zu:: DESTINATION ${zu_package_dir})
configure_package_config_file(cmake/zu-config.cmake.in ${PROJECT_BINARY_DIR}/zu-config.cmake
  INSTALL_DESTINATION ${zu_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zu-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zu-config.cmake ${PROJECT_BINARY_DIR}/zu-config-version.cmake
  DESTINATION ${zu_package_dir})

# pkg-config knows the folder that its file lies in; an absolute folder of the configuration stays as it is.
set(zu_pc_prefix ${CMAKE_INSTALL_PREFIX})
set(zu_pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  file(RELATIVE_PATH zu_pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" zu_pc_prefix "\${pcfiledir}/${zu_pc_prefix}")
  set(zu_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
set(zu_pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
  set(zu_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
# Programs name what the library needs when they link the static one, which may be the only one.
set(zu_pc_libs -lzu)
set(zu_pc_private "-lstdc++ -lm -lpthread -ldl")
if(zu_only_static)
  string(APPEND zu_pc_libs " ${zu_pc_private}")
  set(zu_pc_private "")
endif()
configure_file(cmake/zu.pc.in ${PROJECT_BINARY_DIR}/zu.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zu.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
