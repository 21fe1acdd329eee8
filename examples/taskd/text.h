// Small helpers on text: a task file is UTF-8, the library's text is wide.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zu/zu.h"

using wide_text = std::basic_string<ZU_wchar>;

wide_text wide(std::string_view utf8);

std::string narrow(const ZU_wchar* text); // the text as UTF-8
std::string taken(ZU_wchar* text);        // the same, and frees the memory; null gives an empty text

// A path in the library's form. A path from the root of the host becomes one on drive C:, which is that root unless the
// host directory maps C: elsewhere.
wide_text library_path(std::string text);

// The full path, for a program that runs in another directory. Its directory must exist, the file need not; throws `failed`.
std::string full_path(const std::string& path);

// The meaning of a last-error code.
std::string error_text(uint32_t code);

// The local time as text, such as "2006-04-30 10:50:42".
std::string local_time(ZU_time_t time);

// The text without spaces, tabs and line ends around it.
std::string_view trimmed(std::string_view text);

// The trimmed pieces between separators, at most so many: the last takes what is left.
std::vector<std::string_view> pieces(std::string_view text, char separator, size_t at_most = SIZE_MAX);

// The pieces between spaces, none of them empty.
std::vector<std::string_view> words(std::string_view text);

// Reads a whole decimal number. False if the text is none.
bool read_number(std::string_view text, int32_t& number);
