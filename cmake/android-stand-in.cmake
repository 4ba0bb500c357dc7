# What the NDK's toolchain file says to CMake, with Debian's compiler behind it: so that a machine
# without an NDK builds the library the way a device's is built.
set(CMAKE_SYSTEM_NAME Android)
# That number keeps CMake from looking for the NDK itself; the NDK's file sets it for the same end.
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ANDROID TRUE)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
