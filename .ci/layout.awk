# Turns what g++ -fdump-lang-class writes into a table of this project's classes: of each its size, its bases with their
# offsets, and its virtual table entry by entry. The dump leaves a pure virtual function without a name; the classes derived
# from it show what stands there. Templates of the headers alone are left out: programs lay them out for themselves.

/^$/ { part = "" }

/^(Class|Vtable for) kt/ {
    part = $1
    name = substr($0, part == "Class" ? 7 : 12)
    if (name ~ /^kt(PtrHandle|LeastStoredSize)</) {
        part = ""
    } else if (!(name in seen)) {
        seen[name] = 1
        names[++count] = name
    }
    next
}

part == "Class" && /^ +size=/ {
    size[name] = $1 ", " $2
}

part == "Class" && /^[^ ].* \(0x/ {
    base = $0
    sub(/ \(0x.*/, "", base)
    offset = $0
    sub(/.*\) /, "", offset)
    sub(/ .*/, "", offset)
    if (base != name) {
        bases[name] = bases[name] "    base " base " at " offset "\n"
    }
}

part == "Vtable" && /^[0-9]+ / {
    place = $1 / 8
    sub(/^[0-9]+ +(\(int \(\*\)\(\.\.\.\)\))?/, "")
    if (/_ZTI/) {
        $0 = "type information"
    } else if (/::_ZT[hv]/) {
        sub(/^.*::_Z/, "_Z")
    } else if (/^18446744073709/) {
        $0 = substr($0, 15) - 551616
    } else if ($0 == "__cxa_pure_virtual") {
        $0 = "pure virtual"
    }
    entries[name] = entries[name] "    " place ": " $0 "\n"
}

END {
    for (i = 1; i <= count; ++i) {
        print names[i] ": " size[names[i]]
        printf "%s%s", bases[names[i]], entries[names[i]]
    }
}
