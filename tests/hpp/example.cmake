# Writes the example in the head comment of vemkn.hpp to a file of its own:
#     cmake -DHEADER=.../vemkn.hpp -DPROGRAM=example.cpp -P example.cmake
cmake_minimum_required(VERSION 3.25)

file(READ ${HEADER} header)
string(FIND "${header}" "\n *\n *     // Gradient descent" begin)
string(FIND "${header}" "\n *\n * ## Shapes" end)
if(begin EQUAL -1 OR end LESS begin)
    message(FATAL_ERROR "${HEADER} has no example")
endif()
math(EXPR length "${end} - ${begin}")
string(SUBSTRING "${header}" ${begin} ${length} example)
string(REGEX REPLACE "\n \\*(     )?" "\n" example "${example}")
file(WRITE ${PROGRAM} "${example}\n")
