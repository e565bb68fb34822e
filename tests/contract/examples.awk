# Writes each header's example, what stands between @code and @endcode in its comments, behind its #include into the file
# HEADER.c or, of a header of C++, HEADER.cpp in the directory `into`.
FNR == 1 {
    header = FILENAME
    sub(/^.*include\//, "", header)
    file = header
    gsub(/[\/.]/, "_", file)
    file = into "/" file (header ~ /hpp$/ ? ".cpp" : ".c")
    inside = 0
}
/ @endcode$/ { inside = 0 }
inside {
    sub(/^( \*|\/\/) ?/, "")
    print >file
}
/ @code$/ {
    inside = 1
    if (!begun[file]++)
        print "#include <" header ">" >file
}
