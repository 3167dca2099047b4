# Static checks and formatting of all our own code.
file(GLOB tool_sources CONFIGURE_DEPENDS tools/*.cpp)
file(GLOB headers CONFIGURE_DEPENDS
    app/*.h util/*.h flash/*.h upgrade/*.h bringup/*.h hwtest/*.h tools/*.h)
set(sources ${program_sources} ${PROJECT_SOURCE_DIR}/app/main.cpp ${tool_sources})
file(GLOB_RECURSE test_sources CONFIGURE_DEPENDS tests/*.cpp tests/*.h board/*.cpp board/*.h
    bench/*.cpp)
file(GLOB scripts CONFIGURE_DEPENDS check demo .ci/run scripts/*.sh packaging/debian/*.sh tools/completion/*.bash
    board/*.sh board/rootfs/sbin/* tests/*/*.sh
    bench/*.sh integration/*-upgrade integration/*.sh integration/*.conf integration/second-checksum
    integration/swupdate/*-*)

add_custom_target(lint
    COMMAND clang-format --dry-run --Werror ${sources} ${headers} ${test_sources}
    COMMAND run-clang-tidy -quiet -p ${CMAKE_BINARY_DIR} ${sources}
    COMMAND cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20
            --enable=warning,style,performance,portability
            --suppress=missingIncludeSystem --suppress=useStlAlgorithm
            --suppress=constParameterCallback --suppress=normalCheckLevelMaxBranches
            -I ${PROJECT_SOURCE_DIR} -DQVE_BUILD_STAMP="" ${sources}
    COMMAND shellcheck -x ${scripts}
    COMMAND scripts/check-includes.sh
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    VERBATIM)

add_custom_target(format
    COMMAND clang-format -i ${sources} ${headers} ${test_sources})
