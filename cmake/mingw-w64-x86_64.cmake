# Cross build for 64-bit Windows with Debian's mingw-w64 (posix thread model,
# so std::thread and std::mutex work through winpthread).
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DCMAKE_PREFIX_PATH=<windows deps prefix> ...
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_triple x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${_triple}-windres)
set(CMAKE_AR ${_triple}-gcc-ar-posix CACHE FILEPATH "")
set(CMAKE_RANLIB ${_triple}-gcc-ranlib-posix CACHE FILEPATH "")

# Headers and libraries come from the mingw sysroot and the prefix the Windows
# dependencies were installed into, never from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test executables run under Wine when ctest runs them.
find_program(NETCAM_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
if(NETCAM_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${NETCAM_WINE})
endif()

# NETCAM_WINDOWS_DEPS: the prefix of the cross-built libraries and the headers
# they come with; searched as a second root, and pkg-config reads only its .pc files.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES NETCAM_WINDOWS_DEPS)
if(NETCAM_WINDOWS_DEPS)
  list(APPEND CMAKE_FIND_ROOT_PATH ${NETCAM_WINDOWS_DEPS})
  set(ENV{PKG_CONFIG_LIBDIR} ${NETCAM_WINDOWS_DEPS}/lib/pkgconfig)
  set(ENV{PKG_CONFIG_PATH} "")
endif()
