# What Doxygen reads of a header. Copies, moves, != and serialize_ mean what the class comment, == and ktPersistent say, so the
# headers do not explain each of them; the reference does. In a comment, "Throws:" and its like begin a line. Lines keep their numbers.

function is_documented() { return previous ~ /^ *\/\/\// }

function copy_of(class, declaration) {
    if (declaration ~ /&&/) {
        return class in tells_of_move ? "A move; see the class about what it leaves behind." : "A move."
    }
    return class in tells ? "A copy; see the class about what it shares." : "A copy."
}

# Without this line Doxygen leaves out what stands in no class.
/^#pragma once/ { print "/** @file */"; next }

/^extern template / { print ""; next }

/\\$/ { print; previous = $0; next }

# Whether the comment above a class has something to tell of copies and moves.
/^ *\/\/\/ / && !is_documented() { tells_of_copies = tells_of_moves = 0 }
/^ *\/\/\/.*Copy:/ { tells_of_copies = 1 }
/^ *\/\/\/.*Move:/ { tells_of_moves = 1 }
/^ *(class|struct) .*[{]$/ && tells_of_copies { tells[$2 ~ /^KT_/ ? $3 : $2] = 1 }
/^ *(class|struct) .*[{]$/ && tells_of_moves { tells_of_move[$2 ~ /^KT_/ ? $3 : $2] = 1 }

/^ *\/\/\// {
    line = $0
    # What stands for something in a text, <name>, is no tag.
    while (match(line, /[^A-Za-z0-9_:`\\]<[A-Za-z]+>/)) {
        line = substr(line, 1, RSTART) "\\" substr(line, RSTART + 1)
    }
    labels = "(Requires|Effects|Throws|Returns|Cost|Polls|See|Ownership|Copy|Move|Threads|Archive|Versions|Kept on purpose)(, in this order)?:"
    if (is_documented() && match(line, "/// " labels)) {
        line = substr(line, 1, RSTART + 3) "<br>**" substr(line, RSTART + 4, RLENGTH - 4) "**" substr(line, RSTART + RLENGTH)
    }
    while (match(line, "[.;] " labels)) {
        line = substr(line, 1, RSTART) " <br>**" substr(line, RSTART + 2, RLENGTH - 2) "**" substr(line, RSTART + RLENGTH)
    }
    print line
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
                line = line (line ~ /= delete/ ? " ///< No copies." : " ///< " copy_of(name, line))
            }
        } else if (line ~ /operator=\(/) {
            name = line
            sub(/.*operator=\((const )?/, "", name)
            sub(/[^A-Za-z_].*/, "", name)
            line = line (line ~ /= delete/ ? " ///< No copies." : " ///< " copy_of(name, line))
        } else if (match(line, /operator==\(.*return (isEqual|isEquivalent)\(other\); }$/)) {
            line = line " ///< As `" (line ~ /isEqual\(/ ? "isEqual" : "isEquivalent") "` says."
        } else if (line ~ /operator!=\(.*[;}]$/) {
            line = line " ///< Not `==`."
        } else if (line ~ /void serialize_\(ktArchive&.*;$/) {
            line = line " ///< Archives this layer after its version byte; see ktPersistent about versions."
        }
    }
    print line
    previous = $0
}
