# 64-bit Arm on Debian: Debian's cross-compiler, and an emulator to run what it makes. Programs are
# linked statically, because in others qemu-user 7.2 does not come back from fork.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
