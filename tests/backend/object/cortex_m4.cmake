# Compiles the backend for a Cortex-M4F without warnings and compares its size with a limit.
#
# Variables: COMPILER, SIZE, SOURCE, OBJECT, INCLUDES (a list of directories), CJSON_HEADER, WORK_DIRECTORY,
# LARGEST_TEXT (bytes), DOCUMENT (the file that states the size).

cmake_minimum_required(VERSION 3.25)

# The compiler gets only cJSON's header, because the other headers next to it are for this computer.
file(MAKE_DIRECTORY ${WORK_DIRECTORY}/cjson)
file(COPY_FILE ${CJSON_HEADER} ${WORK_DIRECTORY}/cjson/cJSON.h ONLY_IF_DIFFERENT)

list(TRANSFORM INCLUDES PREPEND -I)
execute_process(
  COMMAND ${COMPILER} -std=c++20 -mcpu=cortex-m4 -mfpu=fpv4-sp-d16 -mfloat-abi=hard -Os
    -fno-exceptions -fno-rtti -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
    ${INCLUDES} -isystem ${WORK_DIRECTORY} -c ${SOURCE} -o ${OBJECT}
  COMMAND_ERROR_IS_FATAL ANY)

execute_process(COMMAND ${SIZE} ${OBJECT} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
if(NOT output MATCHES "\n *([0-9]+)[ \t]+([0-9]+)[ \t]+([0-9]+)")
  message(FATAL_ERROR "Cannot read the size from\n${output}")
endif()
message(STATUS "text ${CMAKE_MATCH_1}, data ${CMAKE_MATCH_2}, bss ${CMAKE_MATCH_3} bytes on a Cortex-M4F")
if(CMAKE_MATCH_1 GREATER LARGEST_TEXT)
  message(FATAL_ERROR "text is larger than ${LARGEST_TEXT} bytes")
endif()

string(REGEX REPLACE "([0-9])([0-9][0-9][0-9])$" "\\1,\\2" shown ${CMAKE_MATCH_1})
file(READ ${DOCUMENT} text)
string(FIND "${text}" "${shown} bytes of text" place)
if(place EQUAL -1)
  message(FATAL_ERROR "${DOCUMENT} does not contain \"${shown} bytes of text\"; update the size there")
endif()
