# Firmware images of boards: a board is a folder with numbers, functions and a memory layout.

set(VANTOR_BOARD "mps2_an386;netduinoplus2" CACHE STRING
  "Boards: names of folders in boards/, or paths of folders anywhere, separated by semicolons")
set(VANTOR_SENSORS "simulator" CACHE STRING "simulator, or library for real sensors")
set_property(CACHE VANTOR_SENSORS PROPERTY STRINGS simulator library)
set(VANTOR_SENSOR_LIBRARY "" CACHE FILEPATH "The manufacturer's sensor library, for -DVANTOR_SENSORS=library")

if(NOT VANTOR_SENSORS MATCHES "^(simulator|library)$")
  message(FATAL_ERROR "VANTOR_SENSORS is \"${VANTOR_SENSORS}\"; use simulator or library.")
endif()
if(NOT VANTOR_BOARD)
  message(FATAL_ERROR "VANTOR_BOARD is empty; name a board, such as boards/template.")
endif()
if("" IN_LIST VANTOR_BOARD)
  message(FATAL_ERROR "VANTOR_BOARD is \"${VANTOR_BOARD}\"; one of the names between the semicolons is empty.")
endif()
if(VANTOR_SENSORS STREQUAL "simulator" AND VANTOR_SENSOR_LIBRARY)
  message(FATAL_ERROR "VANTOR_SENSOR_LIBRARY is \"${VANTOR_SENSOR_LIBRARY}\", but the sensors are simulated: add "
    "-DVANTOR_SENSORS=library, or -DVANTOR_SENSOR_LIBRARY= to go without the library.")
endif()
if(VANTOR_SENSORS STREQUAL "library" AND NOT VANTOR_SENSOR_LIBRARY)
  message(FATAL_ERROR "VANTOR_SENSORS=library needs the manufacturer's sensor library: "
    "add -DVANTOR_SENSOR_LIBRARY=FILE.")
endif()
if(VANTOR_SENSOR_LIBRARY AND (NOT EXISTS "${VANTOR_SENSOR_LIBRARY}" OR IS_DIRECTORY "${VANTOR_SENSOR_LIBRARY}"))
  message(FATAL_ERROR "VANTOR_SENSOR_LIBRARY is \"${VANTOR_SENSOR_LIBRARY}\", which does not exist or is a folder.")
endif()

