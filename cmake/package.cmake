# The Debian packages: the program with its links and documents, and fwpack in one of its own.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "QVE firmware team <firmware@qve.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "board utilities of a network video server")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME qve)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION
    "One executable that carries the commands which bring the board up, install its
firmware and test it at the factory.")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_COMPONENTS_ALL program)

set(program_documents docs/factory-tests.md docs/known-limits.md docs/upgrade-safety.md)
file(GLOB program_pages CONFIGURE_DEPENDS docs/man/*.8)
set(page_aliases upgrade:xupgrade xi2c:xgpioi2c test_rs485:test_rs232 test_sdcard:test_usb)

# A board's flash has no room for documents: only the package has them, not 'cmake --install'.
install(FILES ${program_pages} DESTINATION ${QVE_SHAREDIR}/man/man8
        COMPONENT program EXCLUDE_FROM_ALL)
foreach(alias IN LISTS page_aliases)
    string(REPLACE ":" ";" alias ${alias})
    list(GET alias 0 page)
    list(GET alias 1 name)
    qve_install_link(${page}.8 ${QVE_SHAREDIR}/man/man8/${name}.8 EXCLUDE_FROM_ALL)
endforeach()
install(FILES ${program_documents} DESTINATION ${QVE_SHAREDIR}/doc/qve
        COMPONENT program EXCLUDE_FROM_ALL)

if(CMAKE_CROSSCOMPILING)
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armel)
else()
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_STRIP_FILES ON)
endif()
if(QVE_HOST_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME fwpack)
    set(CPACK_DEBIAN_TOOLS_DESCRIPTION
        "The host tool that makes, shows and checks the packages with the board's firmware.")
    install(TARGETS fwpack RUNTIME DESTINATION bin COMPONENT tools)
    install(FILES docs/man/fwpack.1 DESTINATION ${QVE_SHAREDIR}/man/man1 COMPONENT tools)
    install(FILES docs/firmware-package.md DESTINATION ${QVE_SHAREDIR}/doc/fwpack COMPONENT tools)
    install(FILES docs/pictures/package.svg DESTINATION ${QVE_SHAREDIR}/doc/fwpack/pictures
            COMPONENT tools)
endif()
include(CPack)
