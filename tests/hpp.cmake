# The C++ header vemkn.hpp, whose functions are tested through the shared library, as a host uses them.

vemkn_test(hpp/test_hpp_values LABELS unit deriv)
vemkn_test(hpp/test_hpp_network LABELS unit)
vemkn_test(hpp/test_hpp_memory ALLOCATIONS LABELS unit ENVIRONMENT OMP_WAIT_POLICY=passive)
vemkn_test(hpp/test_hpp_order LABELS unit threads ENVIRONMENT OMP_WAIT_POLICY=passive)

# The example of its head comment, as it stands there.
set(example ${CMAKE_CURRENT_BINARY_DIR}/hpp_example.cpp)
add_custom_command(OUTPUT ${example}
    COMMAND ${CMAKE_COMMAND} -DHEADER=${PROJECT_SOURCE_DIR}/include/vemkn.hpp -DPROGRAM=${example}
            -P ${CMAKE_CURRENT_SOURCE_DIR}/hpp/example.cmake
    DEPENDS ${PROJECT_SOURCE_DIR}/include/vemkn.hpp hpp/example.cmake)
add_executable(hpp_example ${example})
target_link_libraries(hpp_example PRIVATE vemkn vemkn_flags)
add_test(NAME Hpp.TheExampleFindsTheFit COMMAND hpp_example)
set_tests_properties(Hpp.TheExampleFindsTheFit PROPERTIES LABELS unit TIMEOUT 60
    PASS_REGULAR_EXPRESSION "objective 1\\.8")
