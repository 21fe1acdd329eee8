// zu path: where a path lies, from the programs' side and from the host's.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "platform/files/drives.h"
#include "platform/files/place.h"
#include "platform/text/utf8.h"
#include "tools/tools.h"

namespace zu_tools {

bool is_host_path(std::string_view argument) {
    const bool has_drive =
        argument.size() > 1 && argument[1] == ':' && platform::is_drive_letter(argument[0]);
    return !has_drive && argument.find('\\') == std::string_view::npos;
}

std::string absolute(const std::string& host_path) {
    std::string whole = host_path;
    if (!whole.starts_with('/')) {
        char* const here = getcwd(nullptr, 0);
        if (!here)
            fail("the current directory has no path");
        whole = std::string(here) + '/' + whole;
        std::free(here);
    }
    std::string result;
    for (size_t at = 0; at < whole.size();) {
        const size_t end = std::min(whole.find('/', at), whole.size());
        const std::string_view component = std::string_view(whole).substr(at, end - at);
        at = end + 1;
        if (component == "..")
            result.resize(result.empty() ? 0 : result.rfind('/'));
        else if (!component.empty() && component != ".")
            (result += '/') += component;
    }
    return result.empty() ? "/" : result;
}

std::u16string wide_path(const std::string& argument) {
    if (!is_host_path(argument))
        return platform::wide_from(argument);
    std::u16string wide;
    if (const platform::DWORD code = platform::path_of_host_path(absolute(argument), wide);
        code == ERROR_PATH_NOT_FOUND)
        fail(argument + ": no drive and no share leads there");
    else
        check(code, argument);
    return wide;
}

namespace {

// The links that a path goes through, each as "name -> target".
std::string links_on(const std::string& host) {
    std::string links;
    for (size_t end = host.find('/', 1);; end = host.find('/', end + 1)) {
        const std::string prefix = host.substr(0, end);
        char target[PATH_MAX];
        const ssize_t size = readlink(prefix.c_str(), target, sizeof target);
        if (size >= 0)
            links += (links.empty() ? "" : ", ") + prefix + " -> "
                     + std::string(target, static_cast<size_t>(size));
        if (end == std::string::npos)
            return links;
    }
}

// The root of a path, D: or \\server\share, and the directory that it stands for.
std::string root_of(const std::u16string& wide) {
    std::u16string path = wide;
    if (path.starts_with(u"\\\\?\\UNC\\"))
        path.replace(0, 8, u"\\\\");
    else if (path.starts_with(u"\\\\?\\"))
        path.erase(0, 4);
    std::string directory;
    if (path.starts_with(u"\\\\")) {
        const size_t share = path.find(u'\\', 2);
        const size_t end = share == std::u16string::npos ? share : path.find(u'\\', share + 1);
        path.resize(std::min(end, path.size()));
        if (share == std::u16string::npos
            || platform::append_share_directory(path.substr(2, share - 2), path.substr(share + 1), directory)
                   != 0)
            return {};
    } else {
        path.resize(std::min<size_t>(path.size(), 2));
        if (path.size() < 2 || path[1] != u':'
            || platform::append_drive_directory(static_cast<char>(path[0]), directory) != 0)
            return {};
    }
    return platform::utf8_of(path) + " is " + (directory.empty() ? "/" : directory);
}

} // namespace

int path(const arguments& given) {
    given.allow({"--json"});
    given.expect(1, SIZE_MAX);
    bool all_exist = true;
    for (const std::string& argument : given.words) {
        const std::u16string wide = wide_path(argument);
        platform::place at;
        check(at.set(wide.c_str()), argument);
        const bool exists = at.find();
        const platform::DWORD code = exists ? platform::DWORD{ERROR_SUCCESS} : at.code_of(errno);
        const std::string host = at.whole_name();
        std::u16string stored;
        if (platform::path_of_host_path(host, stored) != ERROR_SUCCESS)
            stored = wide;
        all_exist = all_exist && exists;
        facts result;
        result.add("path", platform::utf8_of(stored));
        result.add("host", host);
        result.add("by", root_of(is_host_path(argument) ? wide : stored));
        result.add("exists", exists          ? cell(true)
                             : given.as_json ? cell(false)
                                             : cell("no: " + words_of(code)));
        result.add("links", links_on(host));
        result.print(given);
    }
    return all_exist ? done : failed;
}

} // namespace zu_tools
