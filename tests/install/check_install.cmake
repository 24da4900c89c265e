# Installs to a scratch prefix, builds and runs hosts against the installed files through find_package and through
# pkg-config; then again after the prefix has moved.
#   BUILD HOST LIBDIR CC VERSION PKG_CONFIG WORK

cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE ${WORK})
set(ENV{DESTDIR} "")

function(run)
    cmake_parse_arguments(ARG "" "OUTPUT" "COMMAND" ${ARGN})
    execute_process(COMMAND ${ARG_COMMAND} RESULT_VARIABLE status OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    if(NOT status EQUAL 0)
        list(JOIN ARG_COMMAND " " command)
        message(FATAL_ERROR "${command}: ${status}\n${output}")
    endif()
    if(ARG_OUTPUT)
        string(STRIP "${output}" output)
        set(${ARG_OUTPUT} "${output}" PARENT_SCOPE)
    endif()
endfunction()

function(check prefix build)
    run(COMMAND ${CMAKE_COMMAND} -S ${HOST} -B ${build}/cmake -G Ninja
                -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release
                -DEXPECTED_PREFIX=${prefix})
    run(COMMAND ${CMAKE_COMMAND} --build ${build}/cmake)
    run(COMMAND ${build}/cmake/c_host)
    run(COMMAND ${build}/cmake/cxx_host)

    set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
    run(COMMAND ${PKG_CONFIG} --modversion vemkn OUTPUT version)
    if(NOT version STREQUAL VERSION)
        message(FATAL_ERROR "pkg-config says version ${version}")
    endif()
    run(COMMAND ${PKG_CONFIG} --cflags --libs vemkn OUTPUT flags)
    # As a shell reads them: blanks in the path come with backslashes.
    separate_arguments(flags UNIX_COMMAND "${flags}")
    foreach(option -I -L)
        string(FIND "${flags}" "${option}${prefix}/" place)
        if(place EQUAL -1)
            message(FATAL_ERROR "pkg-config says ${flags}")
        endif()
    endforeach()
    file(MAKE_DIRECTORY ${build}/pkg-config)
    run(COMMAND ${CC} -std=c99 ${HOST}/c_host.c ${flags} -o ${build}/pkg-config/c_host)
    set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
    run(COMMAND ${build}/pkg-config/c_host)
    set(ENV{LD_LIBRARY_PATH} "")
endfunction()

if(FIT)
    set(FIT_FILES include/vemkn_fit.h share/man/man3/vemkn_fit_robust.3 ${LIBDIR}/libvemknfit.so ${LIBDIR}/libvemknfit.so.1
        ${LIBDIR}/libvemknfit.so.${VERSION} ${LIBDIR}/pkgconfig/vemknfit.pc ${LIBDIR}/cmake/vemknfit/vemknfitConfig.cmake)
endif()
set(first ${WORK}/prefix)
run(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${first})
foreach(file include/vemkn.h include/vemkn.hpp include/vemkn_errors.h share/man/man3/vemk_g.3 ${LIBDIR}/libvemkn.so ${LIBDIR}/libvemkn.so.1
             ${LIBDIR}/libvemkn.so.${VERSION} ${LIBDIR}/pkgconfig/vemkn.pc
             ${LIBDIR}/cmake/vemkn/vemknConfig.cmake ${FIT_FILES})
    if(NOT EXISTS ${first}/${file})
        message(SEND_ERROR "${file} is not installed")
    endif()
endforeach()
check(${first} ${WORK}/build)

# A path as deep as the first one would hide a wrong number of steps upwards.
set(second ${WORK}/moved/to/another/place)
file(MAKE_DIRECTORY ${WORK}/moved/to/another)
file(RENAME ${first} ${second})
check(${second} ${WORK}/build-moved)
