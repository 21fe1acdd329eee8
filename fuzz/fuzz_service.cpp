// Records of services and command lines: any bytes are read, and what was read is written so that it is read the same.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/command_line.h"
#include "platform/service_record.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    platform::service_record record, again;
    if (platform::read_record(text, record)) {
        const std::string written = platform::text_of(record);
        if (!platform::read_record(written, again) || platform::text_of(again) != written
            || again.name != record.name || again.command_line != record.command_line
            || again.dependencies != record.dependencies)
            std::abort();
        const std::string directory = platform::directory_name_of(record.name);
        if (directory.empty() || directory.size() > 255 || directory[0] == '.'
            || directory.find('/') != std::string::npos)
            std::abort();
    }
    std::u16string wide;
    for (size_t i = 0; i + 1 < size; i += 2)
        wide += static_cast<char16_t>(data[i] | data[i + 1] << 8);
    const platform::command_line line(wide);
    size_t units = line.program.size();
    for (const std::u16string& argument : line.arguments)
        units += argument.size();
    if (units > wide.size())
        std::abort();
    return 0;
}
