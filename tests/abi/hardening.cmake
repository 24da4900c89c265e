# The library is linked so that its tables cannot be overwritten and it stays loaded, checks the stack and the lengths of
# copies, and nothing is compiled or linked with relaxed arithmetic, which would drop NaN, infinities and traps.
#
#   LIBRARY READELF NM COMMANDS (compile_commands.json) LINK (build.ninja, or none)
execute_process(COMMAND ${READELF} --wide --dynamic --program-headers ${LIBRARY}
                OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
foreach(mark "GNU_RELRO" "BIND_NOW|FLAGS.*NOW" "NODELETE")
    if(NOT headers MATCHES "${mark}")
        message(SEND_ERROR "the library lacks ${mark}")
    endif()
endforeach()
if(headers MATCHES "GNU_STACK[^\n]*RWE")
    message(SEND_ERROR "the library wants an executable stack")
endif()

execute_process(COMMAND ${NM} --dynamic --undefined-only ${LIBRARY}
                OUTPUT_VARIABLE imports COMMAND_ERROR_IS_FATAL ANY)
if(NOT imports MATCHES "__stack_chk_fail")
    message(SEND_ERROR "no function of the library checks its stack")
endif()

file(READ ${COMMANDS} commands)
if(NOT commands MATCHES "-D_FORTIFY_SOURCE=2")
    message(SEND_ERROR "nothing is compiled with _FORTIFY_SOURCE")
endif()
if(EXISTS "${LINK}")
    file(READ ${LINK} link)
    string(APPEND commands "${link}")
endif()
foreach(flag -ffast-math -Ofast -funsafe-math-optimizations -ffinite-math-only -fassociative-math -freciprocal-math
             -fno-signed-zeros -fno-trapping-math -mdaz-ftz -ffp-contract=fast)
    string(FIND "${commands}" "${flag}" place)
    if(NOT place EQUAL -1)
        message(SEND_ERROR "something is compiled or linked with ${flag}")
    endif()
endforeach()
