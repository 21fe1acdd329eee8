// The version record: an NT version that is none of the named ones. The distribution and the kernel give its fields.
#include <sys/utsname.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/api/system.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

constexpr DWORD major_version = 10;

// Removes the quoting of a shell's assignment, as in PRETTY_NAME="Debian GNU/Linux 12 (bookworm)".
std::string unquoted(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    if (text.size() >= 2 && (text[0] == '"' || text[0] == '\'') && text.back() == text[0])
        text = text.substr(1, text.size() - 2);
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i)
        plain += text[text[i] == '\\' && i + 1 < text.size() ? ++i : i];
    return plain;
}

std::string distribution() {
    constexpr std::string_view name = "PRETTY_NAME=";
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        FILE* file = std::fopen(path, "re");
        if (!file)
            continue;
        std::string found;
        char* line = nullptr;
        size_t room = 0;
        while (getline(&line, &room, file) >= 0) {
            if (std::string_view(line).starts_with(name))
                found = unquoted(line + name.size());
        }
        std::free(line);
        std::fclose(file);
        if (!found.empty())
            return found;
    }
    return "Linux";
}

// The first number of a kernel's version: 57 for "#57~22.04.1-Ubuntu SMP ...".
DWORD build_number(const char* version) {
    const char* mark = std::strchr(version, '#');
    return mark ? static_cast<DWORD>(std::strtoul(mark + 1, nullptr, 10)) : 0;
}

void set_text(std::string_view utf8, WCHAR (&out)[128]) {
    std::u16string wide(wide_size(utf8.data(), utf8.size()), 0);
    wide_from_utf8(utf8.data(), utf8.size(), wide.data(), wide.size());
    wide.resize(std::min(wide.size(), std::size(out) - 1));
    if (!wide.empty() && is_high_surrogate(wide.back()))
        wide.pop_back();
    std::memcpy(out, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
}

} // namespace

BOOL GetVersionExW(OSVERSIONINFOW* version) {
    const bool is_extended = version->dwOSVersionInfoSize == sizeof(OSVERSIONINFOEXW);
    if (!is_extended && version->dwOSVersionInfoSize != sizeof(OSVERSIONINFOW)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    utsname kernel{};
    uname(&kernel);
    OSVERSIONINFOEXW record{};
    record.dwOSVersionInfoSize = version->dwOSVersionInfoSize;
    record.dwMajorVersion = major_version;
    record.dwBuildNumber = build_number(kernel.version);
    record.dwPlatformId = VER_PLATFORM_WIN32_NT;
    set_text(distribution() + ", " + kernel.sysname + " " + kernel.release, record.szCSDVersion);
    std::memcpy(version, &record, version->dwOSVersionInfoSize);
    return TRUE;
}

} // namespace platform
