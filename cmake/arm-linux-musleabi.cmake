# The board's CPU with a small C library: Debian's musl, linked statically by the same compiler.
include(${CMAKE_CURRENT_LIST_DIR}/arm-linux-gnueabi.cmake)

get_property(probes_compiler GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT probes_compiler)
    execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../scripts/musl-sysroot.sh
                    COMMAND_ERROR_IS_FATAL ANY)
endif()

cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../.cache/musl)
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(use_musl "-specs=\"${CMAKE_CURRENT_LIST_DIR}/arm-linux-musleabi.specs\"")
string(APPEND CMAKE_C_FLAGS_INIT " ${use_musl}")
string(APPEND CMAKE_CXX_FLAGS_INIT " ${use_musl} -include \"${CMAKE_CURRENT_LIST_DIR}/musl-libstdcxx.h\"")
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
