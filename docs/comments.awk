# The headers' plain comments as Doxygen wants them marked: at the head of a file (without it no function of the file has
# a place in the reference), before a declaration, behind a member. A comment is for all declarations that follow it
# without an empty line, so it is said again before each of them but the first.

function begins_declaration() {
    return !depth && !unfinished && /^(BRI_API|QV_API|typedef|struct|enum|#define) /
}

function say_again() {
    if (shared != "" && !directly_behind)
        print "/** " shared " */"
    directly_behind = 0
}

NR == 1 { sub(/^\/\* /, "/** @file\n * ") }

/^$/ { shared = "" }

/^\/\*/ {
    sub(/^\/\* /, "/** ")
    shared = ""
    in_comment = 1
}

in_comment {
    text = $0
    gsub(/^(\/\*+| \*)( |$)| *\*\/$/, "", text)
    shared = shared (shared == "" ? "" : " ") text
    print
    if (/\*\/$/) {
        in_comment = 0
        directly_behind = 1
    }
    next
}

{
    sub(/^ +\/\* /, "&\001")
    sub(/\/\* \001/, "/** ") # alone in its line, before a member
    if (!/^#/ || /^#define /)
        sub(/[^ ] *\/\* /, "&\001")
    sub(/\/\* \001/, "/**< ") # behind a member, an enumerator, a macro
    if (begins_declaration())
        say_again()
    print
    code = $0
    sub(/\/\*.*/, "", code)
    depth += gsub(/{/, "{", code) - gsub(/}/, "}", code)
    unfinished = code ~ /^#/ ? code ~ /\\$/ : code ~ /[^ ;{}] *$/ && !depth && code !~ /^(BRI|QV)_[A-Z_]+(\(.*\))?;?$/
}
