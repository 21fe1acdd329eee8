// Rotation of a log file: path.1 is the latest older file, path.2 the one before it. The directory is listed once, and
// only numbers that are there are moved, so a huge number of generations costs no more than the files that exist.
#include <algorithm>
#include <functional>

#include "zu/zu_log.h"

namespace {

using zu::scoped_string;
using zu::text_view;

// If the directory cannot be listed, every number is tried. This many take a fraction of a second under the main lock.
constexpr uint32_t most_tried_without_list = 1000;

// Numbers of generations; the live file is 0.
class number_list {
public:
    number_list() = default;
    ~number_list() { ZU_free(numbers_); }
    number_list(const number_list&) = delete;
    number_list& operator=(const number_list&) = delete;

    uint32_t* begin() const { return numbers_; }
    uint32_t* end() const { return numbers_ + count_; }

    void add(uint32_t number) {
        if (count_ == capacity_) {
            capacity_ = capacity_ * 2 + 8;
            numbers_ = static_cast<uint32_t*>(
                ZU_realloc(numbers_, capacity_ * static_cast<uint32_t>(sizeof(uint32_t))));
        }
        numbers_[count_++] = number;
    }

    // Two spellings of one name, app.log.1 and APP.LOG.1, are one generation.
    void sort_descending() {
        std::sort(begin(), end(), std::greater<uint32_t>());
        count_ = static_cast<uint32_t>(std::unique(begin(), end()) - begin());
    }

private:
    uint32_t* numbers_ = nullptr;
    uint32_t count_ = 0;
    uint32_t capacity_ = 0;
};

// The number at the end of a generation's name; 0 for any other name. The search has compared the characters before the
// dot already, without regard to case.
uint32_t number_of(text_view name, size_t live_name_length) {
    if (name.size() < live_name_length + 2 || name[live_name_length] != u'.')
        return 0;
    const text_view digits = name.substr(live_name_length + 1);
    if (digits.size() > 10 || digits[0] == u'0')
        return 0;
    uint64_t number = 0;
    for (const ZU_wchar digit : digits) {
        if (digit < u'0' || digit > u'9')
            return 0;
        number = number * 10 + (digit - u'0');
    }
    return number <= UINT32_MAX ? static_cast<uint32_t>(number) : 0;
}

// Adds the numbers of the generations that exist, up to `oldest`. False if the directory cannot be listed.
bool list_numbers(text_view path, uint32_t oldest, number_list& numbers) {
    const size_t name_length = path.size() - (path.find_last_of(ZU_W("\\/:")) + 1);
    scoped_string pattern;
    ZU_long_path(path.data(), pattern.address());
    ZU_s_append_n(pattern.address(), ZU_W(".*"), 2);
    platform::WIN32_FIND_DATAW found;
    const platform::HANDLE search = platform::FindFirstFileW(pattern.text(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return platform::GetLastError() == ERROR_FILE_NOT_FOUND;
    do {
        const uint32_t number = number_of(found.cFileName, name_length);
        if (number != 0 && number <= oldest)
            numbers.add(number);
    } while (platform::FindNextFileW(search, &found));
    const bool complete = platform::GetLastError() == ERROR_NO_MORE_FILES;
    platform::FindClose(search);
    return complete;
}

void make_generation(scoped_string& out, text_view path, uint32_t number) {
    ZU_s_clear(out.address());
    ZU_s_append_n(out.address(), path.data(), static_cast<uint32_t>(path.size()));
    if (number > 0)
        ZU_s_append_sprintf(out.address(), ZU_W(".%u"), number);
}

} // namespace

void zu::log::rotate(uint32_t generations, text_view path) {
    if (generations <= 1) {
        ZU_delete_file(path.data());
        return;
    }
    const uint32_t oldest = generations - 1;
    number_list numbers;
    numbers.add(0);
    if (!list_numbers(path, oldest, numbers)) {
        if (generations > most_tried_without_list)
            return;
        for (uint32_t number = 1; number <= oldest; ++number)
            numbers.add(number);
    }
    numbers.sort_descending();
    scoped_string source, target;
    for (const uint32_t number : numbers) {
        make_generation(source, path, number);
        if (number == oldest) {
            ZU_delete_file(source.text());
            continue;
        }
        make_generation(target, path, number + 1);
        ZU_move_file(source.text(), target.text());
    }
}
