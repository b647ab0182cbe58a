# Runs PROGRAM, by EMULATOR where there is one, on damaged copies of the csv file DATA: each ends with exit status 1, nothing
# on the standard output and one line on the standard error that names the file, the line and the column.

file(STRINGS ${DATA} rows)
list(GET rows 0 heading)
list(GET rows 1 first)
list(GET rows 2 second)
string(REPLACE ",10.38," ",ten," not_a_number "${first}")
string(REPLACE ",10.38" "" short "${first}")

set(damaged_not_a_number "${heading}\n${not_a_number}\n${second}\n")
set(expected_not_a_number "line 2, column 3 (mean_texture): \"ten\" is not a number")
set(damaged_short "${heading}\n${second}\n${short}\n")
set(expected_short "line 3: 30 cells, but 31 columns")
set(expected_missing "cannot be read")

foreach(case IN ITEMS not_a_number short missing)
    set(file ${FOLDER}/${case}.csv)
    file(REMOVE ${file})
    if(DEFINED damaged_${case})
        file(WRITE ${file} "${damaged_${case}}")
    endif()
    execute_process(
        COMMAND ${EMULATOR} ${PROGRAM} ${file}
        RESULT_VARIABLE status
        OUTPUT_VARIABLE output
        ERROR_VARIABLE error)
    string(FIND "${error}" "${file}: ${expected_${case}}" place)
    string(REGEX MATCHALL "\n" line_ends "${error}")
    list(LENGTH line_ends lines)
    if(NOT status EQUAL 1 OR NOT output STREQUAL "" OR place EQUAL -1 OR NOT lines EQUAL 1)
        message(FATAL_ERROR "${case}: exit status ${status}, output \"${output}\", error \"${error}\"")
    endif()
endforeach()
