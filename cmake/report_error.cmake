# Runs PROGRAM with ARGUMENTS: it ends with exit status 1, and one line on the standard error is exactly ERROR.

execute_process(COMMAND ${PROGRAM} ${ARGUMENTS} RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE error)
if(NOT status EQUAL 1 OR NOT error STREQUAL "${ERROR}\n")
    message(FATAL_ERROR "exit status ${status}, error \"${error}\", not \"${ERROR}\"")
endif()
