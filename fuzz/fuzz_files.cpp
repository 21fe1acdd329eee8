// Drives, shares and attributes as the host may have them; log files of any name and settings.
#include <sys/xattr.h>

#include <algorithm>
#include <fstream>

#include "fuzz/check.h"
#include "platform/files/drives.h"
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
    return run_one_of({read_drives, read_attributes, write_log}, data, size);
}
