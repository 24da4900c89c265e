# What a host sees of the library before it runs: symbols, needed libraries, headers.

# vemkn_script_test(name LABELS ... SCRIPT file VARIABLES NAME=value ...): a test that is a CMake script.
function(vemkn_script_test name)
    cmake_parse_arguments(ARG "" "SCRIPT" "LABELS;VARIABLES" ${ARGN})
    if(VEMKN_SANITIZE AND "nosan" IN_LIST ARG_LABELS)
        return()
    endif()
    list(TRANSFORM ARG_VARIABLES PREPEND -D)
    add_test(NAME ${name}
             COMMAND ${CMAKE_COMMAND} ${ARG_VARIABLES} -P ${CMAKE_CURRENT_SOURCE_DIR}/${ARG_SCRIPT})
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 300)
endfunction()

vemkn_script_test(Library.ExportsTheIntendedSymbolsOnly LABELS abi SCRIPT abi/exported_symbols.cmake
    VARIABLES LIBRARY=$<TARGET_FILE:vemkn> HEADER=${PROJECT_SOURCE_DIR}/include/vemkn.h
              LIST=${CMAKE_CURRENT_SOURCE_DIR}/abi/exported_symbols.txt NM=${CMAKE_NM})
# nosan: a sanitizer brings libraries of its own.
vemkn_script_test(Library.NeedsNoUnusualLibrary LABELS abi nosan SCRIPT abi/needed_libraries.cmake
    VARIABLES LIBRARY=$<TARGET_FILE:vemkn> READELF=${CMAKE_READELF})
# nosan: sanitizers do without most of it. Nor does a build that is not optimised.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    vemkn_script_test(Library.IsHardenedAndKeepsToTheArithmeticOfTheStandard LABELS abi nosan SCRIPT abi/hardening.cmake
        VARIABLES LIBRARY=$<TARGET_FILE:vemkn> READELF=${CMAKE_READELF} NM=${CMAKE_NM}
                  COMMANDS=${PROJECT_BINARY_DIR}/compile_commands.json LINK=${PROJECT_BINARY_DIR}/build.ninja)
endif()
vemkn_script_test(CHost.CompilesAsC99AndCallsEveryFunction LABELS abi SCRIPT abi/c_host.cmake
    VARIABLES CC=${CMAKE_C_COMPILER} SANITIZE=${VEMKN_SANITIZE}
              HOST=${CMAKE_CURRENT_SOURCE_DIR}/abi/c_host.c INCLUDE=${PROJECT_SOURCE_DIR}/include
              LIBDIR=$<TARGET_FILE_DIR:vemkn> LIST=${CMAKE_CURRENT_SOURCE_DIR}/abi/exported_symbols.txt
              NM=${CMAKE_NM} WORK=${CMAKE_CURRENT_BINARY_DIR}/abi EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR})

vemkn_test(abi/test_layout LABELS abi)

# vemkn_header_test(name header flags...): the header compiles alone, without a warning.
function(vemkn_header_test name header)
    add_test(NAME ${name} COMMAND ${ARGN} -fsyntax-only -Wall -Wextra -Wshadow -Wconversion -Werror
             -include ${header} /dev/null)
    set_tests_properties(${name} PROPERTIES LABELS abi TIMEOUT 60)
endfunction()

file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/*.h)
get_target_property(openblas_include PkgConfig::OPENBLAS INTERFACE_INCLUDE_DIRECTORIES)
list(TRANSFORM openblas_include PREPEND -I)
set(includes -I${PROJECT_SOURCE_DIR}/include)
foreach(header IN LISTS headers)
    file(RELATIVE_PATH name ${PROJECT_SOURCE_DIR}/src ${header})
    set(flags -std=gnu++20 -x c++ ${OpenMP_CXX_FLAGS} ${includes} -I${PROJECT_SOURCE_DIR}/src
              ${openblas_include})
    if(name MATCHES "_(avx2|avx512)\\.h$")
        list(APPEND flags -m${CMAKE_MATCH_1})
        list(TRANSFORM flags REPLACE "^-mavx512$" "-mavx512f")
    endif()
    if(name MATCHES "^fit/")
        if(NOT VEMKN_BUILD_FIT)
            continue()
        endif()
        get_target_property(eigen_include Eigen3::Eigen INTERFACE_INCLUDE_DIRECTORIES)
        list(APPEND flags -isystem ${eigen_include})
    endif()
    vemkn_header_test(Header.CompilesAlone/${name} ${header} ${CMAKE_CXX_COMPILER} ${flags})
endforeach()
set(header ${PROJECT_SOURCE_DIR}/include/vemkn.h)
vemkn_header_test(Header.CompilesAsC99/vemkn.h ${header}
    ${CMAKE_C_COMPILER} -std=c99 -pedantic -x c ${includes})
foreach(standard 11 20)
    foreach(name vemkn.h vemkn_errors.h)
        vemkn_header_test(Header.CompilesAsCxx${standard}/${name}
            ${PROJECT_SOURCE_DIR}/include/${name}
            ${CMAKE_CXX_COMPILER} -std=c++${standard} -pedantic -x c++ ${includes})
    endforeach()
endforeach()
vemkn_header_test(Header.CompilesAsCxx20/vemkn.hpp ${PROJECT_SOURCE_DIR}/include/vemkn.hpp
    ${CMAKE_CXX_COMPILER} -std=c++20 -pedantic -x c++ ${includes})

# nosan: a host that is not sanitized itself cannot load a sanitized library.
vemkn_script_test(Installation.ServesHostsAlsoAfterAMove LABELS install nosan
    SCRIPT install/check_install.cmake
    VARIABLES BUILD=${PROJECT_BINARY_DIR} HOST=${CMAKE_CURRENT_SOURCE_DIR}/install/host
              LIBDIR=${CMAKE_INSTALL_LIBDIR} CC=${CMAKE_C_COMPILER} VERSION=${PROJECT_VERSION}
              PKG_CONFIG=${PKG_CONFIG_EXECUTABLE} WORK=${CMAKE_CURRENT_BINARY_DIR}/install)
