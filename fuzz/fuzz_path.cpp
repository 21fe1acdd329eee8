// Paths, names and patterns of any text: a path stays on its drive, a name comes back unchanged, and matching agrees with
// a plain model.
#include "fuzz/check.h"
#include "platform/files/name_map.h"
#include "platform/files/path.h"
#include "platform/files/wildcard.h"
#include "platform/text/case_fold.h"

namespace {

using namespace platform;

// A path of the host never has an empty, "." or ".." component, nor a zero byte.
void check_path(const std::u16string& text, path_use use) {
    parsed_path path;
    if (parse_path(text.c_str(), use, path) != ERROR_SUCCESS)
        return;
    check(path.root_size == 0); // C: is /
    check(path.host.find('\0') == std::string::npos);
    for (const char* component : {"//", "/./", "/../"})
        check((path.host + '/').find(component) == std::string::npos);
    check(path.is_root == (path.host.empty() && path.pattern.empty()));
    check(use == path_use::search || path.pattern.empty());
}

void check_names(const std::string& host, const std::u16string& wide) {
    std::u16string spelling;
    std::string back;
    append_wide_name(host, spelling);
    check(append_host_name(spelling, back) && back == host);
    check(same_name(host, back));
    back.clear();
    if (append_host_name(wide, back)) {
        spelling.clear();
        append_wide_name(back, spelling);
        check(spelling == wide);
    } else {
        check(back.empty());
    }
}

bool model(wide_view pattern, wide_view name) {
    if (pattern.empty())
        return name.empty();
    if (name.empty()) { // only characters that match nothing are left: stars, marks, and dots before them
        const size_t next = pattern[0] == u'.' ? 1 : 0;
        return next < pattern.size() && (pattern[next] == u'*' || pattern[next] == u'?')
               && model(pattern.substr(next + 1), name);
    }
    if (pattern[0] == u'*')
        return model(pattern.substr(1), name) || model(pattern, name.substr(1));
    if (pattern[0] == u'?')
        return model(pattern.substr(1), name.substr(1))
               || (name[0] == u'.' && model(pattern.substr(1), name));
    return fold_case(pattern[0]) == fold_case(name[0]) && model(pattern.substr(1), name.substr(1));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setenv("ZU_HOST", "/nonexistent", 1);
    std::string bytes(data, data + size);
    std::erase_if(bytes, [](char c) { return c == 0 || c == '/'; });
    std::u16string wide = units_of(data, size);
    std::erase(wide, u'\0');
    // Bytes as units too: most of what matters in a path is ASCII.
    const std::u16string narrow(data, data + size);
    for (const path_use use : {path_use::exact, path_use::search}) {
        for (const std::u16string& text : {narrow, wide}) {
            check_path(text, use);
            check_path(u"\\\\?\\C:\\" + text, use);
        }
    }
    check_names(bytes, wide);
    // The model is exponential, and knows nothing of the two patterns with rules of their own.
    const wide_view whole = narrow;
    const size_t middle = std::min<size_t>(whole.size() / 2, longest_component);
    const wide_view pattern = whole.substr(0, middle), name = whole.substr(middle, longest_component);
    const bool matched = matches(pattern, name);
    if (pattern.size() <= 8 && name.size() <= 8 && !matches_all(pattern) && !pattern.ends_with(u"*."))
        check(matched == model(pattern, name));
    return 0;
}
