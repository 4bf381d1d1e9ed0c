# kelo_precompile(TARGET HEADER...): the large headers that nearly every source of TARGET includes anyway, read
# once. Only a matter of speed: a source still includes what it uses. <nlohmann/json.hpp> isn't among them: g++
# instantiates its parser again in every source that sees it, which takes longer than the rest of a small source.
function(kelo_precompile TARGET)
  target_precompile_headers(${TARGET} PRIVATE
    <chrono> <expected> <functional> <map> <memory> <optional> <string> <string_view> <vector>
    <nlohmann/json_fwd.hpp> <fmt/format.h> ${ARGN})
  # What a compiler cache needs to know a precompiled header again.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${TARGET} PRIVATE -fpch-preprocess)
  elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${TARGET} PRIVATE "SHELL:-Xclang -fno-pch-timestamp")
  endif()
endfunction()
