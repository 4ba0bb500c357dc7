# Tells CMake what the NDK's toolchain file does, but with Debian's compiler, so that a machine without
# an NDK can check the device build.
set(CMAKE_SYSTEM_NAME Android)
# Keeps CMake from looking for the NDK, as in the NDK's own file.
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ANDROID TRUE)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
