# The 64-bit phones (arm64-v8a): Debian's arm64 under qemu-user takes their place.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(PKG_CONFIG_EXECUTABLE aarch64-linux-gnu-pkg-config)
# The whole path of the emulator, because tests run programs with a PATH of their own.
find_program(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 REQUIRED)