# Finds the folder of a board by its name or path, and checks its files. The board has the name of its folder.
function(vantor_find_board board folder_result name_result)
  set(folder ${PROJECT_SOURCE_DIR}/boards/${board})
  if(board MATCHES "^[.]|/" OR NOT IS_DIRECTORY ${folder})
    cmake_path(ABSOLUTE_PATH board BASE_DIRECTORY ${CMAKE_SOURCE_DIR} NORMALIZE OUTPUT_VARIABLE folder)
    string(REGEX REPLACE "/$" "" folder "${folder}")
  endif()
  if(folder MATCHES "[][$]")
    message(FATAL_ERROR "VANTOR_BOARD is \"${board}\"; the path of a board must not contain [, ] or $.")
  endif()
  if(NOT IS_DIRECTORY ${folder})
    file(GLOB names RELATIVE ${PROJECT_SOURCE_DIR}/boards ${PROJECT_SOURCE_DIR}/boards/*)
    list(JOIN names ", " names)
    message(FATAL_ERROR "VANTOR_BOARD is \"${board}\", which is neither a folder nor one of the boards ${names}.")
  endif()
  foreach(file board_numbers.h memory.ld)
    if(NOT EXISTS ${folder}/${file} OR IS_DIRECTORY ${folder}/${file})
      message(FATAL_ERROR "The board ${folder} has no file ${file}; boards/template has one to copy.")
    endif()
  endforeach()
  cmake_path(GET folder FILENAME name)
  if(NOT name MATCHES "^[A-Za-z0-9_-]+$")
    message(FATAL_ERROR "The folder of the board \"${name}\" names the image: use letters, digits, _ and - only.")
  endif()
  set(${folder_result} ${folder} PARENT_SCOPE)
  set(${name_result} ${name} PARENT_SCOPE)
endfunction()

# Adds the objects of a board: its own, and those of the firmware that depend on its numbers. Files in its folder
# vendor/ are compiled without the project's warnings. The optional file board.cmake of the board can change the target,
# for example to add definitions for the vendor's files.
function(vantor_add_board name folder)
  set(firmware ${PROJECT_SOURCE_DIR}/ports/firmware)
  set(target vantor_${name}_objects)
  if(TARGET vantor_${name} OR TARGET ${target})
    message(FATAL_ERROR "The name ${name} of the board ${folder} belongs to another board or to a part of the build; "
      "name each board once, or give its folder another name.")
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.c ${folder}/*.cpp ${folder}/*.S)
  file(GLOB_RECURSE vendor_sources CONFIGURE_DEPENDS ${folder}/vendor/*.c ${folder}/vendor/*.cpp ${folder}/vendor/*.S)
  add_library(${target} OBJECT
    ${sources}
    ${vendor_sources}
    ${firmware}/board_defaults.cpp
    ${firmware}/clock.cpp
    ${firmware}/interrupts.cpp
    ${firmware}/host.cpp
    ${firmware}/link.cpp
    ${firmware}/log.cpp
    ${firmware}/retained.cpp
    ${firmware}/cortex_m4/memory_protection.cpp)
  set_source_files_properties(${vendor_sources} PROPERTIES COMPILE_OPTIONS -w)
  target_include_directories(${target} PUBLIC ${firmware} ${folder})
  if(IS_DIRECTORY ${folder}/vendor)
    target_include_directories(${target} SYSTEM PRIVATE ${folder}/vendor)
  endif()
  target_link_libraries(${target} PUBLIC vantor_cortex_m4 PRIVATE zet_vantor_server zet_integration)
  set_target_properties(${target} PROPERTIES VANTOR_BOARD_FOLDER ${folder})
  include(${folder}/board.cmake OPTIONAL)
endfunction()

# Adds an image of a board from the objects of the board and the given sources of a program (run_board).
function(vantor_add_image target board)
  set(objects vantor_${board}_objects)
  get_target_property(folder ${objects} VANTOR_BOARD_FOLDER)
  add_executable(${target} ${ARGN} $<TARGET_OBJECTS:${objects}> $<TARGET_OBJECTS:vantor_cortex_m4>)
  target_link_libraries(${target} PRIVATE ${objects} vantor_cortex_m4)
  # Links objects, not libraries, because only the linker script refers to the vector table.
  target_link_options(${target} PRIVATE
    -nostartfiles --specs=nano.specs -L${PROJECT_SOURCE_DIR}/ports/firmware/cortex_m4 -T${folder}/memory.ld
    -Wl,--require-defined=sections.ld -Wl,--gc-sections -Wl,--fatal-warnings -Wl,--print-memory-usage
    -Wl,-Map=${CMAKE_BINARY_DIR}/bin/${target}.map)
  set_target_properties(${target} PROPERTIES
    SUFFIX .elf
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin
    LINK_DEPENDS "${folder}/memory.ld;${PROJECT_SOURCE_DIR}/ports/firmware/cortex_m4/sections.ld")
endfunction()

# Links the server and an implementation of the sensor library to an image.
function(vantor_link_server target library)
  target_link_libraries(${target} PRIVATE
    zet_vantor_server
    zet_vantor_server_system_k330
    ${library}
    vantor_memory)
endfunction()

# Adds the firmware of a board.
function(vantor_add_firmware target)
  cmake_parse_arguments(PARSE_ARGV 1 firmware "" "BOARD;SENSORS;LIBRARY" "")
  set(folder ${PROJECT_SOURCE_DIR}/ports/firmware)
  if(firmware_SENSORS STREQUAL "library")
    vantor_add_image(${target} ${firmware_BOARD} ${folder}/main.cpp ${folder}/sensors_library.cpp)
    target_link_libraries(${target} PRIVATE zet_integration)
    vantor_link_server(${target} "${firmware_LIBRARY}")
  else()
    vantor_add_image(${target} ${firmware_BOARD}
      ${folder}/main.cpp ${folder}/sensors_simulator.cpp ${folder}/settings.cpp)
    vantor_link_server(${target} zet_simulator)
  endif()
  target_compile_definitions(${target} PRIVATE
    VANTOR_BOARD_NAME="${firmware_BOARD}" VANTOR_SERVER_VERSION="${PROJECT_VERSION}")
endfunction()
