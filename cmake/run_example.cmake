# Runs PROGRAM, by EMULATOR where there is one, in the empty folder FOLDER, with the command line of RECORDED.args, and
# compares what it prints with RECORDED.txt. With KT_UPDATE_RECORDS in the environment it writes that record anew instead.
cmake_minimum_required(VERSION 3.22)

set(arguments "")
if(EXISTS ${RECORDED}.args)
    file(READ ${RECORDED}.args arguments)
    separate_arguments(arguments UNIX_COMMAND "${arguments}")
    list(TRANSFORM arguments REPLACE "@DATA@" "${DATA}")
endif()

file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})
set(printed ${FOLDER}.printed)
execute_process(
    COMMAND ${EMULATOR} ${PROGRAM} ${arguments}
    WORKING_DIRECTORY ${FOLDER}
    OUTPUT_FILE ${printed}
    ERROR_VARIABLE complaint
    RESULT_VARIABLE status)
if(NOT status EQUAL 0 OR NOT complaint STREQUAL "")
    message(FATAL_ERROR "${PROGRAM} ended with status ${status} and said: ${complaint}")
endif()

if(DEFINED ENV{KT_UPDATE_RECORDS})
    configure_file(${printed} ${RECORDED}.txt COPYONLY)
    return()
endif()
if(NOT EXISTS ${RECORDED}.txt)
    message(FATAL_ERROR "There is no record ${RECORDED}.txt to compare with")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files --ignore-eol ${RECORDED}.txt ${printed} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    find_program(DIFF diff)
    if(DIFF)
        execute_process(COMMAND ${DIFF} -u ${RECORDED}.txt ${printed})
    endif()
    message(FATAL_ERROR "What ${PROGRAM} prints is not its record ${RECORDED}.txt")
endif()
