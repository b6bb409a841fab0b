# Builds for macOS on another system, with clang and lld. It is told what for:
#
#   TERVAIN_MACOS_SDK    a macOS SDK's folder
#   TERVAIN_MACOS_ARCH   arm64 or x86_64
#   TERVAIN_LLVM         what the LLVM tools' names end in, "-19" unless told otherwise
#
# On a Mac none of this is needed: there the presets build with what the system has.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TERVAIN_MACOS_SDK TERVAIN_MACOS_ARCH TERVAIN_LLVM)
if(NOT TERVAIN_MACOS_SDK OR NOT TERVAIN_MACOS_ARCH)
  message(FATAL_ERROR "TERVAIN_MACOS_SDK and TERVAIN_MACOS_ARCH must be set")
endif()
if(NOT DEFINED TERVAIN_LLVM)
  set(TERVAIN_LLVM -19)
endif()

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 23.0)
set(CMAKE_SYSTEM_PROCESSOR ${TERVAIN_MACOS_ARCH})
set(CMAKE_OSX_SYSROOT ${TERVAIN_MACOS_SDK})
set(CMAKE_OSX_ARCHITECTURES ${TERVAIN_MACOS_ARCH})

foreach(language C CXX OBJC OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET ${TERVAIN_MACOS_ARCH}-apple-macos)
endforeach()

function(find_tool variable tool)
  find_program(${variable} ${tool}${TERVAIN_LLVM} REQUIRED)
endfunction()
find_tool(CMAKE_C_COMPILER clang)
find_tool(CMAKE_OBJC_COMPILER clang)
find_tool(CMAKE_CXX_COMPILER clang++)
find_tool(CMAKE_OBJCXX_COMPILER clang++)
find_tool(CMAKE_AR llvm-ar)
find_tool(CMAKE_RANLIB llvm-ranlib)
find_tool(CMAKE_NM llvm-nm)
find_tool(CMAKE_STRIP llvm-strip)
find_tool(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool)
find_tool(CMAKE_OTOOL llvm-otool)

set(CMAKE_CXX_FLAGS_INIT -stdlib=libc++)
set(CMAKE_OBJCXX_FLAGS_INIT -stdlib=libc++)
set(CMAKE_EXE_LINKER_FLAGS_INIT -fuse-ld=lld)

# Libraries come from the SDK and from CMAKE_PREFIX_PATH, never from the system this runs on.
list(APPEND CMAKE_FIND_ROOT_PATH ${TERVAIN_MACOS_SDK} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
