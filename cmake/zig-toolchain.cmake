# Cross builds with the Zig toolchain (zig cc / zig c++, clang with the target's
# C library headers and libc++), for macOS (no Apple SDK needed) and Linux.
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/zig-toolchain.cmake -DZIG_TARGET=aarch64-macos.11.0 -DZIG_WRAPPERS=DIR
# ZIG_WRAPPERS holds the small scripts zig-cc, zig-c++, zig-ar and zig-ranlib
# that scripts/zig-wrappers.sh writes (CMake takes a compiler as one program).
if(ZIG_TARGET MATCHES "macos")
  set(CMAKE_SYSTEM_NAME Darwin)
else()
  set(CMAKE_SYSTEM_NAME Linux)
endif()
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${ZIG_TARGET}")
set(CMAKE_C_COMPILER ${ZIG_WRAPPERS}/zig-cc)
set(CMAKE_CXX_COMPILER ${ZIG_WRAPPERS}/zig-c++)
set(CMAKE_AR ${ZIG_WRAPPERS}/zig-ar CACHE FILEPATH "" FORCE)
set(CMAKE_RANLIB ${ZIG_WRAPPERS}/zig-ranlib CACHE FILEPATH "" FORCE)
# Nothing of the host's is searched for libraries or packages.
set(CMAKE_FIND_ROOT_PATH ${ZIG_WRAPPERS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# No Apple SDK: the headers come with zig.
set(CMAKE_OSX_SYSROOT "" CACHE PATH "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "" FORCE)
