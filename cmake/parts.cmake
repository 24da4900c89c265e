# Parts of the project that a machine may lack the packages for.

# vemkn_leave_out(OPTION what  found1 package1  found2 package2 ...): unless every variable found... is true, switches the
# option off, says which part is not built and which Debian packages it is built with.
function(vemkn_leave_out option what)
    set(missing)
    while(ARGN)
        list(POP_FRONT ARGN found package)
        if(NOT ${found})
            list(APPEND missing ${package})
        endif()
    endwhile()
    if(missing)
        list(REMOVE_DUPLICATES missing)
        list(JOIN missing " " packages)
        message(WARNING "${what} not built. Install: ${packages}")
        set(${option} OFF PARENT_SCOPE)
    endif()
endfunction()

if(VEMKN_BUILD_TESTS)
    find_package(GTest QUIET)
    find_package(nlohmann_json QUIET)
    vemkn_leave_out(VEMKN_BUILD_TESTS "The tests are"
        GTest_FOUND libgtest-dev nlohmann_json_FOUND nlohmann-json3-dev)
endif()
if(VEMKN_BUILD_BENCH)
    find_package(benchmark QUIET)
    pkg_check_modules(MPFR QUIET IMPORTED_TARGET mpfr)
    vemkn_leave_out(VEMKN_BUILD_BENCH "The benchmarks are"
        benchmark_FOUND libbenchmark-dev MPFR_FOUND libmpfr-dev)
endif()
if(VEMKN_BUILD_FIT)
    pkg_check_modules(NLOPT QUIET IMPORTED_TARGET nlopt)
    find_path(NLOPT_CXX_INCLUDE_DIR nlopt.hpp)
    find_package(CLI11 QUIET)
    find_package(Eigen3 QUIET NO_MODULE)
    find_package(nlohmann_json QUIET)
    find_path(CSV_INCLUDE_DIR csv.h)
    find_library(CSV_LIBRARY csv)
    find_package(ZLIB QUIET)
    vemkn_leave_out(VEMKN_BUILD_FIT "vemkn-fit is"
        NLOPT_FOUND libnlopt-dev NLOPT_CXX_INCLUDE_DIR libnlopt-cxx-dev CLI11_FOUND libcli11-dev
        Eigen3_FOUND libeigen3-dev nlohmann_json_FOUND nlohmann-json3-dev
        CSV_INCLUDE_DIR libcsv-dev CSV_LIBRARY libcsv-dev ZLIB_FOUND zlib1g-dev)
endif()

# What cpack runs. Without dpkg-dev it would write packages that depend on nothing, without `file` fail after the whole build.
option(VEMKN_PACKAGES "Debian packages are to be made: what they are made with must be there" OFF)
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(FILE_PROGRAM file)
set(VEMKN_CAN_PACKAGE ON)
if(VEMKN_PACKAGES)
    vemkn_leave_out(VEMKN_CAN_PACKAGE "Debian packages are" DPKG_SHLIBDEPS dpkg-dev FILE_PROGRAM file)
    # Without vemkn-fit only for those who ask for that.
    if(NOT VEMKN_CAN_PACKAGE OR ("$CACHE{VEMKN_BUILD_FIT}" AND NOT VEMKN_BUILD_FIT))
        message(FATAL_ERROR "Debian packages cannot be made without what is named above")
    endif()
elseif(NOT DPKG_SHLIBDEPS OR NOT FILE_PROGRAM)
    set(VEMKN_CAN_PACKAGE OFF)
endif()
