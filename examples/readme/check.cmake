# A page shows the example as it stands, and what it prints:
#     cmake -DPAGE=... -DSOURCE=... -DPROGRAM=... -P check.cmake
cmake_minimum_required(VERSION 3.25)

# Fails unless the page holds text as a whole block of code in that language.
function(expect_block language text what)
    file(READ "${PAGE}" page)
    string(FIND "${page}" "\n```${language}\n${text}```\n" place)
    if(place EQUAL -1)
        message(FATAL_ERROR "${PAGE} does not show ${what}, which is:\n${text}")
    endif()
endfunction()

file(READ "${SOURCE}" program)
expect_block(c "${program}" "the text of ${SOURCE}")

execute_process(COMMAND ${EMULATOR} "${PROGRAM}" OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "^VEMKN [^\n]*\n" "" output "${output}") # the banner, which names the version
expect_block(text "${output}" "what ${PROGRAM} prints")
