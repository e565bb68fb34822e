# Writes the daemons of a guide, its blocks in C, into files of the directory `into`: each begins with its name.
/^```/ {
    inside = $0 == "```c"
    file = ""
    next
}
inside && file == "" {
    if ($2 !~ /^[a-z_]+\.[ch]:$/)
        exit 1
    file = into "/" substr($2, 1, length($2) - 1)
    printf "" >file
}
inside { print >file }
