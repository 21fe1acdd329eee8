# The defences that compiler and linker offer, for everything that is installed, and what makes two builds of one
# source equal. checks/hardening reads the built files.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()

add_library(zu_hardening INTERFACE)
# No path of the building machine gets into what is built.
foreach(map "${PROJECT_SOURCE_DIR}=." "${PROJECT_BINARY_DIR}=build")
  target_compile_options(zu_hardening INTERFACE -ffile-prefix-map=${map})
endforeach()

if(ZU_HARDENING AND NOT ZU_SANITIZE AND NOT WIN32)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "zu_takes${flag}" taken)
    check_cxx_compiler_flag("-Werror ${flag}" ${taken})
    if(${taken})
      target_compile_options(zu_hardening INTERFACE ${flag})
    endif()
  endforeach()
  # Checked calls of the C library take an optimised build.
  target_compile_options(zu_hardening INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
  target_link_options(zu_hardening INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endif()
