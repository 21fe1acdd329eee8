// Records of services and command lines: any bytes are read, and what was read is written so that it is read the same.
#include "fuzz/check.h"
#include "platform/services/service_record.h"
#include "platform/text/command_line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    platform::service_record record, again;
    if (platform::read_record(text, record)) {
        const std::string written = platform::text_of(record);
        check(platform::read_record(written, again) && platform::text_of(again) == written);
        check(again.name == record.name && again.command_line == record.command_line
              && again.dependencies == record.dependencies);
        const std::string directory = platform::directory_name_of(record.name);
        check(!directory.empty() && directory.size() <= 255 && directory[0] != '.'
              && directory.find('/') == std::string::npos);
    }
    const std::u16string wide = units_of(data, size);
    platform::command_line line(wide);
    do {
        size_t units = line.program().size();
        for (const std::u16string& argument : line.arguments())
            units += argument.size();
        check(units <= wide.size());
    } while (line.lengthen_program());
    return 0;
}
