// Names in another case.
#include "platform/files/spelling.h"

#include <cerrno>

#include "platform/files/directory_scan.h"
#include "platform/files/name_map.h"
#include "platform/text/case_fold.h"

namespace platform {

std::string find_spelling_in(descriptor directory, std::string_view wanted) {
    directory_reader reader(std::move(directory));
    std::string found;
    std::string_view rest = wanted;
    const char32_t first = fold_case(take_character(rest));
    while (reader.fill()) {
        for (directory_reader::entry entry; reader.take(entry);) {
            rest = entry.name;
            // Most names differ in their first letter.
            if (fold_case(take_character(rest)) != first || !same_name(entry.name, wanted))
                continue;
            if (entry.name == wanted)
                return std::string(wanted);
            if (found.empty() || entry.name < found)
                found = entry.name;
        }
    }
    if (errno != 0)
        return {};
    errno = ENOENT;
    return found;
}

} // namespace platform
