# Static checks and formatting of everything that is ours.
file(GLOB_RECURSE QVE_SOURCES CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/app/*.cpp ${PROJECT_SOURCE_DIR}/util/*.cpp
    ${PROJECT_SOURCE_DIR}/flash/*.cpp ${PROJECT_SOURCE_DIR}/upgrade/*.cpp
    ${PROJECT_SOURCE_DIR}/bringup/*.cpp ${PROJECT_SOURCE_DIR}/tools/*.cpp)
file(GLOB_RECURSE QVE_HEADERS CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/app/*.h ${PROJECT_SOURCE_DIR}/util/*.h
    ${PROJECT_SOURCE_DIR}/flash/*.h ${PROJECT_SOURCE_DIR}/upgrade/*.h
    ${PROJECT_SOURCE_DIR}/tools/*.h)
file(GLOB_RECURSE QVE_TEST_SOURCES CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/tests/*.cpp ${PROJECT_SOURCE_DIR}/tests/*.h)
file(GLOB QVE_SCRIPTS CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/check ${PROJECT_SOURCE_DIR}/demo ${PROJECT_SOURCE_DIR}/.ci/run
    ${PROJECT_SOURCE_DIR}/scripts/*.sh ${PROJECT_SOURCE_DIR}/board/*.sh ${PROJECT_SOURCE_DIR}/board/rootfs/sbin/*
    ${PROJECT_SOURCE_DIR}/tests/*/*.sh)

add_custom_target(lint
    COMMAND clang-format --dry-run --Werror ${QVE_SOURCES} ${QVE_HEADERS} ${QVE_TEST_SOURCES}
    COMMAND clang-tidy -p ${CMAKE_BINARY_DIR} --quiet ${QVE_SOURCES}
    COMMAND cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20
            --enable=warning,style,performance,portability
            --suppress=missingIncludeSystem --suppress=useStlAlgorithm
            -I ${PROJECT_SOURCE_DIR} -DQVE_BUILD_STAMP="" ${QVE_SOURCES}
    COMMAND shellcheck -x ${QVE_SCRIPTS}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    VERBATIM)

add_custom_target(format
    COMMAND clang-format -i ${QVE_SOURCES} ${QVE_HEADERS} ${QVE_TEST_SOURCES})
