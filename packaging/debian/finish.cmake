# CPack runs this on what it has installed, before it makes the packages out of it.
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/finish.sh ${CPACK_TEMPORARY_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)
