// Paths, names and patterns of any text; drives, shares and attributes as the host may have them; log files of any name
// and settings.
#include <sys/xattr.h>

#include <algorithm>
#include <fstream>

#include "fuzz/check.h"
#include "platform/files/drives.h"
#include "platform/files/name_map.h"
#include "platform/files/path.h"
#include "platform/files/wildcard.h"
#include "platform/text/case_fold.h"
#include "zu/zu.h"

namespace {

using namespace platform;

const fuzz_directory host;

// The drive path of something in the host directory.
std::u16string wide_path(const std::string& name) {
    const std::string path = "C:" + host.path + '/' + name;
    std::u16string wide(path.begin(), path.end());
    std::replace(wide.begin(), wide.end(), u'/', u'\\');
    return wide;
}

std::u16string take_units(fuzz_input& input, size_t most) {
    const std::string text = input.ConsumeRandomLengthString(most);
    std::u16string units;
    for (const char c : text)
        units += c ? static_cast<unsigned char>(c) : u'~';
    return units;
}

// A path stays on its drive: there, it never has an empty, "." or ".." component, nor a zero byte.
void read_path(fuzz_input& input) {
    const path_use use = input.ConsumeBool() ? path_use::exact : path_use::search;
    const std::u16string start = input.ConsumeBool() ? u"\\\\?\\C:\\" : u"";
    parsed_path path;
    if (parse_path((start + remaining_text(input)).c_str(), use, path) != ERROR_SUCCESS)
        return;
    check(path.root_size == 0); // C: is /
    check(path.host.find('\0') == std::string::npos);
    for (const char* component : {"//", "/./", "/../"})
        check((path.host + '/').find(component) == std::string::npos);
    check(path.is_root == (path.host.empty() && path.pattern.empty()));
    check(use == path_use::search || path.pattern.empty());
}

// A path of plain characters is parsed in one pass, and any other component by component: both say the same.
void parse_both_ways(fuzz_input& input) {
    const path_use use = input.ConsumeBool() ? path_use::exact : path_use::search;
    const std::u16string rest = u"a" + remaining_text(input);
    parsed_path plain, general;
    const DWORD code = parse_path((u"\\\\?\\C:\\" + rest).c_str(), use, plain);
    check(code == parse_path((u"\\\\?\\C:\\\u00e4\\" + rest).c_str(), use, general));
    if (code != ERROR_SUCCESS)
        return;
    check("/\u00e4" + plain.host == general.host && plain.pattern == general.pattern);
    check(plain.ends_with_separator == general.ends_with_separator && plain.root_size == general.root_size);
}

// A name comes back unchanged, either way.
void convert_name(fuzz_input& input) {
    std::string name = input.ConsumeRandomLengthString(300), back;
    std::erase_if(name, [](char c) { return c == 0 || c == '/'; });
    const std::u16string wide = remaining_text(input);
    std::u16string spelling;
    append_wide_name(name, spelling);
    check(append_host_name(spelling, back) && back == name);
    check(same_name(name, back));
    back.clear();
    spelling.clear();
    if (!append_host_name(wide, back))
        check(back.empty());
    append_wide_name(back, spelling);
    check(back.empty() || spelling == wide);
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

// The model is exponential, and knows nothing of the two patterns with rules of their own.
void match(fuzz_input& input) {
    const std::u16string pattern = take_units(input, longest_component);
    const std::u16string name = remaining_text(input).substr(0, longest_component);
    const bool matched = matches(pattern, name);
    if (pattern.size() <= 8 && name.size() <= 8 && !matches_all(pattern) && !pattern.ends_with(u"*."))
        check(matched == model(pattern, name));
}

void read_drives(fuzz_input& input) {
    static bool has_slash = false;
    has_slash = !has_slash; // another name of it, so that it is read anew
    std::filesystem::create_directories(host.path + "/drives/unc/server");
    setenv("ZU_HOST", (host.path + (has_slash ? "/" : "")).c_str(), 1);
    for (const char* name : {"/drives/d:", "/drives/unc/server/share"}) {
        const std::string link = host.path + name;
        const std::string text = input.ConsumeRandomLengthString(200);
        unlink(link.c_str());
        check(text.c_str()[0] == 0 || symlink(text.c_str(), link.c_str()) == 0);
    }
    std::string directory;
    check(append_drive_directory('D', directory) != 0 || !directory.ends_with('/'));
    directory.clear();
    check(append_share_directory(u"SERVER", u"Share", directory) != 0 || !directory.ends_with('/'));
    std::u16string back;
    check(path_of_host_path("/" + input.ConsumeRandomLengthString(100), back) == 0 && back.size() > 2);
    ZU_stat status;
    ZU_stat64((u"D:\\" + take_units(input, 50)).c_str(), &status);
    ZU_stat64((u"\\\\server\\share\\" + take_units(input, 50)).c_str(), &status);
}

void read_attributes(fuzz_input& input) {
    const std::string file = host.path + "/file";
    std::ofstream(file).flush();
    for (const char* name : {"user.DOSATTRIB", "user.zu.created"}) {
        const std::string value = input.ConsumeRandomLengthString(100);
        setxattr(file.c_str(), name, value.data(), value.size(), 0);
    }
    const std::u16string wide = wide_path("file");
    ZU_stat status;
    check(ZU_stat64(wide.c_str(), &status) == 0);
    check(ZU_get_file_platform_attributes(wide.c_str()) != UINT32_MAX);
    ZU_set_file_platform_attributes(wide.c_str(), input.ConsumeIntegral<uint32_t>());
    check(ZU_delete_file(wide.c_str()));
}

void write_log(fuzz_input& input) {
    [[maybe_unused]] static const uint32_t before = (ZU_init(), ZU_log_set_output(ZU_LOG_OUT_FILE));
    std::u16string name = take_units(input, 30);
    std::erase_if(name, [](char16_t unit) { return unit == u'\\' || unit == u'/'; });
    const std::u16string path = wide_path("logs\\") + name, message = take_units(input, 200);
    ZU_log_file_settings settings{};
    settings.file_name = path.c_str();
    settings.encoding = input.ConsumeIntegralInRange<uint32_t>(0, 4);
    settings.max_size = input.ConsumeIntegralInRange<uint32_t>(0, 300);
    settings.generations = input.ConsumeIntegralInRange<uint32_t>(0, 4);
    const std::string logs = host.path + "/logs";
    std::filesystem::create_directory(logs);
    for (int i = 0; i < 3; ++i)
        ZU_log_write_another_file(ZU_LOG_ALERT, &settings, u"%s", message.c_str());
    const auto files =
        std::distance(std::filesystem::directory_iterator(logs), std::filesystem::directory_iterator());
    check(files <= std::max<int64_t>(settings.generations, 1));
    std::filesystem::remove_all(logs);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setenv("ZU_HOST", host.path.c_str(), 1);
    return run_one_of(
        {read_path, parse_both_ways, convert_name, match, read_drives, read_attributes, write_log}, data,
        size);
}
