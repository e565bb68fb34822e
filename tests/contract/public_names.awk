# Lists what the public headers declare, one name a line.
#   kind=exports   functions and objects marked BRI_API
#   kind=records   structures with a body

/^#/ || directive {
    directive = /\\$/
    next
}

{
    line = $0
    gsub(/"[^"]*"/, "", line)
    text = text " " line
}

function without_comments(s,   from, to, out) {
    while ((from = index(s, "/*")) > 0) {
        out = out substr(s, 1, from - 1) " "
        s = substr(s, from + 2)
        to = index(s, "*/")
        s = substr(s, to + 2)
    }
    return out s
}

function exported_name(s) {
    sub(/^[^;]*BRI_API/, "", s)
    if (s ~ /\(/)
        sub(/ *\(.*/, "", s)
    else
        sub(/ *\[.*/, "", s)
    sub(/^.*[ *]/, "", s)
    return s
}

END {
    text = without_comments(text)
    gsub(/[ \t]+/, " ", text)
    count = split(text, statements, ";")
    for (i = 1; i <= count; i++) {
        statement = statements[i]
        sub(/ *$/, "", statement)
        if (kind == "exports" && statement ~ /(^|[ }])BRI_API /)
            print exported_name(statement)
        if (kind == "records" && match(statement, /struct [a-z0-9_]+ \{/)) {
            name = substr(statement, RSTART + 7, RLENGTH - 9)
            print name
        }
    }
}
