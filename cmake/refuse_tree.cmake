# Runs PROGRAM, by EMULATOR where there is one, on texts that are no tree: each ends with exit status 1, nothing on the
# standard output and one line on the standard error that names the file, and the line if it is the fault of one, and says what is wrong. DATA is the csv
# file that the tree is for.

set(yes "    leaf benign=3 malignant=1\n")
set(no "else:\n    leaf benign=1 malignant=3\n")
set(if "if worst_radius <= 16.3:\n")

function(refused case text complaint)
    set(file ${FOLDER}/${case}.txt)
    file(WRITE ${file} "${text}")
    execute_process(
        COMMAND ${EMULATOR} ${PROGRAM} ${file} ${DATA} malignant=10
        RESULT_VARIABLE status
        OUTPUT_VARIABLE output
        ERROR_VARIABLE error)
    string(REPLACE "\r" "" error "${error}")
    if(NOT status EQUAL 1 OR NOT output STREQUAL "" OR NOT error STREQUAL "error: ${file}: ${complaint}\n")
        message(FATAL_ERROR "${case}: exit status ${status}, output \"${output}\", error \"${error}\"")
    endif()
endfunction()

refused(empty "# nothing\n" "one tree is expected")
refused(cut_short "${if}${yes}" "line 1: nothing stands below \"if\"")
refused(cut_at_else "${if}${yes}else:\n" "line 3: nothing stands below \"else:\"")
refused(two_trees "${if}${yes}${no}    leaf benign=1\n" "one tree is expected")
refused(two_leaves "leaf benign=1\nleaf benign=1\n" "one tree is expected")
refused(no_else "${if}${yes}${yes}" "line 1: \"if\" has no \"else:\"")
refused(no_if "${no}" "one tree is expected")
refused(indented "${if}  leaf benign=3 malignant=1\n${no}" "line 1: nothing stands below \"if\"")
refused(all_indented "    leaf benign=3 malignant=1\n" "one tree is expected")
refused(keyword "when worst_radius <= 16.3:\n" "line 1: \"if\", \"else:\" or \"leaf\" is expected, not \"when\"")
refused(measurement "${if}    if best_radius <= 1:\n" "line 2: \"best_radius\" is not among the names in the file")
refused(comparison "if worst_radius > 16.3:\n" "line 1: \"if NAME <= NUMBER:\" is expected")
refused(number "if worst_radius <= 16,3:\n" "line 1: \"if NAME <= NUMBER:\" is expected")
refused(colon "if worst_radius <= 16.3\n" "line 1: \"if NAME <= NUMBER:\" is expected")
refused(after_the_colon "if worst_radius <= 16.3: leaf\n" "line 1: \"if NAME <= NUMBER:\" is expected")
refused(category "${if}    leaf harmless=3 malignant=1\n" "line 2: \"harmless\" is not among the names in the file")
refused(count "${if}    leaf benign=3 malignant=-1\n" "line 2: \"NAME=COUNT\" is expected")
refused(no_count "${if}    leaf benign=3 malignant=\n" "line 2: \"NAME=COUNT\" is expected")
refused(no_sign "${if}    leaf benign=3 malignant\n" "line 2: \"malignant\" is not followed by \"=\" and a count")
refused(unreached "${if}    leaf benign=0 malignant=0\n" "line 2: a leaf that no sample reached knows no answer")
refused(nothing_counted "leaf\n" "line 1: a leaf that no sample reached knows no answer")
