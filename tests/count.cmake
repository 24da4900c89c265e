# Instructions of calls, counted by callgrind: a guard against overhead that no clock on a shared machine shows. It holds
# for the versions named in count/expected.txt and is skipped with others.
find_program(VALGRIND valgrind)
find_path(VALGRIND_INCLUDE valgrind/callgrind.h)
if(NOT VALGRIND OR NOT VALGRIND_INCLUDE)
    message(STATUS "No valgrind: instructions are not counted")
elseif(NOT VEMKN_SANITIZE AND NOT CMAKE_CROSSCOMPILING) # valgrind excludes a sanitizer, and other processors
    add_executable(count_calls count/count_calls.cpp
        ${PROJECT_SOURCE_DIR}/bench/entries.cpp ${PROJECT_SOURCE_DIR}/bench/problem.cpp)
    target_include_directories(count_calls PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/bench ${VALGRIND_INCLUDE})
    target_compile_definitions(count_calls PRIVATE VEMKN_BUILD_TYPE="${CMAKE_BUILD_TYPE}")
    target_link_libraries(count_calls PRIVATE vemkn vemkn_flags PkgConfig::OPENBLAS)
    add_test(NAME Calls.TakeNoMoreInstructionsThanExpected
             COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/count/check $<TARGET_FILE:count_calls> ${VALGRIND})
    set_tests_properties(Calls.TakeNoMoreInstructionsThanExpected PROPERTIES
        LABELS count SKIP_RETURN_CODE 77 TIMEOUT 300)
endif()
