# Cross compilation for a Cortex-M4F without an operating system.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR cortex-m4)

set(CMAKE_C_COMPILER arm-none-eabi-gcc)
set(CMAKE_CXX_COMPILER arm-none-eabi-g++)
set(CMAKE_ASM_COMPILER arm-none-eabi-gcc)
# CMake cannot link its test programs, because the start-up code is part of the project.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(cortex_m4f "-mcpu=cortex-m4 -mthumb -mfpu=fpv4-sp-d16 -mfloat-abi=hard -ffunction-sections -fdata-sections")
set(CMAKE_C_FLAGS_INIT "${cortex_m4f}")
set(CMAKE_ASM_FLAGS_INIT "${cortex_m4f}")
set(CMAKE_CXX_FLAGS_INIT "${cortex_m4f} -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-use-cxa-atexit")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "Flags of release builds")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "Flags of release builds")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
