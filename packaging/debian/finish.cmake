# CPack runs this on the installed files before it makes the packages.
if(CPACK_GENERATOR STREQUAL DEB)
    execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/finish.sh ${CPACK_DEBIAN_PACKAGE_VERSION}
                    ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
endif()
# CPack makes folders with the caller's umask.
execute_process(COMMAND chmod -R u=rwX,go=rX ${CPACK_TEMPORARY_DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
