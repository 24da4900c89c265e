# A library exports exactly the symbols of the stored list, and those are what the header declares.
#   LIBRARY HEADER LIST NM

cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${NM} --dynamic --defined-only --format=posix ${LIBRARY}
                OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
set(exported)
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^([^ ]+) ([^ ]+).*$" "\\1 \\2" symbol "${line}")
    # A variable stands among the initialised data or not, as the compiler likes.
    string(REGEX REPLACE " [BD]$" " data" symbol "${symbol}")
    list(APPEND exported "${symbol}")
endforeach()
file(STRINGS ${LIST} intended)
list(TRANSFORM intended REPLACE " [BD]$" " data")

set(missing ${intended})
list(REMOVE_ITEM missing ${exported})
set(surplus ${exported})
list(REMOVE_ITEM surplus ${intended})
if(missing OR surplus)
    list(JOIN missing "\n  " missing)
    list(JOIN surplus "\n  " surplus)
    message(FATAL_ERROR "missing:\n  ${missing}\nsurplus:\n  ${surplus}")
endif()

file(READ ${HEADER} header)
string(REGEX MATCHALL "VEMKN(_FIT)?_API [A-Za-z0-9_* ]+\\(" declarations "${header}")
list(FILTER declarations EXCLUDE REGEX "__attribute__")
# The version that the symbols belong to is one itself.
set(version ${intended})
list(FILTER version INCLUDE REGEX " A$")
string(REGEX REPLACE " A$" "" version "${version}")
set(declared)
foreach(declaration IN LISTS declarations)
    string(REGEX REPLACE "^.*[ *]([A-Za-z0-9_]+)\\($" "\\1" function "${declaration}")
    list(APPEND declared "${function}@@${version} T")
endforeach()
set(functions ${intended})
list(FILTER functions INCLUDE REGEX " T$")
list(SORT declared)
list(SORT functions)
if(NOT declared STREQUAL functions)
    message(FATAL_ERROR "declared: ${declared}\nexported: ${functions}")
endif()
