// Paths, names and patterns: whatever the text, a path stays on its drive, a name comes back as it was, and matching
// agrees with a plain model.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/check.h"
#include "platform/case_fold.h"
#include "platform/name_map.h"
#include "platform/path.h"
#include "platform/wildcard.h"

namespace {

using namespace platform;

// What is spelled on the host has no empty, "." or ".." component, and no zero byte.
void check_path(const std::u16string& text, path_use use) {
    parsed_path path;
    if (parse_path(text.c_str(), use, path) != ERROR_SUCCESS)
        return;
    check(path.root_size == 0); // C: is /
    check(path.host.find('\0') == std::string::npos);
    check((path.host + '/').find("//") == std::string::npos);
    check((path.host + '/').find("/./") == std::string::npos);
    check((path.host + '/').find("/../") == std::string::npos);
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

bool model_rest(wide_view pattern) {
    if (pattern.empty())
        return true;
    if (pattern[0] == u'*' || pattern[0] == u'?')
        return model_rest(pattern.substr(1));
    return pattern[0] == u'.' && pattern.size() > 1 && (pattern[1] == u'*' || pattern[1] == u'?')
           && model_rest(pattern.substr(1));
}

bool model(wide_view pattern, wide_view name) {
    if (name.empty())
        return model_rest(pattern);
    if (pattern.empty())
        return false;
    if (pattern[0] == u'*')
        return model(pattern.substr(1), name) || model(pattern, name.substr(1));
    if (pattern[0] == u'?')
        return model(pattern.substr(1), name.substr(1))
               || (name[0] == u'.' && model(pattern.substr(1), name));
    return fold_case(pattern[0]) == fold_case(name[0]) && model(pattern.substr(1), name.substr(1));
}

void check_pattern(wide_view pattern, wide_view name) {
    const bool matched = matches(pattern, name);
    // The model is exponential, and knows nothing of the two patterns with rules of their own.
    if (pattern.size() <= 8 && name.size() <= 8 && !matches_all(pattern) && !pattern.ends_with(u"*."))
        check(matched == model(pattern, name));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = setenv("ZU_HOST", "/nonexistent", 1) == 0;
    check(ready);
    std::string bytes;
    for (size_t i = 0; i < size; ++i)
        if (data[i] != 0 && data[i] != '/')
            bytes += static_cast<char>(data[i]);
    std::u16string wide(size / 2, 0);
    if (!wide.empty())
        std::memcpy(wide.data(), data, wide.size() * 2);
    while (!wide.empty() && wide.find(u'\0') != std::u16string::npos)
        wide.erase(wide.find(u'\0'), 1);

    // Bytes as units too: most of what matters in a path is ASCII.
    const std::u16string narrow(data, data + size);
    for (const path_use use : {path_use::exact, path_use::search}) {
        check_path(narrow, use);
        check_path(u"\\\\?\\C:\\" + narrow, use);
        check_path(u"\\\\?\\C:\\" + wide, use);
        check_path(wide, use);
    }
    check_names(bytes, wide);
    const wide_view whole = narrow;
    const size_t middle = std::min<size_t>(whole.size() / 2, longest_component);
    check_pattern(whole.substr(0, middle), whole.substr(middle, longest_component));
    return 0;
}
