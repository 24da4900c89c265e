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

# vemkn_library_tests(suffix target header HOST file NEEDS libraries): a library, its stored list of symbols and a host in C.
function(vemkn_library_tests suffix target header)
    cmake_parse_arguments(ARG "" "HOST" "NEEDS" ${ARGN})
    set(header ${PROJECT_SOURCE_DIR}/include/${header})
    set(list ${CMAKE_CURRENT_SOURCE_DIR}/abi/exported_symbols${suffix}.txt)
    vemkn_script_test(Library.ExportsTheIntendedSymbolsOnly${suffix} LABELS abi SCRIPT abi/exported_symbols.cmake
        VARIABLES LIBRARY=$<TARGET_FILE:${target}> HEADER=${header} LIST=${list} NM=${CMAKE_NM})
    # nosan: a sanitizer brings libraries of its own.
    list(JOIN ARG_NEEDS "$<SEMICOLON>" needs)
    vemkn_script_test(Library.NeedsNoUnusualLibrary${suffix} LABELS abi nosan SCRIPT abi/needed_libraries.cmake
        VARIABLES LIBRARY=$<TARGET_FILE:${target}> READELF=${CMAKE_READELF} SONAME=$<TARGET_SONAME_FILE_NAME:${target}>
                  "NEEDS=${needs}")
    # nosan: sanitizers do without most of it. Nor does a build that is not optimised.
    if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
        vemkn_script_test(Library.IsHardenedAndKeepsToTheArithmeticOfTheStandard${suffix} LABELS abi nosan
            SCRIPT abi/hardening.cmake
            VARIABLES LIBRARY=$<TARGET_FILE:${target}> READELF=${CMAKE_READELF} NM=${CMAKE_NM}
                      COMMANDS=${PROJECT_BINARY_DIR}/compile_commands.json LINK=${PROJECT_BINARY_DIR}/build.ninja)
    endif()
    vemkn_script_test(CHost.CompilesAsC99AndCallsEveryFunction${suffix} LABELS abi SCRIPT abi/c_host.cmake
        VARIABLES CC=${CMAKE_C_COMPILER} SANITIZE=${VEMKN_SANITIZE}
                  HOST=${CMAKE_CURRENT_SOURCE_DIR}/abi/${ARG_HOST} INCLUDE=${PROJECT_SOURCE_DIR}/include
                  LIBRARY=$<TARGET_FILE:${target}> LIST=${list}
                  NM=${CMAKE_NM} WORK=${CMAKE_CURRENT_BINARY_DIR}/abi${suffix}
                  EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR})
endfunction()

vemkn_library_tests("" vemkn vemkn.h HOST c_host.c NEEDS libopenblas.so.0 libgomp.so.1)
if(VEMKN_BUILD_FIT)
    vemkn_library_tests(_fit vemknfit vemkn_fit.h HOST c_host_fit.c NEEDS libvemkn.so.1 libnlopt.so.0)
endif()

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
        get_target_property(json_include nlohmann_json::nlohmann_json INTERFACE_INCLUDE_DIRECTORIES)
        list(REMOVE_DUPLICATES json_include)
        list(REMOVE_ITEM json_include /usr/include) # which is there already, in its place
        foreach(folder ${eigen_include} ${json_include})
            list(APPEND flags -isystem ${folder})
        endforeach()
    endif()
    vemkn_header_test(Header.CompilesAlone/${name} ${header} ${CMAKE_CXX_COMPILER} ${flags})
endforeach()
foreach(name vemkn.h vemkn_fit.h)
    vemkn_header_test(Header.CompilesAsC99/${name} ${PROJECT_SOURCE_DIR}/include/${name}
        ${CMAKE_C_COMPILER} -std=c99 -pedantic -x c ${includes})
endforeach()
foreach(standard 11 20)
    foreach(name vemkn.h vemkn_fit.h vemkn_errors.h)
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
    VARIABLES BUILD=${PROJECT_BINARY_DIR} FIT=${VEMKN_BUILD_FIT} HOST=${CMAKE_CURRENT_SOURCE_DIR}/install/host
              LIBDIR=${CMAKE_INSTALL_LIBDIR} CC=${CMAKE_C_COMPILER} VERSION=${PROJECT_VERSION}
              PKG_CONFIG=${PKG_CONFIG_EXECUTABLE} WORK=${CMAKE_CURRENT_BINARY_DIR}/install)
