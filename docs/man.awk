# Section-3 man pages from the public headers' comments, a page an operation and a page a header, in the directory `into`:
#     awk -v into=DIR -v version=1.0.0 -f docs/man.awk include/bridge/*.h
# A comment is for all declarations that follow it without an empty line. One that is followed by an empty line is for
# the whole section that begins there, and the first one of a header for its family.

function text_of(block, line,   lines, count, i, out, verbatim) {
    sub(/^\/\* ?/, "", block)
    sub(/[ \n]*\*?\*\/[ ]*$/, "", block)
    count = split(block, lines, "\n")
    for (i = 1; i <= count; i++) {
        line = lines[i]
        sub(/^ \* ?/, "", line)
        sub(/ -----+$/, "", line) # a rule behind the title of a section
        gsub(/\\/, "\\e", line)
        gsub(/-/, "\\-", line)
        if (line ~ /^    / && !verbatim) {
            out = out ".PP\n.nf\n"
            verbatim = 1
        } else if (line !~ /^    / && verbatim) {
            out = out ".fi\n"
            verbatim = 0
        }
        if (line ~ /^ *$/)
            out = out (verbatim ? "" : ".PP\n")
        else
            out = out (line ~ /^[.']/ ? "\\&" : "") line "\n"
    }
    return out (verbatim ? ".fi\n" : "")
}

# The first sentence, for the line that apropos shows: without markup, in one line and not too long for one.
function brief(block,   text) {
    text = text_of(block)
    gsub(/\.PP\n(\.nf\n)?/, "\001", text)
    gsub(/\n/, " ", text)
    if (match(text, /[^.]\.( |$)|\001/))
        text = substr(text, 1, RSTART - (substr(text, RSTART, 1) == "\001"))
    if (length(text) > 100 && match(text, /^[^ ]+ [^ ]+ [^:;]*[:;] /))
        text = substr(text, 1, RLENGTH - 2)
    sub(/ +$/, "", text)
    return text
}

function begin_page(name, about,   file) {
    file = into "/" name ".3"
    printf ".\\\" Made from include/%s.\n.TH %s 3 \"\" \"bridge_client %s\" \"Bridge client library\"\n", header, name,
        version >file
    printf ".SH NAME\n%s \\- %s\n.SH SYNOPSIS\n.nf\n.B #include <%s>\n", name, about, header >file
    return file
}

function synopsis(declaration) {
    gsub(/\\/, "\\e", declaration)
    gsub(/"/, "\\(dq", declaration)
    gsub(/-/, "\\-", declaration)
    return ".PP\n.B \"" declaration "\"\n"
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
        printf "%s.fi\n.SH DESCRIPTION\n%s", synopsis(declaration_of[i]), text_of(comment_of[i]) >file
        if (section_text[section_of[i]] != "")
            printf ".SS The family\n%s", text_of(section_text[section_of[i]]) >file
        printf "%s", see_also(i, 12) >file
        close(file)
    }
    file = begin_page(family, brief(section_text[0]))
    for (i = 1; i <= functions; i++)
        printf "%s", synopsis(declaration_of[i]) >file
    printf ".fi\n.SH DESCRIPTION\n%s", text_of(section_text[0]) >file
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
        records = records text_of(comment)
}
inside_record {
    line = $0
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
