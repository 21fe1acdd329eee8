// The line reader over random bytes, against a reading of the same bytes in memory. The first byte chooses the limit.
#include <unistd.h>

#include <algorithm>

#include "fuzz/check.h"
#include "zu/zu.h"

namespace {

constexpr uint32_t limits[] = {1, 2, 3, 127, 128, 129, 255, 256, 257, 1000, ZU_GET_LINE_MAX, UINT32_MAX};

// A file that lives as long as the process and gets new content for every input.
ZU_file* scratch_file() {
    const std::string name = "fuzz_line." + std::to_string(getpid());
    ZU_file* file = ZU_open_file((u"C:\\tmp\\" + std::u16string(name.begin(), name.end())).c_str(),
                                 ZU_FILE_READ | ZU_FILE_WRITE | ZU_FILE_CREATE_ALWAYS, nullptr);
    check(file != nullptr && unlink(("/tmp/" + name).c_str()) == 0);
    return file;
}

// The line at the start of the text, and how many bytes it takes with its end.
std::string_view expected_line(std::string_view text, uint32_t limit, size_t& taken) {
    const size_t end = std::min<size_t>(text.find_first_of(std::string_view("\n\0", 2)), text.size());
    const size_t length = std::min<size_t>(end, limit);
    taken = length + (length == end && end < text.size() && length < limit ? 1 : 0);
    std::string_view line = text.substr(0, length);
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    static ZU_file* file = scratch_file();
    static ZU_buf buffer = {};
    const uint32_t limit = limits[data[0] % std::size(limits)];
    std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);

    uint32_t done = 0;
    check(ZU_seek_file(file, 0, nullptr, ZU_SEEK_BEGIN) && ZU_set_end_of_file(file));
    check(ZU_write_file(file, rest.data(), static_cast<uint32_t>(rest.size()), &done) && done == rest.size());
    check(ZU_seek_file(file, 0, nullptr, ZU_SEEK_BEGIN));

    const size_t whole = rest.size();
    uint32_t length = 0;
    ZU_bool short_read = 0;
    while (const char* line = ZU_get_line_i(file, &buffer, &length, &short_read, limit)) {
        check(!rest.empty());
        size_t taken = 0;
        const std::string_view expected = expected_line(rest, limit, taken);
        check(std::string_view(line, length) == expected && line[length] == 0);
        rest.remove_prefix(taken);
        uint64_t position = 0;
        check(ZU_tell_file(file, &position) && position == whole - rest.size());
    }
    check(rest.empty() && short_read == 1 && length == 0);
    return 0;
}
