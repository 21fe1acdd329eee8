// The name of this computer.
#include "platform/system/computer.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/core/error.h"
#include "platform/text/case_fold.h"

namespace platform {

std::u16string computer_name() {
    char name[HOST_NAME_MAX + 1] = "";
    ::gethostname(name, sizeof name - 1);
    // Host names are ASCII, so each byte is a unit.
    return std::u16string(name, name + std::strcspn(name, "."));
}

bool is_this_computer(const WCHAR* name) {
    wide_view rest = name ? name : u"";
    if (rest.starts_with(u"\\\\"))
        rest.remove_prefix(2);
    return rest.empty() || rest == u"." || equal_without_case(rest, u"localhost")
           || equal_without_case(rest, computer_name());
}

BOOL GetComputerNameW(WCHAR* buffer, DWORD* size) {
    const std::u16string name = computer_name();
    const DWORD length = static_cast<DWORD>(name.size());
    if (!buffer || *size <= length) {
        *size = length + 1;
        return fail(ERROR_BUFFER_OVERFLOW);
    }
    std::copy_n(name.c_str(), length + 1, buffer);
    *size = length;
    return TRUE;
}

} // namespace platform
