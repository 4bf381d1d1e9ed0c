# kelo_precompile(TARGET HEADER...): the large headers that nearly every source of TARGET includes anyway, read
# once. Only a matter of speed: a source still includes what it uses.
function(kelo_precompile TARGET)
  target_precompile_headers(${TARGET} PRIVATE
    <chrono> <expected> <functional> <map> <memory> <optional> <string> <string_view> <vector>
    <nlohmann/json.hpp> <fmt/format.h> ${ARGN})
  # What a compiler cache needs to know a precompiled header again.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${TARGET} PRIVATE -fpch-preprocess)
  elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${TARGET} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
  endif()
endfunction()
