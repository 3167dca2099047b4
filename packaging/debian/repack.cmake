# CPack runs this on the packages that it made.
if(CPACK_GENERATOR STREQUAL DEB)
    execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/repack.sh ${CPACK_PACKAGE_FILES}
                    COMMAND_ERROR_IS_FATAL ANY)
endif()
