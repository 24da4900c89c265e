vemkn_test(kernels/test_kernels HIDDEN LABELS unit SOURCES kernels/test_kernels.cpp kernels/one_lane.cpp)
# Those with fused multiply-adds, and the lesser ones besides the best.
if(VEMKN_PROCESSOR STREQUAL "x86_64")
    set(fused_sets avx2 avx512)
    set(lesser_sets baseline sse4 avx2)
    vemkn_test(kernels/test_features HIDDEN LABELS unit)
else()
    set(fused_sets neon)
    set(lesser_sets)
    set(of_other_processors kernels/test_features.cpp)
endif()
list(GET fused_sets 0 first_fused)
get_source_file_property(of_first_fused ${PROJECT_SOURCE_DIR}/src/kernels/kernels_${first_fused}.cpp
                         TARGET_DIRECTORY vemkn_objects COMPILE_OPTIONS)
set_source_files_properties(kernels/one_lane.cpp PROPERTIES COMPILE_OPTIONS "${of_first_fused}")
vemkn_test(kernels/test_product HIDDEN LABELS unit)
vemkn_test(kernels/test_tiles HIDDEN LABELS unit)

# The same bits on every processor with fused multiply-adds: results hashed network by network, as each instruction set computes
# them, against the stored ones. Threads are more than a sanitizer's run is worth.
if(NOT VEMKN_SANITIZE)
    foreach(set IN LISTS fused_sets)
        add_executable(results_${set} bits/results.cpp ${PROJECT_SOURCE_DIR}/src/kernels/kernels.cpp
            $<FILTER:$<TARGET_OBJECTS:vemkn_objects>,EXCLUDE,/kernels/kernels[.]cpp[.]o$>)
        target_compile_definitions(results_${set} PRIVATE VEMKN_INSTRUCTION_SET=${set})
        target_include_directories(results_${set} PRIVATE
            ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
        target_link_libraries(results_${set} PRIVATE vemkn_flags PkgConfig::OPENBLAS OpenMP::OpenMP_CXX)
        add_test(NAME Bits.AreTheStoredOnes/${set} COMMAND results_${set} ${CMAKE_CURRENT_SOURCE_DIR}/bits/digests.txt)
        set_tests_properties(Bits.AreTheStoredOnes/${set} PROPERTIES LABELS "unit" SKIP_RETURN_CODE 77 TIMEOUT 300
            ENVIRONMENT OMP_WAIT_POLICY=passive)
    endforeach()
    if(CMAKE_CROSSCOMPILING) # an emulator takes minutes for all networks
        set_tests_properties(Bits.AreTheStoredOnes/neon PROPERTIES TIMEOUT 1500)
        add_test(NAME Bits.OfSomeNetworksAreTheStoredOnes/neon
                 COMMAND results_neon ${CMAKE_CURRENT_SOURCE_DIR}/bits/digests.txt --every 9)
        set_tests_properties(Bits.OfSomeNetworksAreTheStoredOnes/neon PROPERTIES LABELS "unit" TIMEOUT 300
            ENVIRONMENT OMP_WAIT_POLICY=passive)
    endif()

    # The reference cases with the kernels of each of the lesser instruction sets; those of the best one have them anyway.
    foreach(set IN LISTS lesser_sets)
        add_executable(reference_${set} api/test_reference.cpp ${PROJECT_SOURCE_DIR}/src/kernels/kernels.cpp
            $<FILTER:$<TARGET_OBJECTS:vemkn_objects>,EXCLUDE,/kernels/kernels[.]cpp[.]o$>)
        target_compile_definitions(reference_${set} PRIVATE VEMKN_INSTRUCTION_SET=${set}
            VEMKN_REFERENCE_DIR="${CMAKE_CURRENT_SOURCE_DIR}/reference")
        target_include_directories(reference_${set} PRIVATE
            ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
        target_link_libraries(reference_${set} PRIVATE vemkn_test_flags PkgConfig::OPENBLAS OpenMP::OpenMP_CXX
            GTest::gtest_main nlohmann_json::nlohmann_json)
        set(flags_of_baseline fpu)
        set(flags_of_sse4 sse4_1 sse4_2 popcnt aes pclmulqdq)
        set(flags_of_avx2 ${flags_of_sse4} avx2 fma bmi1 bmi2 abm movbe f16c)
        list(JOIN flags_of_${set} " " flags)
        add_test(NAME Reference.HoldsWithKernelsOf/${set} COMMAND sh -c
            "for f in ${flags}; do grep -qw $f /proc/cpuinfo || { echo this processor has no $f; exit 77; }; done; exec $<TARGET_FILE:reference_${set}>")
        set_tests_properties(Reference.HoldsWithKernelsOf/${set} PROPERTIES
            LABELS "unit" SKIP_RETURN_CODE 77 TIMEOUT 300)
    endforeach()

    # At the weights of a fit that another processor has made: scripts/arm64.
    add_executable(fit_points bits/fit_points.cpp)
    target_link_libraries(fit_points PRIVATE vemkn vemkn_flags)
    add_library(record_fit MODULE bits/record_fit.cpp)
    target_link_libraries(record_fit PRIVATE vemkn vemkn_flags)

    # And as the shared library does where the host has loaded another BLAS first.
    add_executable(results bits/results.cpp)
    target_include_directories(results PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(results PRIVATE vemkn vemkn_flags)
    if(EXISTS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/blas/libblas.so.3)
        add_test(NAME Bits.AreTheStoredOnesBesideAnotherBlas
                 COMMAND results ${CMAKE_CURRENT_SOURCE_DIR}/bits/digests.txt)
        set_tests_properties(Bits.AreTheStoredOnesBesideAnotherBlas PROPERTIES
            ENVIRONMENT "OMP_WAIT_POLICY=passive;LD_PRELOAD=/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/blas/libblas.so.3")
    else()
        add_test(NAME Bits.AreTheStoredOnesBesideAnotherBlas COMMAND sh -c "echo libblas3 is missing; exit 77")
    endif()
    set_tests_properties(Bits.AreTheStoredOnesBesideAnotherBlas PROPERTIES
        LABELS "unit" SKIP_RETURN_CODE 77 TIMEOUT 300)
    if(CMAKE_CROSSCOMPILING)
        set_tests_properties(Bits.AreTheStoredOnesBesideAnotherBlas PROPERTIES TIMEOUT 1500)
    endif()
endif()
