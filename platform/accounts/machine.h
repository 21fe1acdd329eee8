// Inside the layer: names of machines and of accounts as their callers give them.
#pragma once

#include <string>
#include <string_view>

#include "platform/api/base.h"

namespace platform {

// Equal but for the case of letters.
bool same_word(std::u16string_view one, std::u16string_view other);

// This computer's name, as GetComputerNameW gives it.
std::u16string this_machine();

// Whether a machine's name, maybe behind two backslashes, means this computer: null, "", "." and its own name do.
bool is_this_machine(const WCHAR* name);

// UTF-8 and back.
std::string narrow_text(std::u16string_view wide);
std::u16string wide_text(std::string_view narrow);

} // namespace platform
