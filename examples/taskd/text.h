// Small helpers on text: a task file is UTF-8, the library's text is wide.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zu/zu.h"

std::u16string wide(std::string_view utf8);

std::string narrow(const ZU_wchar* text); // as UTF-8

// A path as the library takes it. One from the root of the host is one on drive C:, which is where that root is
// unless the host has been told otherwise.
std::u16string library_path(std::string text);

// What a last-error code means.
std::string error_text(uint32_t code);

// "2006-04-30 10:50:42"
std::string local_time(ZU_time_t time);

// The text without spaces, tabs and line ends around it.
std::string_view trimmed(std::string_view text);

// The trimmed pieces between separators, at most so many: the last takes what is left.
std::vector<std::string_view> pieces(std::string_view text, char separator, size_t at_most = SIZE_MAX);

// The pieces between spaces, none of them empty.
std::vector<std::string_view> words(std::string_view text);

// A whole decimal number, or false.
bool read_number(std::string_view text, int32_t& number);
