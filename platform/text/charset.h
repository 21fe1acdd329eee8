// Inside this folder: the environment's character set: what narrow text outside UTF-8 is written in.
#pragma once

#include <cstddef>
#include <string>

#include "platform/api/base.h"

namespace platform {

// Writes what fits and counts all of it.
template <class Unit>
class bounded_output {
public:
    bounded_output(Unit* out, size_t size) : out_(out), size_(size) {}

    void put(Unit unit) {
        if (count_ < size_)
            out_[count_] = unit;
        ++count_;
    }
    size_t count() const { return count_; }

private:
    Unit* out_;
    size_t size_;
    size_t count_ = 0;
};

// The character set that LC_ALL, LC_CTYPE or LANG names, as they stand at the first question; "UTF-8" for none, "C"
// and "POSIX".
const std::string& environment_charset();
bool environment_is_utf8();

// Conversions through the environment's character set where it is not UTF-8. Wide characters that it lacks become
// '?', one for each unit; bytes without a meaning U+FFFD. False with a code when the host cannot convert at all.
bool charset_from_wide(const WCHAR* wide, size_t count, bounded_output<char>& out);
bool charset_to_wide(const char* narrow, size_t count, bounded_output<WCHAR>& out);

} // namespace platform
