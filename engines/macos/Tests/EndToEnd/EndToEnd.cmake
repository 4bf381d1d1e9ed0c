# Each file of the end-to-end suite is one test: pytest against the real executable of this build.
file(GLOB END_TO_END_FILES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/test_*.py)
foreach(FILE ${END_TO_END_FILES})
  get_filename_component(NAME ${FILE} NAME_WE)
  add_test(NAME EndToEnd.${NAME}
    COMMAND /usr/bin/python3 -m pytest ${FILE}
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  set_tests_properties(EndToEnd.${NAME} PROPERTIES
    TIMEOUT 900 SKIP_RETURN_CODE 77 ENVIRONMENT "KELO_BUILD=${CMAKE_BINARY_DIR};PYTHONDONTWRITEBYTECODE=1")
endforeach()
