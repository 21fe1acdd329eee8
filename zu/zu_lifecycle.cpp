// Library lifecycle and error text: counted start and stop, the identity of the build, texts of system codes.
#include "zu/zu_log.h"
#include "zu/zu_support.h"

namespace {

int32_t start_count = 0;

constexpr platform::WORD socket_version_2_2 = 0x0202;
constexpr platform::WORD socket_version_1_1 = 0x0101;
constexpr platform::DWORD users_default_language = 0x0400;

// "Apr 30 2006 10:50:42", widened at compile time. __DATE__ pads the day with a space, and both macros follow
// SOURCE_DATE_EPOCH.
constexpr char narrow_stamp[] = __DATE__ " " __TIME__;

struct wide_stamp {
    ZU_wchar text[sizeof narrow_stamp];
    constexpr wide_stamp() : text() {
        for (size_t i = 0; i < sizeof narrow_stamp; ++i)
            text[i] = static_cast<ZU_wchar>(narrow_stamp[i]);
    }
};
constexpr wide_stamp build_stamp;

// Takes off one line feed, and the carriage return before it.
void trim_line_end(ZU_wchar* text) {
    size_t length = zu::text_view(text).size();
    if (length == 0 || text[length - 1] != '\n')
        return;
    text[--length] = 0;
    if (length > 0 && text[length - 1] == '\r')
        text[--length] = 0;
}

} // namespace

void ZU_init() {
    if (++start_count != 1)
        return;
    platform::WSADATA record;
    if (platform::WSAStartup(socket_version_2_2, &record) != 0)
        platform::WSAStartup(socket_version_1_1, &record);
    zu::log::start();
}

void ZU_shutdown() {
    if (--start_count != 0)
        return;
    zu::log::stop();
    platform::WSACleanup();
}

const ZU_wchar* ZU_version() {
    return ZU_W("1.0");
}

const ZU_wchar* ZU_compilation_timestamp() {
    return build_stamp.text;
}

ZU_wchar* ZU_get_error_msg(uint32_t code) {
    ZU_wchar* message = nullptr;
    const platform::DWORD length =
        platform::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
                                 users_default_language, reinterpret_cast<ZU_wchar*>(&message), 0, nullptr);
    if (length == 0 || !message)
        return nullptr;
    ZU_wchar* copy = ZU_strdup(message);
    trim_line_end(copy);
    platform::LocalFree(message);
    return copy;
}
