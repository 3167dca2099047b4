# The packages: one has the program with its links and documents, the other has fwpack. They are Debian's,
# or archives with 'cpack -G TGZ'.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${QVE_VERSION})
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_CONTACT "QVE firmware team <firmware@qve.invalid>")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME qve)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "board utilities of a network video server
One executable that contains all commands of the board. They bring the
board up, install its firmware, look after its processes and settings,
and test it at the factory. Each command is a link to the executable.")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_COMPONENTS_ALL program)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/repack.cmake)
# No target package_source: 'git archive' makes the source package.
set(CPACK_SOURCE_OUTPUT_CONFIG_FILE ${PROJECT_BINARY_DIR}/CMakeFiles/CPackSourceConfig.cmake)

# Packages of the same version for two releases of Debian differ in their libraries, so their names differ.
# In Debian's order, 1.1.0~rc1 comes before 1.1.0+deb12, and that before 1.1.0+git4.1a2b3c4+deb12.
string(REPLACE -rc ~rc CPACK_DEBIAN_PACKAGE_VERSION ${QVE_VERSION})
if(EXISTS /etc/debian_version)
    file(STRINGS /etc/os-release release REGEX "^VERSION_ID=") # unstable has none
    string(REGEX MATCH "[0-9]+" release "${release}")
    string(APPEND CPACK_DEBIAN_PACKAGE_VERSION +deb${release})
endif()

set(program_documents docs/factory-tests.md docs/known-limits.md docs/settings.md docs/troubleshooting.md
    docs/upgrade-safety.md docs/your-board.md)
file(GLOB program_pages CONFIGURE_DEPENDS docs/man/*.8)
file(GLOB integration_pages CONFIGURE_DEPENDS docs/man/*-*.8) # no applet has a '-' in its name
list(REMOVE_ITEM program_pages ${integration_pages})

# Documents are only in the package. 'cmake --install' omits them: a board's flash has no room.
install(FILES ${program_pages} DESTINATION ${QVE_MANDIR}/man8
        COMPONENT program EXCLUDE_FROM_ALL)
install(FILES ${program_documents} DESTINATION ${QVE_DOCDIR}/qve
        COMPONENT program EXCLUDE_FROM_ALL)
install(FILES docs/pictures/power-cut.svg DESTINATION ${QVE_DOCDIR}/qve/pictures
        COMPONENT program EXCLUDE_FROM_ALL)

# The scripts for the board. 'cmake --install' has them only as a component: not every board needs them.
file(GLOB integration_scripts CONFIGURE_DEPENDS integration/*-upgrade integration/second-checksum
    integration/swupdate/*-agent)
file(GLOB integration_files CONFIGURE_DEPENDS integration/upgrade-*.sh integration/*.conf
    integration/swupdate/*.sh integration/swupdate/*.conf)
install(PROGRAMS ${integration_scripts} DESTINATION sbin COMPONENT integration EXCLUDE_FROM_ALL)
install(FILES ${integration_files} DESTINATION sbin COMPONENT integration EXCLUDE_FROM_ALL)

if(CMAKE_CROSSCOMPILING)
    list(APPEND CPACK_COMPONENTS_ALL integration)
    set(CPACK_DEBIAN_INTEGRATION_PACKAGE_NAME qve-integration)
    set(CPACK_DEBIAN_INTEGRATION_PACKAGE_ARCHITECTURE all)
    set(CPACK_DEBIAN_INTEGRATION_PACKAGE_DEPENDS qve)
    set(CPACK_DEBIAN_INTEGRATION_DESCRIPTION "upgrades of a network video server that survive a power failure
Scripts for the board around its program. They keep the package and the
user's settings on the card until flash holds the complete firmware, and
fetch signed updates from a server with SWUpdate.")
    install(FILES ${integration_pages} DESTINATION ${QVE_MANDIR}/man8
            COMPONENT integration EXCLUDE_FROM_ALL)
    install(FILES integration/README.md DESTINATION ${QVE_DOCDIR}/qve-integration
            COMPONENT integration EXCLUDE_FROM_ALL)
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armel)
else()
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
if(QVE_HOST_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME fwpack)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
    set(CPACK_DEBIAN_TOOLS_DESCRIPTION "firmware packages for a network video server
fwpack makes, checks and shows the files from which a network video server
installs its firmware, and takes them apart again. It runs the same checks
as the board, so it tells on a PC whether a board would accept a package.")
    install(TARGETS fwpack RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES docs/man/fwpack.1 DESTINATION ${QVE_MANDIR}/man1 COMPONENT tools)
    install(FILES tools/completion/fwpack.bash RENAME fwpack
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT tools)
    install(FILES tools/completion/_fwpack
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/vendor-completions COMPONENT tools)
    install(FILES docs/firmware-package.md DESTINATION ${QVE_DOCDIR}/fwpack COMPONENT tools)
    install(FILES docs/pictures/package.svg DESTINATION ${QVE_DOCDIR}/fwpack/pictures
            COMPONENT tools)
endif()
# With the tests, the program has no fortified calls. No package comes from such a build.
if(NOT QVE_TESTS)
    include(CPack)
endif()
