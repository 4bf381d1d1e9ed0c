# kelo_pytest(NAME PATH [PARTS]): adds a test that runs pytest on a file or folder, with this build. With PARTS, adds the tests
# NAME.1, NAME.2 and so on, which ctest starts first, because they take the longest.
function(kelo_pytest NAME PATH)
  set(PARTS 1)
  if(ARGC GREATER 2)
    set(PARTS ${ARGV2})
  endif()
  foreach(PART RANGE 1 ${PARTS})
    set(TEST ${NAME})
    if(PARTS GREATER 1)
      set(TEST ${NAME}.${PART})
    endif()
    add_test(NAME ${TEST}
      COMMAND /usr/bin/python3 -m pytest --part ${PART}/${PARTS} ${PATH} WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
    set_tests_properties(${TEST} PROPERTIES TIMEOUT 900 SKIP_RETURN_CODE 77 COST ${PARTS}
      ENVIRONMENT "KELO_BUILD=${CMAKE_BINARY_DIR};PYTHONDONTWRITEBYTECODE=1")
  endforeach()
endfunction()
