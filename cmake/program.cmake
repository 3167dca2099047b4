# The program: one object library, so that the unit tests link the very same objects.

# If SOURCE_DATE_EPOCH is set, it fixes the time stamp. The same sources then give the same bytes.
string(TIMESTAMP QVE_BUILD_STAMP "%Y.%m.%d-%H:%M+0000" UTC)

file(GLOB program_sources CONFIGURE_DEPENDS
    app/*.cpp util/*.cpp flash/*.cpp upgrade/*.cpp bringup/*.cpp hwtest/*.cpp)
list(REMOVE_ITEM program_sources ${PROJECT_SOURCE_DIR}/app/main.cpp)
add_library(qve_objects OBJECT ${program_sources})
target_link_libraries(qve_objects PUBLIC qve_warnings)
# No heap, no exceptions, no C++ runtime library on the board.
target_compile_options(qve_objects PRIVATE
    -fno-exceptions -fno-rtti -fno-threadsafe-statics -ffunction-sections -fdata-sections
    -Wmissing-declarations)
set_source_files_properties(app/dispatcher.cpp PROPERTIES
    COMPILE_DEFINITIONS "QVE_BUILD_STAMP=\"${QVE_BUILD_STAMP}\"")

add_executable(qve app/main.cpp)
target_link_libraries(qve PRIVATE qve_objects)
target_compile_options(qve PRIVATE -fno-exceptions -fno-rtti)
# Linked as C, without the libraries that CMake adds for C++ objects. Code that needs the C++ runtime
# library fails here and not on the board.
if(NOT QVE_SANITIZE) # sanitizers need that library, and code without optimization
    set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")
    set_target_properties(qve PROPERTIES LINKER_LANGUAGE C)
endif()
target_link_options(qve PRIVATE -Wl,--gc-sections)
# Some compilers call a library for the atomics of a CPU that has none.
include(CheckSourceCompiles)
check_source_compiles(CXX "#include <atomic>
    int main(int count, char **) { std::atomic<int> own{count}; return ++own; }" QVE_HAS_ATOMICS)
if(NOT QVE_HAS_ATOMICS)
    target_link_libraries(qve PRIVATE atomic)
endif()
if(QVE_STATIC)
    # By default, Debian's compiler makes position-independent code.
    target_compile_options(qve_objects PRIVATE -fno-pie)
    target_compile_options(qve PRIVATE -fno-pie)
    # The board's pages have 4 KiB. A newer linker pads the file for pages of 64 KiB, to 132 kB.
    target_link_options(qve PRIVATE -static -Wl,-z,max-page-size=4096)
endif()

# On a board the commands are where its scripts expect them. Anywhere else they are outside the search
# path: there "xkill" is another program, and nobody should start "upgrade" by mistake.
include(GNUInstallDirs)
if(CMAKE_CROSSCOMPILING)
    set(QVE_BINDIR bin)
    set(QVE_MANDIR usr/share/man)
    set(QVE_DOCDIR usr/share/doc)
else()
    set(QVE_BINDIR ${CMAKE_INSTALL_LIBDIR}/qve)
    set(QVE_MANDIR ${CMAKE_INSTALL_MANDIR})
    set(QVE_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc)
endif()

# The program and one link per applet. The names come from the applet table itself.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS app/applet_table.cpp)
file(STRINGS app/applet_table.cpp rows REGEX "^    {\"[a-z0-9_]+\", ")
list(TRANSFORM rows REPLACE "^    {\"([a-z0-9_]+)\".*" "\\1" OUTPUT_VARIABLE QVE_APPLETS)
list(LENGTH QVE_APPLETS applet_count)
if(NOT applet_count EQUAL 24)
    message(FATAL_ERROR "app/applet_table.cpp: found ${applet_count} names of applets, not 24")
endif()
# Without this, the group may write to the folders if the umask is Debian's default for users, 002.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
install(TARGETS qve RUNTIME DESTINATION ${QVE_BINDIR} COMPONENT program)
foreach(applet IN LISTS QVE_APPLETS)
    install(CODE "set(link \"\${CMAKE_INSTALL_PREFIX}/${QVE_BINDIR}/${applet}\")
        file(CREATE_LINK qve \"\$ENV{DESTDIR}\${link}\" SYMBOLIC)
        list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${link}\")"
            COMPONENT program)
endforeach()
