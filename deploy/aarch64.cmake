# aarch64.cmake - builds for the switch, a 64-bit Arm Linux, with Debian's cross compiler and its arm64 libraries.
# An image builder with a toolchain file of its own uses that instead: nothing else of the build knows the processor.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
