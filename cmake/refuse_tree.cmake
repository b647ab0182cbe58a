# Runs PROGRAM, by EMULATOR where there is one, on tables that are no tree: each ends with exit status 1, nothing on the
# standard output and one line on the standard error that says what is wrong, with the file and the row if it is the fault of
# one. DATA is the csv file that the tree is for.

set(columns "question,limit,benign,malignant\n")
set(if "worst_radius,16.3,,\n")
set(yes ",,3,1\n")
set(no ",,1,3\n")

function(refused case text complaint)
    set(file ${FOLDER}/${case}.csv)
    file(WRITE ${file} "${text}")
    execute_process(
        COMMAND ${EMULATOR} ${PROGRAM} ${file} ${DATA} malignant=10
        RESULT_VARIABLE status
        OUTPUT_VARIABLE output
        ERROR_VARIABLE error)
    string(REPLACE "\r" "" error "${error}")
    string(REPLACE "@FILE@" "${file}" expected "error: ${complaint}\n")
    if(NOT status EQUAL 1 OR NOT output STREQUAL "" OR NOT error STREQUAL expected)
        message(FATAL_ERROR "${case}: exit status ${status}, output \"${output}\", error \"${error}\"")
    endif()
endfunction()

set(csv "ktKit::FileError, number 0x10004400: @FILE@")
refused(empty "" "${csv}: line 1: the names of the columns are missing")
refused(number "${columns}worst_radius,16;3,,\n" "${csv}: line 2, column 2 (limit): \"16;3\" is not a number")
refused(category "question,limit,harmless,malignant\n" "\"harmless\" is not the name of a category")
refused(no_rows "${columns}" "@FILE@: one tree is expected")
refused(two_trees "${columns}${if}${yes}${no}${yes}" "@FILE@: one tree is expected")
refused(two_leaves "${columns}${yes}${no}" "@FILE@: one tree is expected")
refused(cut_short "${columns}${if}" "@FILE@: row 1: a question needs a yes side and a no side")
refused(no_no "${columns}${if}${if}${yes}${no}" "@FILE@: row 1: a question needs a yes side and a no side")
refused(no_limit "${columns}worst_radius,,,\n${yes}${no}" "@FILE@: row 1: a question needs a limit")
refused(measurement "${columns}best_radius,16.3,,\n${yes}${no}"
        "@FILE@: row 1: \"best_radius\" is not the name of a measurement")
refused(no_count "${columns}${if}${yes},,1,\n" "@FILE@: row 3: a leaf needs the count of each category")
refused(negative "${columns}${if},,3,-1\n${no}" "@FILE@: row 2: a leaf needs the count of each category")
refused(unreached "${columns}${if}${yes},,0,0\n" "@FILE@: row 3: a leaf that no sample reached knows no answer")
refused(nothing_counted "question,limit\n${yes}" "${csv}: line 2: 4 cells, but 2 columns")
refused(no_categories "question,limit\n,1\n" "@FILE@: row 1: a leaf that no sample reached knows no answer")
