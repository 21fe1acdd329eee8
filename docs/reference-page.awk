# A page as Doxygen wants it: headings of the guide get names that the reference links to, and links to files that are
# no part of the reference lose their target.
/^```/ {
    code = !code
    print code ? ($0 ~ /^```c/ ? "@code{.c}" : "@code{.unparsed}") : "@endcode"
    next
}
!code {
    gsub(/\\`/, "\\ `") # a backslash at the end of code would hide the end
    if (FILENAME ~ /guide\.md$/ && /^#+ /) $0 = $0 " {#guide_" ++headings "}"
    while (match($0, /\]\([^)#]*[^)]*\)/)) {
        target = substr($0, RSTART + 2, RLENGTH - 3)
        head = substr($0, 1, RSTART - 1)
        tail = substr($0, RSTART + RLENGTH)
        keep = target ~ /^(docs\/)?(guide|platform|porting)\.md/ || target ~ /^https?:/
        if (!keep) {
            start = match(head, /\[[^\[]*$/)
            head = substr(head, 1, start - 1) substr(head, start + 1)
            $0 = head tail
        } else {
            name = target; sub(/.*\//, "", name)
            $0 = head "]\001" name "\002" tail
        }
    }
    gsub(/\001/, "("); gsub(/\002/, ")")
}
{ print }
