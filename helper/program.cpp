// From a command line to the arguments of execve.
#include "helper/program.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/core/error.h"
#include "platform/files/drives.h"
#include "platform/files/place.h"
#include "platform/text/command_line.h"
#include "platform/text/utf8.h"

namespace zu_helper {

namespace {

using platform::command_line;
using platform::DWORD;
using platform::place;
using platform::wide_view;

// Whether a unit stands for a byte that is no UTF-8: one of U+DC80 to U+DCFF without the first half of a pair.
bool is_byte(wide_view text, size_t at) {
    return text[at] >= 0xDC80 && text[at] <= 0xDCFF
           && (at == 0 || !platform::is_high_surrogate(text[at - 1]));
}

std::string host_text(wide_view text) {
    std::string out;
    for (size_t start = 0, at = 0; at <= text.size(); ++at) {
        if (at < text.size() && !is_byte(text, at))
            continue;
        out += platform::utf8_of(text.substr(start, at - start));
        if (at < text.size())
            out += static_cast<char>(text[at] & 0xFF);
        start = at + 1;
    }
    return out;
}

bool is_drive_path(wide_view path) {
    return (path.size() > 1 && platform::is_drive_letter(path[0]) && path[1] == u':')
           || path.starts_with(u"\\\\");
}

// The host's path of a file that may be executed. A directory is no program: 2 (ERROR_FILE_NOT_FOUND).
DWORD find_file(const std::u16string& path, std::string& out) {
    place at;
    if (is_drive_path(path)) {
        if (const DWORD code = at.set(path.c_str()); code != ERROR_SUCCESS)
            return code;
    } else {
        at.set_host_path(host_text(path).c_str());
    }
    struct stat found = {};
    const int result = at.attempt([&](int directory, const char* name) {
        return fstatat(directory, name, &found, 0) == 0 ? faccessat(directory, name, X_OK, AT_EACCESS) : -1;
    });
    if (S_ISDIR(found.st_mode))
        return ERROR_FILE_NOT_FOUND;
    if (result != 0)
        return at.code_of(errno);
    out = at.whole_name();
    return at.is_too_long() ? ERROR_FILENAME_EXCED_RANGE
                            : ERROR_SUCCESS; // execve takes no path of that length
}

bool is_missing(DWORD code) {
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

} // namespace

DWORD find_program(wide_view text, std::vector<std::string>& words) {
    command_line line(text);
    std::string program;
    const DWORD first = find_file(line.program(), program);
    DWORD code = first;
    while (is_missing(code) && line.lengthen_program())
        code = find_file(line.program(), program);
    if (code != ERROR_SUCCESS)
        return is_missing(code) ? first : code;
    words.push_back(program);
    for (const std::u16string& argument : line.arguments())
        words.push_back(host_text(argument));
    return ERROR_SUCCESS;
}

} // namespace zu_helper
