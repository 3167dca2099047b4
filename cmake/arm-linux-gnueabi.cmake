# The board's CPU: ARM926-class, so ARMv5TE and no floating-point unit.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5te)

set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_C_FLAGS_INIT "-march=armv5te -marm -mfloat-abi=soft")
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -marm -mfloat-abi=soft")

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# -cpu arm926 stops at the first instruction that the board's CPU does not have.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -cpu arm926 -L /usr/arm-linux-gnueabi)
