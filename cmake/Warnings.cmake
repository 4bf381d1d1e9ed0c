# The warnings for all targets. Link `kelo_warnings` privately.
add_library(kelo_warnings INTERFACE)
target_compile_options(kelo_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual
  -Wconversion -Wsign-conversion -Wformat=2 -Wundef)
if(KELO_WERROR)
  target_compile_options(kelo_warnings INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 reports false positives inside libstdc++ at -O2 (std::string, std::optional, std::variant).
  target_compile_options(kelo_warnings INTERFACE
    -Wno-restrict -Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-array-bounds)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Warns about access to a field marked GUARDED_BY without its mutex.
  target_compile_options(kelo_warnings INTERFACE -Wthread-safety)
endif()
