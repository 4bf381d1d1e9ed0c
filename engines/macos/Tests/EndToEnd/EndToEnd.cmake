# The end-to-end suite runs the executable of this build. The longest files run in parts, so that all processors stay busy
# until the end.
set(PARTS_test_cancel_and_crash 3)
set(PARTS_test_causes 2)
set(PARTS_test_online 3)
set(PARTS_test_online_network 2)
set(PARTS_test_online_oddities 3)

file(GLOB END_TO_END_FILES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/test_*.py)
foreach(FILE ${END_TO_END_FILES})
  get_filename_component(NAME ${FILE} NAME_WE)
  kelo_pytest(EndToEnd.${NAME} ${FILE} ${PARTS_${NAME}})
endforeach()
