# The 32-bit phones (armeabi-v7a): Debian's armhf under qemu-user takes their place.
#
# Compiled by clang, as the phone's libraries are. For this processor g++ turns float
# vectors into scalar code unless it may flush denormals; tests would then run other
# code than a phone does. The flags are those that the NDK passes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7-a)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabihf)
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mfpu=neon -mthumb")
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(PKG_CONFIG_EXECUTABLE arm-linux-gnueabihf-pkg-config)
# The whole path of the emulator, because tests run programs with a PATH of their own.
find_program(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm REQUIRED)
