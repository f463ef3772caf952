# Builds for a Mac on another system; scripts/build-macos calls it so. Not used on a Mac, where the real SDK is.
#   MACOS_ARCH      aarch64 or x86_64
#   MACOS_SYSROOT   the declarations and link stubs: those beside this file and the headers that
#                   scripts/build-macos adds to them
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20.0)
if(NOT DEFINED MACOS_ARCH)
  set(MACOS_ARCH aarch64)
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACOS_ARCH MACOS_SYSROOT)
set(CMAKE_SYSTEM_PROCESSOR ${MACOS_ARCH})

set(_tool ${CMAKE_CURRENT_LIST_DIR}/bin/${MACOS_ARCH}-macos)
set(CMAKE_C_COMPILER ${_tool}-cc)
set(CMAKE_CXX_COMPILER ${_tool}-c++)
set(CMAKE_AR ${_tool}-ar)
set(CMAKE_RANLIB ${_tool}-ranlib)

set(_frameworks "-F\"${MACOS_SYSROOT}/System/Library/Frameworks\"")
# The same file from every folder it is built in; the compiler would add debug information unasked.
set(_anywhere "-g0 -ffile-prefix-map=\"${CMAKE_SOURCE_DIR}\"=. -ffile-prefix-map=\"${MACOS_SYSROOT}\"=/")
set(CMAKE_C_FLAGS_INIT "${_frameworks} ${_anywhere}")
set(CMAKE_CXX_FLAGS_INIT "${_frameworks} ${_anywhere}")
set(CMAKE_EXE_LINKER_FLAGS_INIT ${_frameworks})
set(ENV{PKG_CONFIG_LIBDIR} ${MACOS_SYSROOT}/usr/lib/pkgconfig)
set(CMAKE_FIND_ROOT_PATH ${MACOS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
