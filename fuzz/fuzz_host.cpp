// Files that the host keeps, as anybody may have written them: a service's status, drives and shares, attributes,
// zones; and a log file of any name and settings.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "fuzz/check.h"
#include "platform/files/drives.h"
#include "platform/services/service_status.h"
#include "zu/zu.h"

namespace {

struct host_directory {
    std::string path = "/tmp/fuzz_host." + std::to_string(getpid());
    host_directory() { std::filesystem::create_directories(path + "/drives/unc/server"); }
    ~host_directory() { std::filesystem::remove_all(path); }
};

const host_directory host;

// The drive path of something in the host directory.
std::u16string wide_path(const std::string& name) {
    const std::string path = "C:" + host.path + '/' + name;
    std::u16string wide(path.begin(), path.end());
    std::replace(wide.begin(), wide.end(), u'/', u'\\');
    return wide;
}

std::u16string take_units(FuzzedDataProvider& input, size_t most) {
    const std::string text = input.ConsumeRandomLengthString(most);
    std::u16string units;
    for (const char c : text)
        units += c ? static_cast<unsigned char>(c) : u'~';
    return units;
}

void read_status(FuzzedDataProvider& input) {
    std::ofstream(host.path + "/status", std::ios::binary) << input.ConsumeRemainingBytesAsString();
    const platform::descriptor directory(open(host.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    platform::service_life life;
    platform::status_watch().look(directory.get(), life);
    check(!life.is_alive && !life.has_helper);
}

void read_drives(FuzzedDataProvider& input) {
    static bool has_slash = false;
    has_slash = !has_slash; // another name of it, so that it is read anew
    setenv("ZU_HOST", (host.path + (has_slash ? "/" : "")).c_str(), 1);
    for (const char* name : {"/drives/d:", "/drives/unc/server/share"}) {
        const std::string link = host.path + name;
        const std::string text = input.ConsumeRandomLengthString(200);
        unlink(link.c_str());
        check(text.c_str()[0] == 0 || symlink(text.c_str(), link.c_str()) == 0);
    }
    std::string directory;
    check(platform::append_drive_directory('D', directory) != 0 || !directory.ends_with('/'));
    directory.clear();
    check(platform::append_share_directory(u"SERVER", u"Share", directory) != 0 || !directory.ends_with('/'));
    std::u16string back;
    check(platform::path_of_host_path("/" + input.ConsumeRandomLengthString(100), back) == 0
          && back.size() > 2);
    ZU_stat status;
    ZU_stat64((u"D:\\" + take_units(input, 50)).c_str(), &status);
    ZU_stat64((u"\\\\server\\share\\" + take_units(input, 50)).c_str(), &status);
}

void read_attributes(FuzzedDataProvider& input) {
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

void read_zone(FuzzedDataProvider& input) {
    std::string zone = input.ConsumeRandomLengthString(60).c_str();
    if (zone.find_first_of("/.:") != std::string::npos) // no file of the host's
        zone = "UTC";
    setenv("TZ", zone.c_str(), 1);
    while (input.remaining_bytes() > 0) {
        const auto time = input.ConsumeIntegralInRange<ZU_time_t>(0, INT32_MAX);
        ZU_tm local;
        if (!ZU_localtime(time, &local))
            continue;
        const ZU_time_t back = ZU_mktime(&local);
        check(back == -1 || std::abs(int64_t{back} - time) <= 7 * 24 * 3600);
        local.tm_isdst = input.ConsumeIntegralInRange(-1, 2);
        local.tm_mon = input.ConsumeIntegral<int32_t>();
        local.tm_mday = input.ConsumeIntegral<int32_t>();
        local.tm_hour = input.ConsumeIntegral<int32_t>();
        ZU_mktime(&local);
    }
}

void write_log(FuzzedDataProvider& input) {
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
    FuzzedDataProvider input(data, size);
    using read = void (*)(FuzzedDataProvider&);
    input.PickValueInArray<read>({read_status, read_drives, read_attributes, read_zone, write_log})(input);
    return 0;
}
