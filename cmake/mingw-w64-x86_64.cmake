# Cross-compile for 64-bit Windows with Debian's mingw-w64; run the results under Wine.
# The posix thread model gives the C++ runtime std::mutex (GoogleTest needs it); it is
# linked statically like the rest of the runtime, so no mingw DLL is imported.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(TOOLCHAIN_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${TOOLCHAIN_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TOOLCHAIN_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER  ${TOOLCHAIN_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${TOOLCHAIN_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

find_program(WINE_EXECUTABLE NAMES wine wine64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${WINE_EXECUTABLE})
