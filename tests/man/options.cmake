# The manual page of vemkn-fit explains the options that the program has and no others.
#   PROGRAM PAGE EMULATOR (of another processor, or none)

cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${EMULATOR} ${PROGRAM} --help OUTPUT_VARIABLE help COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\n  (-[a-z],)?--[a-z-]+" offered "${help}")
list(TRANSFORM offered REPLACE "^\n  (-[a-z],)?" "")

file(READ ${PAGE} page)
string(REPLACE "\\-" "-" page "${page}")
string(REGEX MATCHALL "\n\\.TP\n(\\\\fB-[a-z]\\\\fP, )?\\\\fB--[a-z-]+" explained "${page}")
list(TRANSFORM explained REPLACE "^.*\\\\fB--" "--")

list(SORT offered)
list(SORT explained)
if(NOT offered OR NOT offered STREQUAL explained)
    message(FATAL_ERROR "the program has ${offered}\nthe page has ${explained}")
endif()
