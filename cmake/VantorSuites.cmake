# Registers each GoogleTest suite of a program as one test, which runs in its own process and has the suite's name.
#
#   vantor_add_suites(target [PREFIX prefix] [STATISTICS suite...])
#
# Suites of statistics compute a lot in few lines of code: they run without sanitizers only.
#
# When ctest starts, the program itself lists its suites, so none can be forgotten.
set(VANTOR_SUITE_LISTER ${CMAKE_CURRENT_LIST_DIR}/ListSuites.cmake)

function(vantor_add_suites target)
  cmake_parse_arguments(PARSE_ARGV 1 suites "" PREFIX STATISTICS)
  if(NOT VANTOR_SANITIZE)
    set(suites_STATISTICS "")
  endif()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
  file(GENERATE OUTPUT ${script} CONTENT
"set(program [[$<TARGET_FILE:${target}>]])
set(prefix [[${suites_PREFIX}]])
set(left_out [[${suites_STATISTICS}]])
set(timeout ${VANTOR_TEST_TIMEOUT})
include([[${VANTOR_SUITE_LISTER}]])
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
