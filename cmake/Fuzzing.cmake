# Fuzzers with clang's libFuzzer. The preset `sanitize` builds them.
option(KELO_FUZZ "Build the libFuzzer targets (clang only)" OFF)

# kelo_fuzzed(LIBRARY...): instruments these libraries for the fuzzers.
function(kelo_fuzzed)
  foreach(LIBRARY ${ARGN})
    target_compile_options(${LIBRARY} PRIVATE -fsanitize=fuzzer-no-link)
  endforeach()
endfunction()

# kelo_fuzzer(NAME CALL LIBRARY CORPUS [OPTION...]): adds the program fuzz-NAME, which makes the C++ call CALL from Targets.h
# of LIBRARY with `data` and `size`, and the test Fuzzing.NAME, which runs it for some seconds from the inputs in the folder
# CORPUS. New inputs, and those that fail, are in found/NAME until the next run.
function(kelo_fuzzer NAME CALL LIBRARY CORPUS)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/Fuzzer.cpp.in ${CMAKE_CURRENT_BINARY_DIR}/Fuzz${NAME}.cpp @ONLY)
  add_executable(fuzz-${NAME} ${CMAKE_CURRENT_BINARY_DIR}/Fuzz${NAME}.cpp)
  target_link_options(fuzz-${NAME} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(fuzz-${NAME} PRIVATE ${LIBRARY} kelo_warnings)
  # Ends at the first limit, runs or seconds. A busy machine makes fewer runs.
  set(FOUND ${CMAKE_CURRENT_BINARY_DIR}/found/${NAME})
  add_test(NAME Fuzzing.${NAME}
    COMMAND sh -c "rm -rf \"$0\" && mkdir -p \"$0\" && exec \"$@\"" ${FOUND}
            $<TARGET_FILE:fuzz-${NAME}> -runs=20000 -max_total_time=5 -seed=1 -timeout=120 -rss_limit_mb=2560
            -print_final_stats=1 -artifact_prefix=${FOUND}/ ${ARGN} ${FOUND} ${CORPUS})
endfunction()
