// Inside this folder: the environment's character set, which narrow text is in unless it is UTF-8.
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

// The character set that LC_ALL, LC_CTYPE or LANG names; UTF-8 for none, "C", "POSIX" and for a set that the host does
// not know. The first answer is kept for good. Null with a code while the host is short of the descriptors or the
// memory that finding it takes.
struct charset;
const charset* environment_charset();
bool is_utf8(const charset& set);

// Conversions through a set that is not UTF-8. Wide characters that it lacks become '?', one for each unit. Bytes
// without a meaning become U+FFFD. False with a code when the host cannot convert now.
bool charset_from_wide(const charset& to, const WCHAR* wide, size_t count, bounded_output<char>& out);
bool charset_to_wide(const charset& from, const char* narrow, size_t count, bounded_output<WCHAR>& out);

} // namespace platform
