// Lines about services.
#include "platform/services/service_log.h"

#include <algorithm>
#include <string>

#include "platform/core/error.h"
#include "platform/core/system_log.h"
#include "platform/text/utf8.h"

namespace platform {

namespace {

// The sentence for a code, without its line end.
std::string words_of(DWORD code) {
    const error_text* const end = error_texts + error_text_count;
    const auto row =
        std::find_if(error_texts, end, [&](const error_text& text) { return text.code == code; });
    const wide_view words = row == end ? u"" : row->text;
    return utf8_of(words.substr(0, words.find_last_not_of(u"\r\n") + 1));
}

} // namespace

void log_failed_start(wide_view service, std::string_view step, DWORD code) {
    std::string line = "service " + utf8_of(service) + " has not started: " + std::string(step);
    line += ": " + words_of(code) + " (" + std::to_string(code) + ')';
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
    write_system_log(line);
}

} // namespace platform
