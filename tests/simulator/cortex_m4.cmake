# Compiles a part of the firmware for the processor of a board and checks its size and the symbols that it needs.
#
# NAME: of the part; COMPILER, SIZE, NM: the cross tools; OPTIONS: more options of the compiler; SOURCES, INCLUDES:
# lists; WORK_DIRECTORY: for the objects; LARGEST_TEXT: limit of the code in bytes; LARGEST_DATA: limit of the static memory in bytes.
set(text 0)
set(memory 0)
foreach(source IN LISTS SOURCES)
  string(REPLACE "/" "_" name ${source})
  set(object ${WORK_DIRECTORY}/${name}.o)
  set(include_options ${INCLUDES})
  list(TRANSFORM include_options PREPEND -I)
  file(MAKE_DIRECTORY ${WORK_DIRECTORY})
  execute_process(
    COMMAND ${COMPILER} -std=c++20 -mcpu=cortex-m4 -mfpu=fpv4-sp-d16 -mfloat-abi=hard -Os -fno-exceptions
      -fno-rtti -ffp-contract=off -fno-math-errno -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
      ${OPTIONS} ${include_options} -c ${source} -o ${object}
    RESULT_VARIABLE result)
  if(result)
    message(FATAL_ERROR "${source} does not compile")
  endif()
  execute_process(COMMAND ${SIZE} ${object} OUTPUT_VARIABLE sizes OUTPUT_STRIP_TRAILING_WHITESPACE)
  string(REGEX REPLACE ".*\n *([0-9]+)\t *([0-9]+)\t *([0-9]+)\t.*" "\\1;\\2;\\3" sizes "${sizes}")
  list(GET sizes 0 object_text)
  list(GET sizes 1 object_data)
  list(GET sizes 2 object_bss)
  math(EXPR text "${text} + ${object_text}")
  math(EXPR memory "${memory} + ${object_data} + ${object_bss}")
  execute_process(COMMAND ${NM} ${object} OUTPUT_VARIABLE symbols)
  # Memory comes from the board's allocator, and nothing runs before main.
  if(symbols MATCHES " U (malloc|calloc|realloc|free|_Znwj|_ZdlPv|__cxa_[a-z_]+|_GLOBAL__[^\n]*)\n")
    message(FATAL_ERROR "${source} uses ${CMAKE_MATCH_1}")
  endif()
  if(symbols MATCHES "_GLOBAL__sub_I")
    message(FATAL_ERROR "${source} has a static constructor")
  endif()
endforeach()
message(STATUS "${NAME} on a Cortex-M4F: ${text} bytes of text, ${memory} bytes of data and bss")
if(text GREATER LARGEST_TEXT)
  message(FATAL_ERROR "${NAME} has ${text} bytes of text; the limit is ${LARGEST_TEXT}")
endif()
if(memory GREATER LARGEST_DATA)
  message(FATAL_ERROR "${NAME} has ${memory} bytes of data and bss; the limit is ${LARGEST_DATA}")
endif()
