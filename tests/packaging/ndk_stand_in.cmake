# Stands in for the NDK's toolchain file: what it tells CMake that matters here. The
# compiler is this machine's.
set(ANDROID TRUE)
set(ANDROID_ABI x86_64)
