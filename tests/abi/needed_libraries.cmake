# A library needs nothing beyond those that it is to need and what comes with the compiler and the C library.
#   LIBRARY READELF SONAME NEEDS (names between semicolons)

cmake_minimum_required(VERSION 3.25)

set(allowed
    ${NEEDS} libstdc++.so.6 libgcc_s.so.1 libm.so.6 libc.so.6
    ld-linux-x86-64.so.2 ld-linux-aarch64.so.1)
execute_process(COMMAND ${READELF} --dynamic ${LIBRARY}
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" lines "${output}")
if(NOT lines)
    message(FATAL_ERROR "no needed libraries in:\n${output}")
endif()
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^.*\\[(.*)\\].*$" "\\1" library "${line}")
    if(NOT library IN_LIST allowed)
        message(SEND_ERROR "needs ${library}")
    endif()
endforeach()
string(FIND "${output}" "[${SONAME}]" place)
if(NOT output MATCHES "\\(SONAME\\)" OR place EQUAL -1)
    message(SEND_ERROR "soname is not ${SONAME}:\n${output}")
endif()
