# Manual pages. Each is installed with what it is about.
install(FILES docs/man/zu.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
if(TARGET zu-command)
  install(FILES docs/man/zu.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/man/zu-helper.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
endif()
if(TARGET taskd)
  install(FILES docs/man/taskd.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
