# A C99 program that includes nothing but a library's header compiles without a warning, calls every exported function
# and runs.
#   CC SANITIZE HOST INCLUDE LIBRARY LIST NM WORK EMULATOR (of another processor, or none)

cmake_minimum_required(VERSION 3.25)

file(MAKE_DIRECTORY ${WORK})
cmake_path(GET LIBRARY PARENT_PATH LIBDIR)
set(flags -std=c99 -pedantic -Wall -Wextra -Wshadow -Wconversion -Wstrict-prototypes -Werror)
if(SANITIZE)
    list(APPEND flags -fsanitize=${SANITIZE})
endif()
execute_process(COMMAND ${CC} ${flags} -I${INCLUDE} ${HOST} -o ${WORK}/c_host
                        ${LIBRARY} -Wl,-rpath,${LIBDIR}
                COMMAND_ERROR_IS_FATAL ANY)

execute_process(COMMAND ${NM} --undefined-only --format=posix ${WORK}/c_host
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
file(STRINGS ${LIST} exported REGEX " T$")
foreach(symbol IN LISTS exported)
    string(REGEX REPLACE "@.*$" "" function "${symbol}")
    if(NOT output MATCHES "(^|\n)${function}[ @]")
        message(SEND_ERROR "${function} is not called by ${HOST}")
    endif()
endforeach()

execute_process(COMMAND ${EMULATOR} ${WORK}/c_host RESULT_VARIABLE status OUTPUT_QUIET)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "the check in line ${status} of ${HOST} fails")
endif()
