# The contract suites for the macOS host, which need a Mac to run. GoogleTest is built from its sources.
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

file(GLOB CONTRACT_SOURCES CONFIGURE_DEPENDS Contract/*Contract.cpp)
add_executable(contract-tests ${CONTRACT_SOURCES}
  Contract/MachineUnderTest.cpp Contract/DarwinMachineUnderTest.cpp Contract/LoopbackServer.cpp Contract/LoopbackPlain.cpp
  Support/PropertyListText.cpp Support/ServerResource.cpp)
kelo_precompile(contract-tests <gtest/gtest.h>)
target_include_directories(contract-tests PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(contract-tests PRIVATE ${KELO_HOST} gtest_main kelo_warnings)
