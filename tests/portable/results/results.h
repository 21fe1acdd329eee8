// A line for each call: "what and with what => its result, its code". The lines of two platforms are compared, so they
// hold no address, no time of day and nothing else that is a machine's own.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zu/zu.h"

namespace results {

void add(const std::string& call, const std::string& result);

// The texts between semicolons.
std::vector<std::u16string> split(std::u16string_view list);

// Results as text: wide and narrow text is quoted, and all but printable ASCII in it escaped.
std::string show(std::u16string_view text);
std::string show(std::string_view bytes);
std::string show(ZU_wchar* text); // which is in new memory, and freed
std::string hex(uint64_t number);

inline std::string show(const std::string& result) {
    return result;
}
inline std::string show(const void* object) {
    return object ? "some" : "null";
}
template <std::integral Number>
std::string show(Number number) {
    if constexpr (sizeof number == 1) // bool, and ZU_bool
        return number ? "true" : "false";
    else
        return std::to_string(number);
}

// A result, and what the call put at an address.
template <typename Result, typename Output>
std::string both(Result result, const Output* output) {
    return show(result) + ' ' + show(*output);
}

// Presets the code to one that no call leaves, and tells the one that is there afterwards: "-" if it was left alone.
void preset_code();
std::string code();

template <typename Call>
void note(const std::string& what, Call call) {
    preset_code();
    auto result = call();
    const std::string left = code();
    add(what, show(result) + ' ' + left);
}

// Adds the line of a call, which is named by its own text.
#define RESULT(what, ...) note(#__VA_ARGS__ ", " + std::string(what), [&] { return __VA_ARGS__; })

void paths();
void files();
void texts();
void times();
void waits();
void sockets();
void system_calls();

} // namespace results
