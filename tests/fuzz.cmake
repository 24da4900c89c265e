# Calls and texts that nobody thought of.

vemkn_test(fuzz/test_random_calls LABELS unit deriv)

# libFuzzer comes with clang. Off but in the preset fuzz: everything has to be made for it.
if(VEMKN_FUZZ)
    add_executable(fuzz_description fuzz/fuzz_description.cpp)
    target_link_libraries(fuzz_description PRIVATE vemkn_objects vemkn_flags)
    target_link_options(fuzz_description PRIVATE -fsanitize=fuzzer)
endif()
