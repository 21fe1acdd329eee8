# Toolchain file for 32 bits on a machine of 64: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/linux-32.cmake
# g++-multilib, which keeps every cross-compiler away, adds to g++-12-multilib no more than a link to the kernel's headers.
# The last folder of the search is in its place.
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
endforeach()
# Debian's GoogleTest is built for 64 bits alone.
set(zu_builds_googletest ON)
