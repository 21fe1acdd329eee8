# Toolchain file for the native platform, cross-compiled: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
# The compilers with "posix" in their names have threads in their C++ library, which the tests need.
if(NOT zu_machine)
  set(zu_machine x86_64)
endif()
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${zu_machine})
set(CMAKE_C_COMPILER ${zu_machine}-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER ${zu_machine}-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER ${zu_machine}-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${zu_machine}-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# No runtime library has to lie beside libzu.dll and the programs.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
set(zu_builds_googletest ON)
