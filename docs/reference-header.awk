# zu.h as Doxygen wants it. The rule lines become groups, whose first comment is their text and which show the guide's
# program that uses most of their functions; comments before and behind declarations become Doxygen's; a comment
# over several declarations becomes the comment of each.

# Text without what Doxygen would take for commands, links or tags; `code` stays as it is.
function plain(text,    parts, count, i, at, result) {
    count = split(text, parts, "`")
    for (i = 1; i <= count; ++i) {
        if (i % 2 == 1) gsub(/[\\@<>#%&]/, "\\\\&", parts[i])
        while (at = index(parts[i], "\\\\\"")) # Doxygen takes \" for a quote inside a quotation
            parts[i] = substr(parts[i], 1, at + 1) "\001" substr(parts[i], at + 2)
        gsub(/\001/, "\\&zwj;", parts[i])
        result = result (i > 1 ? "`" : "") parts[i]
    }
    return result
}

# The name that reference-page.awk gives a heading of the guide.
function name_of(words) {
    words = tolower(words)
    gsub(/[^a-z0-9 _-]/, "", words)
    gsub(/[ -]/, "_", words)
    return "guide_" words
}

# The guide's programs by their number, and the functions of each family, before anything is printed.
function read_ahead(header,    line, inside, family, name) {
    while ((getline line < "docs/guide.md") > 0) {
        if (line ~ /^#+ / && !inside) { heading[++programs] = line; sub(/^#+ /, "", heading[programs]) }
        else if (line ~ /^```c/) { inside = 1; if (program[programs] != "") program[programs] = program[programs] "\n" }
        else if (line ~ /^```$/) inside = 0
        else if (inside) {
            if (gsub(/\/\* ?/, "// ", line)) gsub(/ *\*\//, "", line) # a comment must not end the comment around it
            program[programs] = program[programs] line "\n"
        }
    }
    while ((getline line < header) > 0) {
        if (line ~ /^\/\* ---- /) ++family
        else if (line ~ /^ZU_API/ && match(line, /ZU_[A-Za-z0-9_]+\(/))
            functions[family] = functions[family] " " substr(line, RSTART, RLENGTH)
    }
    close(header)
}

function example(family,    names, count, i, j, score, best, chosen) {
    count = split(functions[family], names, " ")
    for (i = 1; i <= programs; ++i) {
        score = 0
        for (j = 1; j <= count; ++j) score += index(program[i], names[j]) > 0
        if (score > best) { best = score; chosen = i }
    }
    if (!chosen && ARGV[1] ~ /zu\.h$/) {
        print "The guide has no program for family " family " of zu.h:" functions[family] >"/dev/stderr"
        is_missing = 1
    }
    if (!chosen) return ""
    return "\n * From the guide, @ref " name_of(heading[chosen]) " \"" heading[chosen] "\":\n * @code{.c}\n" program[chosen] " * @endcode\n"
}

function title_of(line) { sub(/^\/\* ---- /, "", line); sub(/ -+ \*\/.*/, "", line); return line }

function open_group(line,    title, id) {
    title = title_of(line)
    id = tolower(title)
    gsub(/[^a-z0-9]+/, "_", id)
    if (group++) print "/** @} */"
    print "/**\n * @defgroup " id " " title "\n *"
    opened = 1
}

# The end of a group's text, with its program.
function close_text() {
    printf "%s", example(group)
    print " */\n/** @{ */"
    opened = 0
}

BEGIN { read_ahead(ARGV[1]) }

/^#define ZU_ZU_/ { next }
/^\/\* ---- / { open_group($0); next }

# A comment at the margin: that of the file, the text of the group that was just opened, or that of what follows.
/^\/\*/ || inside {
    line = $0
    first = !inside
    inside = line !~ /\*\//
    sub(/ ?\*\/.*/, "", line)
    if (first) { sub(/^\/\*+ ?/, "", line); comment = "" }
    else sub(/^ (\* ?)?/, "", line)
    if (line != "" || inside && !first) comment = comment " * " plain(line) "\n"
    if (inside) next
    if (!headed) { headed = 1; print "/** @file\n" comment " */"; next }
    if (opened) {
        printf "%s", comment
        close_text()
        sub(/\n \* \n.*/, "\n", comment) # a type that follows at once has the first paragraph
    }
    next
}
opened { close_text() }

# A declaration at the margin takes the comment, and the next one of the same paragraph takes it again.
/^(ZU_API|typedef|static|#define|__attribute__|struct)/ && comment != "" { printf "/**\n%s */\n", comment }
/^$/ { comment = "" }

# Comments behind or over a field.
{
    if (match($0, /[^ ] +\/\* /)) {
        at = index($0, "/* ")
        $0 = substr($0, 1, at - 1) "/**< " plain(substr($0, at + 3))
    } else if ($0 ~ /^ +\/\* /) {
        at = index($0, "/* ")
        $0 = substr($0, 1, at - 1) "/** " plain(substr($0, at + 3))
    }
    print
}
END {
    if (group) print "/** @} */"
    exit is_missing
}
