# nlohmann/json and fmt, for all targets.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(nlohmann_json REQUIRED)
  find_package(fmt REQUIRED)
  return()
endif()

# A cross build uses only their headers. It copies them, because the compiler must not find this system's other headers in the
# same folder.
set(HEADERS ${CMAKE_BINARY_DIR}/headers)
file(COPY /usr/include/nlohmann /usr/include/fmt DESTINATION ${HEADERS})

add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED GLOBAL)
target_include_directories(nlohmann_json::nlohmann_json SYSTEM INTERFACE ${HEADERS})

add_library(fmt STATIC ${PROJECT_SOURCE_DIR}/packaging/macos/libraries/fmt.cpp)
target_include_directories(fmt SYSTEM PUBLIC ${HEADERS})
add_library(fmt::fmt ALIAS fmt)
