# Section-3 man pages from the public headers' comments, a page an operation and a page a header, in the directory `into`:
#     awk -v into=DIR -v version=1.0.0 -f docs/man.awk include/bridge/*.h
# A comment is for all declarations that follow it without an empty line. One that is followed by an empty line is for
# the whole section that begins there, and the first one of a header for its family. An example stands between @code and
# @endcode.

# What stands between backquotes, in bold.
function bold(line) {
    while (match(line, /`[^`]*`/))
        line = substr(line, 1, RSTART - 1) "\\fB" substr(line, RSTART + 1, RLENGTH - 2) "\\fR" substr(line, RSTART + RLENGTH)
    return line
}

function text_of(block, line,   lines, count, i, out, verbatim, code, as_it_stands, in_list, item) {
    sub(/^\/\* ?/, "", block)
    sub(/[ \n]*\*?\*\/[ ]*$/, "", block)
    count = split(block, lines, "\n")
    for (i = 1; i <= count; i++) {
        line = lines[i]
        sub(/^ \* ?/, "", line)
        sub(/ -----+$/, "", line) # a rule behind the title of a section
        gsub(/\\/, "\\e", line)
        gsub(/-/, "\\-", line)
        if (line ~ /^@(end)?code$/) {
            code = line == "@code"
            continue
        }
        if (line ~ /^ *$/)
            in_list = 0
        else if (match(line, /^ *([0-9]+[.]|\\-) +/) && !verbatim && !code) {
            in_list = 1
            item = substr(line, 1, RLENGTH)
            gsub(/ /, "", item)
            line = ".IP " item " 4\n" substr(line, RLENGTH + 1)
        }
        if (in_list)
            sub(/^ +/, "", line)
        as_it_stands = code || line ~ /^    /
        if (as_it_stands != verbatim)
            out = out (as_it_stands ? ".PP\n.nf\n" : ".fi\n")
        verbatim = as_it_stands
        if (!verbatim)
            line = bold(line)
        if (line ~ /^ *$/)
            out = out (code ? ".sp\n" : verbatim ? "" : ".PP\n")
        else
            out = out (line ~ /^[.']/ && line !~ /^\.IP / ? "\\&" : "") line "\n"
    }
    return out (verbatim ? ".fi\n" : "")
}

# The first sentence, for the line that apropos shows: without markup, in one line and not too long for one.
function brief(block,   text) {
    text = text_of(block)
    gsub(/\\f[BR]/, "", text)
    gsub(/\.PP\n(\.nf\n)?/, "\001", text)
    gsub(/\n/, " ", text)
    if (match(text, /[^.]\.( |$)|\001/))
        text = substr(text, 1, RSTART - (substr(text, RSTART, 1) == "\001"))
    if (length(text) > 100 && match(text, /^[^ ]+ [^ ]+ [^:;(]*([(][^)]*[)][^:;(]*)*[:;] /))
        text = substr(text, 1, RLENGTH - 2)
    sub(/ +$/, "", text)
    return text
}

# A field whose comment does not fit behind it has it above, in as many lines as it needs.
function within(columns, field,   at, indent, words, count, i, line, out) {
    at = index(field, "/* ")
    if (length(field) <= columns || !at)
        return field
    match(field, /^ */)
    indent = substr(field, 1, RLENGTH)
    count = split(substr(field, at), words, " ")
    line = indent words[1]
    for (i = 2; i <= count; i++)
        if (length(line " " words[i]) > columns) {
            out = out line "\n"
            line = indent "   " words[i]
        } else
            line = line " " words[i]
    field = substr(field, 1, at - 1)
    sub(/ +$/, "", field)
    return out line (field == "" ? "" : "\n" field)
}

function begin_page(name, about,   file) {
    file = into "/" name ".3"
    printf ".\\\" Made from include/%s.\n.TH %s 3 \"\" \"bridge_client %s\" \"Bridge client library\"\n", header, name,
        version >file
    printf ".SH NAME\n%s \\- %s\n.SH SYNOPSIS\n.nh\n.ad l\n.B #include <%s>\n", name, about, header >file
    return file
}

function synopsis(declaration) {
    gsub(/\\/, "\\e", declaration)
    gsub(/"/, "\\(dq", declaration)
    gsub(/-/, "\\-", declaration)
    return ".HP\n.B \"" declaration "\"\n"
}

# Up to `most` neighbours, those of the same section first.
function see_also(own, most,   i, pass, out, n) {
    out = "\\fB" family "\\fR(3)"
    for (pass = 1; pass <= 2; pass++)
        for (i = 1; i <= functions && n < most; i++)
            if (i != own && (section_of[i] == section_of[own]) == (pass == 1)) {
                out = out ",\n\\fB" name_of[i] "\\fR(3)"
                n++
            }
    return ".SH SEE ALSO\n.nh\n.ad l\n" out "\n"
}

function finish_header(   i, file) {
    if (header == "")
        return
    for (i = 1; i <= functions; i++) {
        file = begin_page(name_of[i], brief(comment_of[i]))
        printf "%s.ad b\n.hy\n.SH DESCRIPTION\n%s", synopsis(declaration_of[i]), text_of(comment_of[i]) >file
        if (section_text[section_of[i]] != "")
            printf ".SS The family\n%s", text_of(section_text[section_of[i]]) >file
        printf ".SH NOTES\nWhere nothing else is said: on the thread of the host's event loop; 0 on success, a negative\n" \
            "number on failure. \\fBbridge_base\\fR(3) has the conventions of all families.\n" >file
        printf "%s", see_also(i, 12) >file
        close(file)
    }
    file = begin_page(family, brief(section_text[0]))
    for (i = 1; i <= functions; i++)
        printf "%s", synopsis(declaration_of[i]) >file
    printf ".ad b\n.hy\n.SH DESCRIPTION\n%s", text_of(section_text[0]) >file
    if (records != "")
        printf ".SH RECORDS\n.nf\n%s.fi\n", records >file
    printf "%s", see_also(0, functions) >file
    close(file)
}

FNR == 1 {
    finish_header()
    header = FILENAME
    sub(/^.*include\//, "", header)
    family = header
    sub(/\.h$/, "", family)
    gsub(/\//, "_", family)
    functions = sections = 0
    records = comment = declaration = ""
    inside_comment = inside_record = inside_body = 0
    split("", section_text)
}

!inside_comment && !inside_record && /^\/\*/ {
    comment = ""
    inside_comment = 1
    attached = 0
}
inside_comment {
    comment = comment (comment == "" ? "" : "\n") $0
    if (/\*\/ *$/) {
        inside_comment = 0
        if (!told_family[header]++)
            section_text[0] = comment
    }
    next
}
inside_body {
    if (/^}/)
        inside_body = 0
    next
}
/^(struct|enum) [a-z_0-9]+ {/ {
    inside_record = 1
    attached = 1
    if (comment != "")
        records = records ".fi\n.PP\n" text_of(comment) ".PP\n.nf\n"
}
inside_record {
    if (unfinished != "") {
        sub(/^ *\* /, "")
        $0 = unfinished " " $0
    }
    unfinished = /\/\*/ && !/\*\// ? $0 : ""
    if (unfinished != "")
        next
    line = within(72, $0)
    gsub(/\\/, "\\e", line)
    gsub(/-/, "\\-", line)
    records = records line "\n"
    if (/}.*;$/) {
        inside_record = 0
        records = records "\n"
    }
    next
}
/^$/ && declaration == "" {
    if (comment != "" && !attached && comment != section_text[0])
        section_text[++sections] = comment
    comment = ""
    next
}
/^(BRI_API|static inline) / && declaration == "" { declaration = " " }
declaration != "" {
    line = $0
    sub(/^ +/, "", line)
    declaration = declaration (declaration ~ /[( ]$/ ? "" : " ") line
    if (!/[;{]$/)
        next
    inside_body = /{$/
    sub(/^ *(BRI_API|static inline) /, "", declaration)
    sub(/ ?{$/, ";", declaration)
    name = declaration
    sub(/\(.*/, "", name)
    sub(/(\[.*)?;$/, "", name)
    sub(/^.*[ *]/, "", name)
    declaration_of[++functions] = declaration
    name_of[functions] = name
    comment_of[functions] = comment
    section_of[functions] = sections
    attached = 1
    declaration = ""
}

END { finish_header() }
