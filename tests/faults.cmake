# What hosts do to a library, row by row of docs/reliability.md: scripts/reliability names the suite of each row. The expected
# outcome stands behind the underscore in each name. All bear the label faults.

vemkn_test(faults/test_faults SCENES LABELS faults process SOURCES
    faults/test_host_team.cpp
    faults/test_stale_flags.cpp
    faults/test_openblas_variants.cpp
    faults/test_many_threads.cpp
    faults/test_environment.cpp
    faults/test_width_stop.cpp
    faults/test_wrong_arguments.cpp
    faults/test_huge_counts.cpp
    faults/test_locale.cpp
    faults/test_handler.cpp
    faults/test_lost_output.cpp
    faults/test_hostile_text.cpp
    faults/test_jumps.cpp
    faults/test_endings.cpp
    faults/test_cancelled.cpp
    faults/test_host_environment.cpp
    faults/test_scarce_memory.cpp)
file(GLOB openblas_folders /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/openblas-*)
list(JOIN openblas_folders ":" openblas_folders)
if(TARGET test_faults)
    target_compile_definitions(test_faults PRIVATE VEMKN_OPENBLAS_FOLDERS="${openblas_folders}")
endif()

vemkn_test(faults/test_fork ALLOCATIONS LABELS faults process)
vemkn_test(faults/test_load UNLINKED SCENES LABELS faults process)
vemkn_test(faults/test_leaks LABELS faults)
vemkn_test(faults/test_guarded LABELS faults)
# nosan: a sanitizer sees two definitions of everything.
vemkn_test(faults/test_copies SCENES LABELS faults process nosan)
# nosan: sanitizers have a pthread_create of their own.
vemkn_test(faults/test_no_threads LABELS faults nosan)

# Host threads wait for each other, and there are more of them than processors: no spinning.
vemkn_test(faults/test_fault_threads LABELS faults threads ENVIRONMENT OMP_WAIT_POLICY=passive SOURCES
    faults/test_quiet_nan.cpp
    faults/test_host_crowd.cpp)

# Hosts in other languages, where their interpreters are installed. A host that is not sanitized itself cannot load a
# sanitized library, nor one for another processor.
find_program(VEMKN_RSCRIPT Rscript)
# Not one that a version manager puts in front: the system's, whose packages the system has.
find_program(VEMKN_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)

# vemkn_host_test(name interpreter arguments...)
function(vemkn_host_test name interpreter)
    if(VEMKN_SANITIZE OR CMAKE_CROSSCOMPILING)
        return()
    endif()
    if(interpreter)
        add_test(NAME ${name} COMMAND ${interpreter} ${ARGN})
    else()
        add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} -E echo "skipped: the interpreter is not installed")
    endif()
    set_tests_properties(${name} PROPERTIES LABELS "faults;process" TIMEOUT 120
        SKIP_REGULAR_EXPRESSION "skipped: the interpreter;No module named 'numpy'"
        ENVIRONMENT "LD_LIBRARY_PATH=$<TARGET_FILE_DIR:vemkn>")
endfunction()

add_library(r_shim MODULE faults/r_shim.c)
target_link_libraries(r_shim PRIVATE vemkn)
set(python_host ${CMAKE_CURRENT_SOURCE_DIR}/faults/hosts.py $<TARGET_FILE:vemkn>)
set(r_host ${CMAKE_CURRENT_SOURCE_DIR}/faults/hosts.R $<TARGET_FILE:r_shim>)
vemkn_host_test(StaleFlagsFault.StaleFlagsOfNumPy_NormalResult "${VEMKN_PYTHON}" ${python_host} stale_flags)
vemkn_host_test(StaleFlagsFault.StaleFlagsOfR_NormalResult "${VEMKN_RSCRIPT}" ${r_host} stale_flags)
vemkn_host_test(ForkFault.ForkByMultiprocessing_TheSameBits "${VEMKN_PYTHON}" ${python_host} fork)
vemkn_host_test(ForkFault.ForkByMclapply_TheSameBits "${VEMKN_RSCRIPT}" ${r_host} fork)

# Whether the gate for races sees one.
if(VEMKN_SANITIZE MATCHES "thread")
    add_executable(planted_race support/planted_race.cpp)
    target_link_libraries(planted_race PRIVATE vemkn_objects vemkn_flags OpenMP::OpenMP_CXX)
    add_test(NAME ThreadSanitizer.SeesAPlantedRace COMMAND planted_race)
    set_tests_properties(ThreadSanitizer.SeesAPlantedRace PROPERTIES LABELS threads
        PASS_REGULAR_EXPRESSION "WARNING: ThreadSanitizer: data race")
endif()
