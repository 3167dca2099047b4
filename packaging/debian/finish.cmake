# CPack runs this on the installed files before it makes the packages.
execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/finish.sh ${CPACK_TEMPORARY_DIRECTORY}
                COMMAND_ERROR_IS_FATAL ANY)
