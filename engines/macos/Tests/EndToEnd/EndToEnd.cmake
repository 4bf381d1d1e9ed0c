# The end-to-end suite, which runs the executable of this build. The longest files run in parts, so that all processors stay
# busy until the end.
set(PARTS_test_cancel_and_crash 3)
set(PARTS_test_causes 2)
set(PARTS_test_crash_points 2)
set(PARTS_test_online 3)
set(PARTS_test_online_network 2)
set(PARTS_test_online_oddities 3)

# Preloaded into the engine. It isn't instrumented, because it can run before a sanitizer's library.
add_library(kill-points MODULE ${CMAKE_CURRENT_LIST_DIR}/KillPoints.cpp)
set_target_properties(kill-points PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
target_compile_options(kill-points PRIVATE -fno-sanitize=all)
target_link_options(kill-points PRIVATE -fno-sanitize=all)
target_link_libraries(kill-points PRIVATE ${CMAKE_DL_LIBS} kelo_warnings)

file(GLOB END_TO_END_FILES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/test_*.py)
foreach(FILE ${END_TO_END_FILES})
  get_filename_component(NAME ${FILE} NAME_WE)
  kelo_pytest(EndToEnd.${NAME} ${FILE} ${PARTS_${NAME}})
endforeach()
