# The headers' plain comments as Doxygen wants them marked: at the head of a file (without it no function of the file has
# a place in the reference), before a declaration, behind a member. A comment is for all declarations that follow it
# without an empty line, so it is said again before each of them but the first. One that an empty line follows is for
# the whole section that begins there: its first sentence is the section's title. One before layout assertions alone is
# for those who read the header.

function begins_declaration() {
    return !depth && !unfinished && /^(BRI_API|QV_API|static inline|constexpr|template|inline|typedef|struct|class|enum|#define) /
}

function say_again() {
    if (shared != "" && !directly_behind)
        print "/** " shared " */"
    directly_behind = 0
}

function end_section() {
    if (in_section)
        print "/** @} */"
    in_section = 0
}

# A comment without its marks, and without the rules that set a title off.
function text_of(comment,   lines, count, i, text) {
    count = split(comment, lines, "\n")
    for (i = 1; i <= count; i++) {
        sub(/^(\/\*+| \*)( |$)/, "", lines[i])
        sub(/ *\*\/$/, "", lines[i])
        gsub(/ ?---+ ?/, "", lines[i])
        text = text (i > 1 ? "\n" : "") lines[i]
    }
    return text
}

function begin_section(text,   title) {
    end_section()
    match(text, /[.:] |[.:]?(\n *\n|\n*$)/)
    title = substr(text, 1, RSTART - 1)
    gsub(/\n/, " ", title)
    print "/** @name " title "\n" substr(text, RSTART + 1) " */\n/** @{ */"
    in_section = 1
}

# The line, with the figure that begins behind `from` set off.
function field_at(from,   figure, behind) {
    behind = substr($0, from)
    match(behind, /[0-9]+/)
    figure = substr(behind, RSTART, RLENGTH)
    behind = substr(behind, RSTART + RLENGTH)
    sub(/^: /, " ", behind)
    return substr($0, 1, from - 1) "<span class=\"offset\">" figure "</span>" behind
}

# What a comment is for shows in the line behind it.
function tell(comment, next_line) {
    if (next_line == "" && told_family)
        begin_section(text_of(comment))
    else if (next_line ~ /^BRI_(AT|SIZE)\(/)
        print comment
    else {
        sub(/^\/\* /, told_family ? "/** " : "/** @file\n * ", comment)
        print comment
        shared = text_of(comment)
        directly_behind = 1
    }
    told_family = 1
}

in_comment || /^\/\*/ {
    comment = in_comment ? comment "\n" $0 : $0
    in_comment = $0 !~ /\*\/$/
    ended = !in_comment
    next
}

ended {
    tell(comment, $0)
    ended = 0
}

/^$/ { shared = "" }

/^(BRI_END_DECLS|#endif|#ifdef __cplusplus)/ { end_section() }

{
    sub(/^ +\/\* /, "&\001")
    sub(/\/\* \001/, "/** ") # alone in its line, before a member
    if (!/^#/ || /^#define /)
        sub(/[^ ] *\/\* /, "&\001")
    sub(/\/\* \001/, "/**< ") # behind a member, an enumerator, a macro
    if (/^(struct|enum) .*{$/)
        laid_out = 0
    if (match($0, /\/\*\*< +[0-9]+(: | \*\/$)/)) { # a field, which begins at this byte when the record begins at 0
        laid_out = laid_out || before ~ /^struct /
        if (laid_out)
            $0 = field_at(RSTART + 5)
    }
    before = $0
    if ($1 == "BRI_API" && $2 == "enum" && index($4, $3 "(void)") == 1)
        sub(/\(void\)/, "(BRI_NOTHING void)") # an argument, or Doxygen takes the function for the enumeration
    if (begins_declaration())
        say_again()
    print
    code = $0
    sub(/\/\*.*/, "", code)
    depth += gsub(/{/, "{", code) - gsub(/}/, "}", code)
    unfinished = code ~ /^#/ ? code ~ /\\$/ : code ~ /[^ ;{}] *$/ && !depth && code !~ /^(BRI|QV)_[A-Z_]+(\(.*\))?;?$/
}
