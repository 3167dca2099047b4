# Static checks and formatting of all our own code: program, tools, tests, emulated board and bench.
file(GLOB tool_sources CONFIGURE_DEPENDS tools/*.cpp)
file(GLOB headers CONFIGURE_DEPENDS
    app/*.h util/*.h flash/*.h upgrade/*.h bringup/*.h hwtest/*.h tools/*.h)
file(GLOB_RECURSE other_sources CONFIGURE_DEPENDS tests/*.cpp board/*.cpp bench/*.cpp)
file(GLOB_RECURSE other_headers CONFIGURE_DEPENDS tests/*.h board/*.h)
set(sources ${program_sources} ${PROJECT_SOURCE_DIR}/app/main.cpp ${tool_sources} ${other_sources})
file(GLOB scripts CONFIGURE_DEPENDS check demo .ci/run scripts/*.sh packaging/debian/*.sh tools/completion/*.bash
    board/*.sh board/rootfs/init board/rootfs/sbin/* tests/run tests/*/*.sh
    bench/*.sh integration/*-upgrade integration/*.sh integration/*.conf integration/second-checksum
    integration/swupdate/*-*)
file(GLOB_RECURSE python CONFIGURE_DEPENDS tests/*.py board/*.py bench/*.py)

# clang-tidy guesses the flags of a source that this build leaves out from those of its neighbours.
list(JOIN sources "\n" source_lines)
file(WRITE ${CMAKE_BINARY_DIR}/sources "${source_lines}")
cmake_host_system_information(RESULT processors QUERY NUMBER_OF_LOGICAL_CORES)

add_custom_target(lint
    COMMAND clang-format --dry-run --Werror ${sources} ${headers} ${other_headers}
    COMMAND xargs -a ${CMAKE_BINARY_DIR}/sources -d \\n -n 1 -P ${processors}
            clang-tidy --quiet -p ${CMAKE_BINARY_DIR} # for GCC's flags:
            --extra-arg=-Wno-unknown-warning-option --extra-arg=-Wno-sign-conversion
    COMMAND cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20
            --enable=warning,style,performance,portability
            --suppress=missingIncludeSystem --suppress=useStlAlgorithm
            --suppress=constParameterCallback --suppress=normalCheckLevelMaxBranches
            --suppress=constParameter:*/tests/* --suppress=constParameterPointer:*/tests/*
            --suppress=unusedStructMember:*/tests/* # wrong there
            -I ${PROJECT_SOURCE_DIR} -DQVE_BUILD_STAMP="" ${sources}
    COMMAND shellcheck -x ${scripts}
    COMMAND pyflakes3 ${python}
    COMMAND pycodestyle --max-line-length=132 ${python}
    COMMAND scripts/check-includes.sh
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    VERBATIM)

add_custom_target(format
    COMMAND clang-format -i ${sources} ${headers} ${other_headers})
