# A page as Doxygen wants it. Headings get names, made of the page's and their words, which links lead to. Links to files
# that are no part of the reference lose their target.
function name_of(page, words) {
    words = tolower(words)
    gsub(/[^a-z0-9 _-]/, "", words)
    gsub(/[ -]/, "_", words)
    return page "_" words
}

# The page of a file, such as guide for docs/guide.md; empty for what is no page of the reference.
function page_of(file) { return match(file, /(README|guide|platform|porting)\.md$/) ? substr(file, RSTART, RLENGTH - 3) : "" }

# The target of a link in the reference; empty for none.
function target_of(link,    at, page) {
    if (link ~ /^https?:/) return link
    at = index(link, "#")
    page = at == 1 ? page_of(FILENAME) : page_of(at ? substr(link, 1, at - 1) : link)
    if (page == "") return ""
    return at ? "#" name_of(page, substr(link, at + 1)) : page ".md"
}

/^```/ {
    code = !code
    print code ? ($0 ~ /^```c/ ? "@code{.c}" : "@code{.unparsed}") : "@endcode"
    next
}
!code {
    gsub(/\\`/, "\\ `") # a backslash at the end of code would hide the end
    if (/^##+ /) {
        heading = $0
        sub(/^#+ /, "", heading)
        $0 = $0 " {#" name_of(page_of(FILENAME), heading) "}"
    }
    while (match($0, /\]\([^)]*\)/)) {
        head = substr($0, 1, RSTART - 1)
        tail = substr($0, RSTART + RLENGTH)
        target = target_of(substr($0, RSTART + 2, RLENGTH - 3))
        if (target == "") {
            start = match(head, /\[[^\[]*$/)
            $0 = substr(head, 1, start - 1) substr(head, start + 1) tail
        } else
            $0 = head "]\001" target "\002" tail
    }
    gsub(/\001/, "("); gsub(/\002/, ")")
}
{ print }
