# What hosts do to a library, row by row of docs/reliability.md: suite Fault01 is row 1. The expected outcome stands
# behind the underscore in each name. All bear the label faults.

vemkn_test(faults/test_faults SCENES LABELS faults process SOURCES
    faults/test_host_team.cpp
    faults/test_stale_flags.cpp
    faults/test_openblas_variants.cpp
    faults/test_many_threads.cpp
    faults/test_environment.cpp
    faults/test_width_stop.cpp
    faults/test_hostile_text.cpp)
file(GLOB openblas_folders /usr/lib/*/openblas-*)
list(JOIN openblas_folders ":" openblas_folders)
target_compile_definitions(test_faults PRIVATE VEMKN_OPENBLAS_FOLDERS="${openblas_folders}")

vemkn_test(faults/test_fork ALLOCATIONS LABELS faults process)

# Host threads wait for each other, and there are more of them than processors: no spinning.
vemkn_test(faults/test_fault_threads LABELS faults threads ENVIRONMENT OMP_WAIT_POLICY=passive SOURCES
    faults/test_quiet_nan.cpp
    faults/test_host_crowd.cpp)
