# Registers each GoogleTest suite of a program as one test: one process for a suite, and the name says which.
#
#   vantor_add_suites(target [PREFIX prefix])
#
# The suites are listed by the program itself when ctest starts, so that none can be forgotten.
set(VANTOR_SUITE_LISTER ${CMAKE_CURRENT_LIST_DIR}/ListSuites.cmake)

function(vantor_add_suites target)
  cmake_parse_arguments(PARSE_ARGV 1 suites "" PREFIX "")
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
  file(GENERATE OUTPUT ${script} CONTENT
"set(program [[$<TARGET_FILE:${target}>]])
set(prefix [[${suites_PREFIX}]])
set(timeout ${VANTOR_TEST_TIMEOUT})
include([[${VANTOR_SUITE_LISTER}]])
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
