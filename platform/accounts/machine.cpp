// Names of machines and of accounts.
#include "platform/accounts/machine.h"

#include <algorithm>

#include "platform/api/sockets.h"
#include "platform/text/case_fold.h"
#include "platform/text/utf8.h"

namespace platform {

bool same_word(std::u16string_view one, std::u16string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](WCHAR a, WCHAR b) { return fold_case(a) == fold_case(b); });
}

std::u16string this_machine() {
    WCHAR name[256];
    DWORD size = sizeof name / sizeof *name;
    return GetComputerNameW(name, &size) ? std::u16string(name, size) : std::u16string();
}

bool is_this_machine(const WCHAR* name) {
    if (!name)
        return true;
    std::u16string_view rest = name;
    if (rest.starts_with(u"\\\\"))
        rest.remove_prefix(2);
    return rest.empty() || rest == u"." || same_word(rest, u"localhost") || same_word(rest, this_machine());
}

std::string narrow_text(std::u16string_view wide) {
    std::string narrow(utf8_size(wide.data(), wide.size()), 0);
    utf8_from_wide(wide.data(), wide.size(), narrow.data(), narrow.size());
    return narrow;
}

std::u16string wide_text(std::string_view narrow) {
    std::u16string wide(wide_size(narrow.data(), narrow.size()), 0);
    wide_from_utf8(narrow.data(), narrow.size(), wide.data(), wide.size());
    return wide;
}

} // namespace platform
