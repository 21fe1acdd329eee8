# Toolchain file for the native platform in 32 bits: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-32.cmake
set(zu_machine i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
