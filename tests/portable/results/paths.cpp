// What path texts mean, and what the calls that take one answer to each.
#include "results.h"

namespace results {
namespace {

// Paths. "~" stands for C:\here\Paths, a directory with a file and an empty directory in it.
constexpr std::u16string_view path_texts =
    uR"(; ;.;..;C:;C:\;c:\;C:\\;C:.;C:/;Q:;Q:\;Q:\a;\;/;\\;\\s;\\nosuch\;\\nosuch\share;\\nosuch\share\;\\nosuch\share\a;)"
    uR"(\\?\;\\?\C:;\\?\C:\;\\?\~\File.txt;\\?\c:\HERE\paths;\\?\UNC\nosuch\share;\\?\UNC\nosuch\share\a;\\?\~\.\Empty;)"
    uR"(\\?\~\..\Paths;//?/C:/here;\\.\C:;~;~\;~\\;~ ;~.;C:\HERE\PATHS;~\File.txt;~\FILE.TXT;~\File.txt\;~\File.txt\a;)"
    uR"(~\File.txt\a\b;~\File.txt.;~\File.txt ;~\nosuch;~\nosuch\;~\nosuch\a;~\nosuch\a\;~\Empty;~\Empty\;~\Empty\..;)"
    uR"(~\Empty\.;~\.\Empty;~\..\Paths\Empty;~\Empty\..\nosuch;C:\..\here\Paths;C:\here\\Paths\\Empty;C:/here/Paths;)"
    uR"(~\Empty\*.x;~\*.none;~\nosuch\*;~\File.txt\a\*;C:\here/Paths;C:Paths;C:Paths\File.txt;~\*;~\F*;~\?ile.txt;)"
    uR"(C:\here\Pa*\File.txt;~\a|b;~\a<b;~\a"b;~\äΩ;Paths;paths\file.txt;Paths\Empty\;Paths\..\Paths;)"
    uR"(.\Paths;..\here;..\..\here;nosuch;nosuch\a;Paths/File.txt;./Paths;/here;\here;\here\Paths; Paths;Paths ;a:b:c;1:\a;)"
    u"CC:\\a;NUL;Paths\\NUL;~\\a\u0001b";

// New files differ in this: see the attributes of files.
std::string attributes(uint32_t bits) {
    return bits == 0xFFFFFFFF ? "none" : hex(bits & ~(FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL));
}

std::string status(const ZU_wchar* path) {
    ZU_stat record;
    if (ZU_stat64(path, &record) != 0)
        return "none";
    return hex(record.st_mode) + " drive " + show(record.st_dev) + " size " + std::to_string(record.st_size);
}

ZU_bool walked(const ZU_wchar* path) {
    ZU_enum_dir* const walk = ZU_enum_dir_begin(path, 0);
    ZU_enum_dir_end(walk);
    return walk != nullptr;
}

ZU_bool opened(const ZU_wchar* path) {
    ZU_file* const file = ZU_open_file(path, ZU_FILE_READ | ZU_FILE_OPEN_EXISTING, nullptr);
    ZU_close_file(file);
    return file != nullptr;
}

std::string corrected(std::u16string path) {
    path.resize(path.size() + ZU_PATH_COMPONENT_MAX + 2);
    const ZU_bool done = ZU_make_actual_file_name(path.data());
    return show(done) + ' ' + show(std::u16string_view(path.c_str()));
}

void questions(const std::u16string& text) {
    const ZU_wchar* const path = text.c_str();
    const std::string name = show(text);
    RESULT(name, ZU_get_actual_full_path(path));
    RESULT(name, ZU_get_actual_file_name(path));
    RESULT(name, corrected(path));
    RESULT(name, ZU_is_floppy_drive(path));
    RESULT(name, hex(ZU_path_attributes(path)));
    RESULT(name, attributes(ZU_get_file_platform_attributes(path)));
    RESULT(name, status(path));
    RESULT(name, walked(path));
    RESULT(name, opened(path));
}

// What can be made is removed again.
void changes(const std::u16string& text) {
    const ZU_wchar* const path = text.c_str();
    const std::string name = show(text);
    ZU_bool made = 0;
    if (text.size() <= 4
        || text.ends_with(u"NUL")) // a drive, what leads to the root, or a device of the host
        return;
    RESULT(name, made = ZU_create_dir(path, nullptr));
    RESULT(name, ZU_set_file_platform_attributes(path, FILE_ATTRIBUTE_NORMAL));
    RESULT(name, ZU_set_file_time(path, -1, 1000000000, -1));
    if (made)
        ZU_delete_dir(path);
}

} // namespace

void paths() {
    ZU_create_dir(u"C:\\here\\Paths", nullptr);
    ZU_create_dir(u"C:\\here\\Paths\\Empty", nullptr);
    ZU_close_file(ZU_open_file(u"C:\\here\\Paths\\File.txt", ZU_FILE_CREATE_NEW | ZU_FILE_WRITE, nullptr));
    std::vector<std::u16string> all = split(path_texts);
    for (std::u16string& path : all)
        if (const size_t place = path.find(u'~'); place != path.npos)
            path.replace(place, 1, u"C:\\here\\Paths");
    for (const auto group : {questions, changes})
        for (const std::u16string& path : all)
            group(path);
    for (const std::u16string_view start : {u"", u"C:\\here\\"})
        for (const size_t units : {247u, 248u, 255u, 256u, 259u, 260u, 300u}) {
            const std::u16string path = std::u16string(start) + std::u16string(units, u'x');
            const std::string name = show(start) + " and " + std::to_string(units);
            RESULT(name, ZU_create_dir(path.c_str(), nullptr));
            RESULT(name, hex(ZU_path_attributes(path.c_str())));
            RESULT(name, ZU_delete_dir(path.c_str()));
        }
    ZU_delete_dir_recursive(u"C:\\here\\Paths");
}

} // namespace results
