# The pages that README.md links, in a folder of the same name; manual pages and completions for bash, each with the
# program that it is about.
install(FILES docs/guide.md docs/porting.md docs/platform.md docs/benchmarks.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
set(zu_completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES docs/man/zu.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
if(TARGET zu-command)
  install(FILES docs/man/zu.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/man/zu-helper.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES tools/completion/zu DESTINATION ${zu_completions})
endif()
if(TARGET taskd)
  install(FILES docs/man/taskd.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES tools/completion/taskd DESTINATION ${zu_completions})
endif()
# The printers with which gdb shows the records of zu.h. It looks for them by the path of the library that a program has
# loaded.
if(TARGET zu AND NOT WIN32)
  install(CODE "
    set(library \"${CMAKE_INSTALL_LIBDIR}\")
    cmake_path(ABSOLUTE_PATH library BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    file(INSTALL \"${PROJECT_SOURCE_DIR}/tools/gdb/zu_printers.py\" TYPE FILE RENAME libzu.so.${PROJECT_VERSION}-gdb.py
      DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${library}\")")
endif()
