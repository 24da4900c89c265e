# Calls and texts that nobody thought of.

vemkn_test(fuzz/test_random_calls LABELS unit deriv)
# The plain loops multiply complex numbers that are all finite: no look at each product for infinities.
target_compile_options(test_random_calls PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fcx-limited-range>)
