# Build options and the compiler flags that every target of the project shares.

option(VANTOR_TESTS "Build the tests" ON)
# Compiling them takes a fifth of the time of ./test, so the release build leaves them to the one with sanitizers.
option(VANTOR_UNIT_TESTS "Build the unit tests of backend, server and host" ON)
option(VANTOR_BENCHMARKS "Build the benchmarks" ON)
set(VANTOR_VIEW AUTO CACHE STRING "Build the live view: ON, OFF, or AUTO for if npm is installed")
set_property(CACHE VANTOR_VIEW PROPERTY STRINGS AUTO ON OFF)
option(VANTOR_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(VANTOR_COVERAGE "Count executed lines and branches, for gcovr" OFF)

# Time in seconds after which a test is treated as hanging. The slowest test needs about 20 s on an idle machine.
set(VANTOR_TEST_TIMEOUT 1200)

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

if(VANTOR_SANITIZE)
  # Without descriptions of functions, which clang exports as symbols.
  add_compile_options(-fsanitize=address,undefined $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>
    -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# Code for the board is built everywhere as for the board: without exceptions and run-time type information.
function(vantor_embedded target)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
endfunction()
