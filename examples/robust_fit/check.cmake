# Rows of y = x^2 to two digits, scattered by up to 0.05 either way, every tenth one 5 higher: the example finds the curve, the
# scatter and the outliers, and vemkn-fit predicts the same by the model that it leaves.
#   PROGRAM FIT WORK EMULATOR (of another processor, or none)

cmake_minimum_required(VERSION 3.25)

set(rows "")
foreach(i RANGE 0 199)
    math(EXPR x "(${i} * 37) % 201 - 100") # hundredths, -100 ... 100
    math(EXPR y "${x} * ${x} + ((${i} * 7919) % 101 - 50) * 10") # ten-thousandths
    math(EXPR turn "${i} % 10")
    if(turn EQUAL 0)
        math(EXPR y "${y} + 50000")
    endif()
    string(APPEND rows "${x}e-2 ${y}e-4\n")
endforeach()
file(WRITE ${WORK}/rows.txt "${rows}")
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${WORK}/model.json INPUT_FILE ${WORK}/rows.txt
                OUTPUT_VARIABLE said COMMAND_ERROR_IS_FATAL ANY)
if(NOT said MATCHES "^core 0\\.0[234][0-9]*, 20 rows are outliers\n-1: (0\\.9[0-9]+|1\\.0[0-9]+)\n0: -?0\\.0[0-4][0-9]*\n1: (0\\.9[0-9]+|1\\.0[0-9]+)\n$")
    message(FATAL_ERROR "said:\n${said}")
endif()
file(WRITE ${WORK}/new.csv "x1\n-1\n0\n1\n")
execute_process(COMMAND ${EMULATOR} ${FIT} predict ${WORK}/model.json ${WORK}/new.csv
                OUTPUT_VARIABLE predicted ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "\n1: ([0-9]\\.[0-9][0-9])" ignored "${said}")
if(NOT predicted MATCHES "^x1,fit\\(y\\)\n" OR NOT predicted MATCHES "\n1,([0-9.]+)\n$")
    message(FATAL_ERROR "predicted:\n${predicted}")
endif()
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${WORK}/no/such/folder INPUT_FILE ${WORK}/rows.txt
                RESULT_VARIABLE status ERROR_VARIABLE complaint OUTPUT_QUIET)
if(status EQUAL 0 OR NOT complaint MATCHES "cannot be written")
    message(FATAL_ERROR "status ${status}: ${complaint}")
endif()
