// Matching of search patterns.
#include "platform/files/wildcard.h"

#include <bitset>

#include "platform/files/path.h"
#include "platform/text/case_fold.h"

namespace platform {

namespace {

bool is_wildcard(WCHAR unit) {
    return unit == u'*' || unit == u'?';
}

bool same_unit(WCHAR unit, WCHAR other) {
    return unit == other || fold_case(unit) == fold_case(other);
}

// Whether the rest of a pattern may stand for nothing, at the end of the name.
bool may_be_nothing(wide_view pattern) {
    for (size_t i = 0; i < pattern.size(); ++i) {
        const bool is_dot_before_wildcard =
            pattern[i] == u'.' && i + 1 < pattern.size() && is_wildcard(pattern[i + 1]);
        if (!is_wildcard(pattern[i]) && !is_dot_before_wildcard)
            return false;
    }
    return true;
}

// The positions in the pattern that a name can have reached so far. All of them are kept, so one pass over the name is
// enough however many stars there are.
using places = std::bitset<longest_component + 1>;

places after(wide_view pattern, places reached, WCHAR unit) {
    places next;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (!reached[i])
            continue;
        if (pattern[i] == u'*') {
            reached[i + 1] = true; // the star stands for nothing more
            next[i] = true;        // or for this unit as well
        } else if (pattern[i] == u'?') {
            if (unit == u'.')
                reached[i + 1] = true;
            next[i + 1] = true;
        } else if (same_unit(pattern[i], unit)) {
            next[i + 1] = true;
        }
    }
    return next;
}

} // namespace

bool matches_all(wide_view pattern) {
    return pattern == u"*" || pattern == u"*.*";
}

bool matches(wide_view pattern, wide_view name) {
    if (matches_all(pattern))
        return true;
    if (pattern.ends_with(u"*.") && name.find(u'.') == wide_view::npos)
        pattern.remove_suffix(1);
    places reached;
    reached[0] = true;
    for (const WCHAR unit : name)
        reached = after(pattern, reached, unit);
    for (size_t i = 0; i <= pattern.size(); ++i)
        if (reached[i] && may_be_nothing(pattern.substr(i)))
            return true;
    return false;
}

} // namespace platform
