# The devices: 32-bit ARM, Cortex-A8, hard float, with Debian's compiler (g++-arm-linux-gnueabihf).
# Tests run under user-mode emulation of that processor (qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(triple arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER ${triple}-g++)
# The notes are about code of compilers before 7.
set(CMAKE_CXX_FLAGS_INIT "-mcpu=cortex-a8 -mfpu=neon -mthumb -Wno-psabi")

set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -cpu cortex-a8 -L /usr/${triple})
