# Runs PROGRAM, by EMULATOR where there is one, on texts that are no tree: each ends with exit status 1, nothing on the
# standard output and one line on the standard error that names the file and the line, and says what is wrong. DATA is the csv
# file that the tree is for.

set(yes "    leaf benign=3 malignant=1\n")
set(no "else:\n    leaf benign=1 malignant=3\n")
set(if "if worst_radius <= 16.3:\n")

function(refused case text complaint)
    set(file ${FOLDER}/${case}.txt)
    file(WRITE ${file} "${text}")
    execute_process(
        COMMAND ${EMULATOR} ${PROGRAM} ${file} ${DATA}
        RESULT_VARIABLE status
        OUTPUT_VARIABLE output
        ERROR_VARIABLE error)
    string(REPLACE "\r" "" error "${error}")
    if(NOT status EQUAL 1 OR NOT output STREQUAL "" OR NOT error STREQUAL "error: ${file}: ${complaint}\n")
        message(FATAL_ERROR "${case}: exit status ${status}, output \"${output}\", error \"${error}\"")
    endif()
endfunction()

refused(empty "# nothing\n" "line 2: a tree is expected")
refused(cut_short "${if}${yes}" "line 3: the tree is not complete")
refused(two_trees "${if}${yes}${no}${if}" "line 5: the tree is complete, nothing more is expected")
refused(no_else "${if}${yes}${yes}" "line 3: \"else:\" is expected, not \"leaf\"")
refused(no_if "${no}" "line 1: there is no \"if\" for this \"else:\"")
refused(indented "${if}  leaf benign=3 malignant=1\n" "line 2: 4 blanks are expected before \"leaf\"")
refused(keyword "when worst_radius <= 16.3:\n" "line 1: \"if\", \"else:\" or \"leaf\" is expected, not \"when\"")
refused(measurement "${if}    if best_radius <= 1:\n" "line 2: \"best_radius\" is no measurement")
refused(comparison "if worst_radius > 16.3:\n" "line 1: \"<=\" is expected, not \">\"")
refused(number "if worst_radius <= 16,3:\n" "line 1: a number and a colon are expected, not \"16,3:\"")
refused(colon "if worst_radius <= 16.3\n" "line 1: a number and a colon are expected, not \"16.3\"")
refused(after_the_colon "if worst_radius <= 16.3: leaf\n" "line 1: \"leaf\" is too much")
refused(category "${if}    leaf harmless=3 malignant=1\n" "line 2: \"benign=\" and a count are expected, not \"harmless=3\"")
refused(count "${if}    leaf benign=3 malignant=-1\n" "line 2: \"malignant=\" and a count are expected, not \"malignant=-1\"")
refused(no_count "${if}    leaf benign=3\n" "line 2: \"malignant=\" and a count are expected, not \"\"")
refused(more "${if}    leaf benign=3 malignant=1 unclear=1\n" "line 2: \"unclear=1\" is too much")
refused(unreached "${if}    leaf benign=0 malignant=0\n" "line 2: a leaf that no sample reached knows no answer")
