# What Doxygen reads of a header. Copies, moves and != mean what the class comment and == say, so the headers do not
# explain each of them; the reference does. In a comment, "Throws:" and its like begin a line. Lines keep their numbers.

function is_documented() { return previous ~ /^ *\/\/\// }

# Without this line Doxygen leaves out what stands in no class.
/^#pragma once/ { print "/** @file */"; next }

/^extern template / { print ""; next }

/\\$/ { print; previous = $0; next }

is_documented() && match($0, /\/\/\/ (Requires|Effects|Throws|Returns|Cost|Polls|See|Ownership|Copy|Threads|Archive|Kept on purpose):/) {
    before = substr($0, 1, RSTART + 3)
    label = substr($0, RSTART + 4, RLENGTH - 4)
    print before "<br>**" label "**" substr($0, RSTART + RLENGTH)
    previous = $0
    next
}

{
    line = $0
    if (!is_documented()) {
        if (match(line, /^ *(explicit )?[A-Za-z_]+\((const )?[A-Za-z_]+&&? ?[a-z]*\)( noexcept)?( = (default|delete);|;| \{\}| : )/)) {
            name = line
            sub(/^ */, "", name)
            sub(/\(.*/, "", name)
            if (line ~ ("\\((const )?" name "&&? ?[a-z]*\\)")) {
                line = line (line ~ /= delete/ ? " ///< No copies." : " ///< A copy; see the class about what it shares.")
            }
        } else if (line ~ /operator=\(/) {
            line = line (line ~ /= delete/ ? " ///< No copies." : " ///< A copy; see the class about what it shares.")
        } else if (line ~ /operator!=\(.*[;}]$/) {
            line = line " ///< Not `==`."
        }
    }
    print line
    previous = $0
}
