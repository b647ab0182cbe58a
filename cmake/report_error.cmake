# Runs PROGRAM, by EMULATOR where there is one, with ARGUMENTS: it ends with exit status 1 and, on the standard error, the line
# ERROR alone.

execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${ARGUMENTS} RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE error)
string(REPLACE "\r" "" error "${error}")
if(NOT status EQUAL 1 OR NOT error STREQUAL "${ERROR}\n")
    message(FATAL_ERROR "exit status ${status}, error \"${error}\", not \"${ERROR}\"")
endif()
