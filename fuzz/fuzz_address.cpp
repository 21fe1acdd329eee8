// Address texts: the dotted reader against a model by the rules, and the shape test against its description.
#include <arpa/inet.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "platform/platform.h"
#include "zu/zu.h"

namespace {

// One number as C writes it, within 32 bits.
std::optional<uint64_t> number(const std::string& text) {
    const char* digits = "0123456789";
    size_t from = 0;
    int base = 10;
    if (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) {
        from = 2;
        base = 16;
        digits = "0123456789abcdefABCDEF";
    } else if (text.rfind('0', 0) == 0) {
        base = 8;
        digits = "01234567";
    }
    if (text.size() == from || text.find_first_not_of(digits, from) != std::string::npos)
        return std::nullopt;
    const size_t significant = text.find_first_not_of('0', from);
    if (significant == std::string::npos)
        return 0;
    if (text.size() - significant > 11)
        return std::nullopt;
    const uint64_t value = std::strtoull(text.c_str() + from, nullptr, base);
    return value > UINT32_MAX ? std::nullopt : std::optional(value);
}

uint32_t model(const std::string& text) {
    if (text == " ")
        return 0;
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == ' ' || (c >= '\t' && c <= '\r'))
            break;
        if (c == '.')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    if (parts.size() > 4)
        return INADDR_NONE;
    uint64_t address = 0;
    for (size_t i = 0; i < parts.size(); ++i) {
        const std::optional<uint64_t> value = number(parts[i]);
        const bool last = i + 1 == parts.size();
        const size_t bits = last ? 8 * (4 - i) : 8;
        if (!value || *value >> bits)
            return INADDR_NONE;
        address = address << bits | *value;
    }
    return htonl(static_cast<uint32_t>(address));
}

bool has_the_shape(const std::u16string& text) {
    if (text.size() < 2 || text.size() > 15)
        return false;
    int dots = 0;
    for (const char16_t c : text) {
        dots += c == u'.';
        if (c != u'.' && (c < u'0' || c > u'9'))
            return false;
    }
    return dots == 3 && text.front() != u'.' && text.back() != u'.';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    const uint32_t address = ZU_inet_addr(text.c_str());
    check(address == model(text));
    char dotted[16];
    ZU_inet_ntoa(address, dotted);
    check(address == INADDR_NONE || ZU_inet_addr(dotted) == address);

    std::u16string wide;
    for (size_t i = 0; i + 1 < size && (data[i] || data[i + 1]); i += 2)
        wide += static_cast<char16_t>(data[i] | data[i + 1] << 8);
    check(ZU_is_ip_address(wide.c_str()) == has_the_shape(wide));
    const std::u16string same(text.begin(), text.end());
    check(ZU_is_ip_address(same.c_str()) == has_the_shape(same));
    return 0;
}
