# kelo_precompile(TARGET HEADER...): precompiles large headers that most sources of TARGET include. A source still includes
# the headers that it uses. Not for <nlohmann/json.hpp>: g++ would instantiate its parser in every source.
function(kelo_precompile TARGET)
  target_precompile_headers(${TARGET} PRIVATE
    <chrono> <expected> <functional> <map> <memory> <optional> <string> <string_view> <vector>
    <nlohmann/json_fwd.hpp> <fmt/format.h> ${ARGN})
  # Lets a compiler cache identify a precompiled header.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${TARGET} PRIVATE -fpch-preprocess)
  elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${TARGET} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
  endif()
endfunction()

# kelo_unoptimised(TARGET...): compiles these tests without optimisation in the sanitized presets. Optimisation took two thirds of
# the compiler's work there. The code under test stays optimised, because the sanitizers slow it down.
function(kelo_unoptimised)
  if(NOT KELO_SANITIZE)
    return()
  endif()
  foreach(TARGET ${ARGN})
    target_compile_options(${TARGET} PRIVATE -O0)
  endforeach()
endfunction()
